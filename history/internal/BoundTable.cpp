#include <history/internal/BoundTable.h>

#include <db/internal/Join.h>
#include <fdb/records/Fault.h>
#include <fdb/records/FaultStatistic.h>
#include <fdb/records/FdbVersion.h>

#include <algorithm>
#include <cstring>

namespace firaim
{

namespace
{

template <class Integer>
std::int64_t numberAt(void const* value)
{
    // The object may be an enumeration of this width.
    Integer number = 0;
    std::memcpy(&number, value, sizeof number);
    return static_cast<std::int64_t>(number);
}

template <class T>
bool isStatus(typename SqlTbl<T>::column_t const& column)
{
    return column.type == SqlTbl<T>::COLUMN_TYPE_CUSTOM;
}

template <class T>
std::array<std::string, 3> statusWords(SqlTbl<T> const& tbl)
{
    std::array<std::string, 3> words;
    unsigned int status = 0;
    for (std::string& word : words)
    {
        word = tbl.convertValueToStr(SqlTbl<T>::COLUMN_TYPE_CUSTOM, &status);
        ++status;
    }
    return words;
}

} // namespace

template <class T>
BoundTable::BoundTable(SqlTbl<T>& tbl) : m_name(tbl.m_tblName)
{
    for (auto const& [id, column] : tbl.m_columns)
    {
        add({column.name, column.sqlType, column.type, column.value,
             isStatus<T>(column) ? statusWords(tbl) : std::array<std::string, 3>()});
    }
}

std::string BoundTable::createText() const
{
    std::string text = "CREATE TABLE \"" + m_name + "\" (";
    char const* separator = "\"";
    for (Column const& column : m_columns)
    {
        text.append(separator).append(column.name).append("\" ").append(column.sqlType);
        separator = ",\"";
    }
    return text + ')';
}

std::string BoundTable::insertText() const
{
    std::string names;
    std::string values;
    for (std::size_t id = 1; id < m_columns.size(); ++id)
    {
        char const* const separator = id == 1 ? "" : ",";
        names.append(separator).append(m_columns[id].name);
        values.append(separator).append("?");
    }
    return join({"INSERT INTO ", m_name, "(", names, ") VALUES(", values, ")"});
}

std::string BoundTable::updateText() const
{
    std::string text = "UPDATE " + m_name + " SET ";
    for (std::size_t id = 1; id < m_columns.size(); ++id)
    {
        text.append(id == 1 ? "" : ",").append(m_columns[id].name).append("=?");
    }
    return text + " WHERE " + key() + "=?";
}

std::string BoundTable::matchText() const
{
    std::string text = "SELECT 1 FROM " + m_name + " WHERE ";
    for (std::size_t id = 1; id < m_columns.size(); ++id)
    {
        text.append(m_columns[id].name).append(" IS ? AND ");
    }
    return text + key() + "=?";
}

std::string BoundTable::selectText() const
{
    std::string text = "SELECT ";
    for (std::size_t id = 0; id < m_columns.size(); ++id)
    {
        text.append(id == 0 ? "" : ",").append(m_columns[id].name);
    }
    return text + " FROM " + m_name;
}

void BoundTable::bind(sqlite::Statement& statement) const
{
    for (std::size_t id = 1; id < m_columns.size(); ++id)
    {
        Column const& column = m_columns[id];
        auto const parameter = static_cast<int>(id);
        switch (column.type)
        {
        case SqlTbl<Fault>::COLUMN_TYPE_UINT64:
            statement.bind(parameter, numberAt<unsigned long long>(column.value));
            break;
        case SqlTbl<Fault>::COLUMN_TYPE_UINT32:
            statement.bind(parameter, numberAt<unsigned int>(column.value));
            break;
        case SqlTbl<Fault>::COLUMN_TYPE_UINT16:
            statement.bind(parameter, numberAt<unsigned short>(column.value));
            break;
        case SqlTbl<Fault>::COLUMN_TYPE_STRING:
            statement.bind(parameter, *static_cast<std::string const*>(column.value));
            break;
        default:
            auto const status = static_cast<std::size_t>(numberAt<unsigned int>(column.value));
            statement.bind(parameter, column.words[std::min<std::size_t>(status, 2)]);
        }
    }
}

void BoundTable::bind(sqlite::Statement& statement, std::int64_t key) const
{
    bind(statement);
    statement.bind(static_cast<int>(m_columns.size()), key);
}

template <class T>
T const& decodeRow(SqlTbl<T>& tbl, sqlite::Statement const& row)
{
    std::vector<char*> cells(tbl.m_columns.size());
    for (std::size_t id = 0; id < cells.size(); ++id)
    {
        auto const column = static_cast<int>(id);
        // setDatafromSqlResult takes non-const cells, but does not change them.
        cells[id] = row.isNull(column) ? nullptr : const_cast<char*>(row.text(column).data());
    }
    static_cast<void>(tbl.setDatafromSqlResult(cells.data()));
    return tbl.m_record;
}

template BoundTable::BoundTable(SqlTbl<Fault>&);
template BoundTable::BoundTable(SqlTbl<FaultStatistic>&);
template BoundTable::BoundTable(SqlTbl<FdbVersion>&);
template Fault const& decodeRow(SqlTbl<Fault>&, sqlite::Statement const&);
template FaultStatistic const& decodeRow(SqlTbl<FaultStatistic>&, sqlite::Statement const&);
template FdbVersion const& decodeRow(SqlTbl<FdbVersion>&, sqlite::Statement const&);

} // namespace firaim
