#include <fdb/tables/SqlTbl.h>

#include <fdb/records/Fault.h>
#include <fdb/records/FaultStatistic.h>
#include <fdb/records/FdbVersion.h>
#include <fdb/tables/SqlTblUtil.h>

#include <charconv>
#include <cstring>
#include <iterator>
#include <limits>
#include <stdexcept>

namespace
{

/// Removes the comma after the last item of the list that begins at `begin` in `sql`.
void cutLastComma(std::string& sql, std::size_t begin)
{
    if (sql.size() == begin)
    {
        // The text is fixed here: that of std::string::erase differs from one C++ runtime to another.
        throw std::out_of_range("basic_string::erase");
    }
    sql.pop_back();
}

void appendQuoted(std::string& sql, std::string const& text)
{
    sql += '\'';
    sql += text;
    sql += '\'';
}

// Integer members are copied as bytes: the object behind a 32-bit column may be an enumeration.

template <class Integer>
void appendNumber(std::string& sql, void const* value)
{
    Integer number = 0;
    std::memcpy(&number, value, sizeof number);
    char digits[std::numeric_limits<Integer>::digits10 + 1];
    sql.append(digits, std::to_chars(std::begin(digits), std::end(digits), number).ptr);
}

template <class Integer>
void decodeNumber(bool isUsable, char** cell, void* value)
{
    Integer number = 0;
    if (isUsable)
    {
        // A text that does not convert was reported and gives 0.
        static_cast<void>(SqlTblUtil::setValueFromSqlResult(cell, &number));
    }
    std::memcpy(value, &number, sizeof number);
}

} // namespace

template <class T>
SqlTbl<T>::SqlTbl(std::string const& tblName) : m_tblName(tblName)
{
}

template <class T>
SqlTbl<T>::~SqlTbl() = default;

template <class T>
std::string SqlTbl<T>::getSqlInsertValuesQuery(T const& record)
{
    m_record = record;
    return getSqlInsertValues();
}

template <class T>
std::string SqlTbl<T>::getSqlUpdateValuesQuery(T const& record)
{
    m_record = record;
    return getSqlUpdateValues();
}

template <class T>
std::string SqlTbl<T>::convertValueToStr(columnValueType_t, void*) const
{
    return "n/a";
}

template <class T>
void SqlTbl<T>::convertValueFromStr(columnValueType_t, std::string const&, void*) const
{
}

template <class T>
std::string SqlTbl<T>::getSqlInsertValues() const
{
    std::string sql;
    std::string values;
    sql.reserve(expectedSize());
    values.reserve(sql.capacity());
    sql.append("INSERT INTO ").append(m_tblName) += '(';
    std::size_t const names = sql.size();
    for (auto const& [id, column] : m_columns)
    {
        if (!column.valid)
        {
            continue;
        }
        reportNullValue(column);
        appendQuoted(sql, column.name);
        sql += ',';
        if (column.sqlType == m_sqlPrimaryKey)
        {
            values += "null";
        }
        else
        {
            appendValue(values, column);
        }
        values += ',';
    }
    cutLastComma(sql, names);
    cutLastComma(values, 0);
    sql.append(") VALUES(").append(values) += ')';
    return sql;
}

template <class T>
std::string SqlTbl<T>::getSqlUpdateValues() const
{
    std::string sql;
    sql.reserve(expectedSize());
    sql.append("UPDATE ").append(m_tblName).append(" SET ");
    std::size_t const assignments = sql.size();
    for (auto const& [id, column] : m_columns)
    {
        if (!column.valid)
        {
            continue;
        }
        reportNullValue(column);
        if (column.sqlType == m_sqlPrimaryKey)
        {
            continue;
        }
        appendQuoted(sql, column.name);
        sql += '=';
        appendValue(sql, column);
        sql += ',';
    }
    cutLastComma(sql, assignments);
    return sql;
}

template <class T>
int SqlTbl<T>::setDatafromSqlResult(char** row)
{
    unsigned short count = 0;
    for (auto const& [id, column] : m_columns)
    {
        if (column.value != nullptr)
        {
            ++count;
            decodeCell(column, row + column.id);
        }
    }
    return count;
}

template <class T>
std::string SqlTbl<T>::getColumnNameById(unsigned short id) const
{
    auto const found = m_columns.find(id);
    return found != m_columns.end() ? found->second.name : "NotFound";
}

template <class T>
void SqlTbl<T>::addColumn(unsigned short id, char const* name, columnValueType_t type, void* value,
                          std::string const& sqlType)
{
    m_columns[id] = {name, id, true, type, value, sqlType};
}

/// The approximate size of a statement of the working record, in bytes, to reserve memory once.
template <class T>
std::size_t SqlTbl<T>::expectedSize() const
{
    constexpr std::size_t kKeywords = 40;
    constexpr std::size_t kNumber = 24; // Any number, status or null, and the characters around name and value.
    std::size_t size = kKeywords + m_tblName.size();
    for (auto const& [id, column] : m_columns)
    {
        size += column.name.size() + kNumber;
        if (column.valid && column.type == COLUMN_TYPE_STRING && column.sqlType == m_sqlVarchar &&
            column.value != nullptr)
        {
            size += static_cast<std::string const*>(column.value)->size();
        }
    }
    return size;
}

template <class T>
void SqlTbl<T>::reportNullValue(column_t const& column) const
{
    if (column.value == nullptr)
    {
        SqlTblUtil::printError("[WARNING] value NULL ptr in column", column.name);
    }
}

/// Appends the value of a column other than the key; nothing if its SQL type is unknown.
template <class T>
void SqlTbl<T>::appendValue(std::string& sql, column_t const& column) const
{
    bool const isText = column.sqlType == m_sqlVarchar;
    if (!isText && column.sqlType != m_sqlInteger)
    {
        return;
    }
    if (column.value == nullptr)
    {
        sql += isText ? "'null'" : "0";
        return;
    }
    bool const isCustom = column.type < COLUMN_TYPE_UINT64 || column.type > COLUMN_TYPE_STRING;
    if (!isText && isCustom)
    {
        sql += convertValueToStr(column.type, column.value);
    }
    else if (!isText)
    {
        appendPlainNumber(sql, column);
    }
    else if (isCustom)
    {
        appendQuoted(sql, convertValueToStr(column.type, column.value));
    }
    else
    {
        // For any plain type: the member of a text column is always a std::string.
        appendQuoted(sql, *static_cast<std::string const*>(column.value));
    }
}

/// Appends the integer of a number column; nothing if its member is a string.
template <class T>
void SqlTbl<T>::appendPlainNumber(std::string& sql, column_t const& column) const
{
    switch (column.type)
    {
    case COLUMN_TYPE_UINT64:
        appendNumber<unsigned long long>(sql, column.value);
        break;
    case COLUMN_TYPE_UINT32:
        appendNumber<unsigned int>(sql, column.value);
        break;
    case COLUMN_TYPE_UINT16:
        appendNumber<unsigned short>(sql, column.value);
        break;
    default:
        break;
    }
}

template <class T>
void SqlTbl<T>::decodeCell(column_t const& column, char** cell) const
{
    bool const isUsable = column.valid && *cell != nullptr;
    switch (column.type)
    {
    case COLUMN_TYPE_UINT64:
        decodeNumber<unsigned long long>(isUsable, cell, column.value);
        break;
    case COLUMN_TYPE_UINT32:
        decodeNumber<unsigned int>(isUsable, cell, column.value);
        break;
    case COLUMN_TYPE_UINT16:
        decodeNumber<unsigned short>(isUsable, cell, column.value);
        break;
    case COLUMN_TYPE_STRING:
        *static_cast<std::string*>(column.value) = isUsable ? *cell : "n/a";
        break;
    default:
        if (isUsable)
        {
            convertValueFromStr(column.type, *cell, column.value);
        }
        else
        {
            // The type is known; the text is deliberately the one for a NULL in a custom column.
            SqlTblUtil::printError("[WARNING]", "Unknown type!!!!!");
        }
    }
}

template class SqlTbl<Fault>;
template class SqlTbl<FaultStatistic>;
template class SqlTbl<FdbVersion>;
