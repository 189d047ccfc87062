#include <fdb/tables/SqlTbl.h>

#include <fdb/records/Fault.h>
#include <fdb/records/FaultStatistic.h>
#include <fdb/records/FdbVersion.h>
#include <fdb/tables/SqlTblUtil.h>

#include <cstring>
#include <stdexcept>

namespace
{

/// Cuts a list at its last comma.
void cutLastComma(std::string& list)
{
    std::size_t const comma = list.rfind(',');
    if (comma == std::string::npos)
    {
        // What std::string::erase would throw, with the same text on every C++ runtime.
        throw std::out_of_range("basic_string::erase");
    }
    list.erase(comma);
}

void appendQuoted(std::string& sql, std::string const& text)
{
    sql += '\'';
    sql += text;
    sql += '\'';
}

// Integer members are copied as bytes: the object behind a 32-bit column may be an enumeration.

template <class Integer>
std::string numberText(void const* value)
{
    Integer number = 0;
    std::memcpy(&number, value, sizeof number);
    // Not by a stream, which would group digits as the application's locale says.
    return std::to_string(number);
}

template <class Integer>
void decodeNumber(bool isUsable, char** cell, void* value)
{
    Integer number = 0;
    if (isUsable)
    {
        // A text that does not convert has been reported and leaves 0.
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
    std::string names;
    std::string values;
    for (auto const& [id, column] : m_columns)
    {
        if (!column.valid)
        {
            continue;
        }
        reportNullValue(column);
        appendQuoted(names, column.name);
        names += ',';
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
    cutLastComma(names);
    cutLastComma(values);
    return "INSERT INTO " + m_tblName + "(" + names + ") VALUES(" + values + ")";
}

template <class T>
std::string SqlTbl<T>::getSqlUpdateValues() const
{
    std::string assignments;
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
        appendQuoted(assignments, column.name);
        assignments += '=';
        appendValue(assignments, column);
        assignments += ',';
    }
    cutLastComma(assignments);
    return "UPDATE " + m_tblName + " SET " + assignments;
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

template <class T>
void SqlTbl<T>::reportNullValue(column_t const& column) const
{
    if (column.value == nullptr)
    {
        SqlTblUtil::printError("[WARNING] value NULL ptr in column", column.name);
    }
}

/// Appends the value of a column that is not the key; nothing when its SQL type is unknown.
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
    if (!isText)
    {
        sql += isCustom ? convertValueToStr(column.type, column.value) : plainNumberText(column);
    }
    else if (isCustom)
    {
        appendQuoted(sql, convertValueToStr(column.type, column.value));
    }
    else
    {
        // Any plain type: a text column always has a std::string behind it.
        appendQuoted(sql, *static_cast<std::string const*>(column.value));
    }
}

/// The integer of a number column; empty when a string stands behind it.
template <class T>
std::string SqlTbl<T>::plainNumberText(column_t const& column) const
{
    switch (column.type)
    {
    case COLUMN_TYPE_UINT64:
        return numberText<unsigned long long>(column.value);
    case COLUMN_TYPE_UINT32:
        return numberText<unsigned int>(column.value);
    case COLUMN_TYPE_UINT16:
        return numberText<unsigned short>(column.value);
    default:
        return {};
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
            // The type is known; this is the text for a NULL in a custom column.
            SqlTblUtil::printError("[WARNING]", "Unknown type!!!!!");
        }
    }
}

template class SqlTbl<Fault>;
template class SqlTbl<FaultStatistic>;
template class SqlTbl<FdbVersion>;
