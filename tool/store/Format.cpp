#include <tool/store/Format.h>

#include <fdb/tables/FdbSqlVersionTbl.h>

namespace tool
{

using firaim::historyTable_t;

namespace
{

/// The number of bits of the member behind a column.
template <class T>
unsigned int bitsOf(typename SqlTbl<T>::columnValueType_t type)
{
    switch (type)
    {
    case SqlTbl<T>::COLUMN_TYPE_UINT16:
        return 16;
    case SqlTbl<T>::COLUMN_TYPE_UINT32:
        return 32;
    default:
        return 64;
    }
}

template <class T>
content_t contentOf(SqlTbl<T> const& tbl, typename SqlTbl<T>::column_t const& column)
{
    if (column.sqlType == tbl.m_sqlPrimaryKey)
    {
        return content_t::KEY;
    }
    switch (column.type)
    {
    case SqlTbl<T>::COLUMN_TYPE_UINT64:
    case SqlTbl<T>::COLUMN_TYPE_UINT32:
    case SqlTbl<T>::COLUMN_TYPE_UINT16:
        return content_t::NUMBER;
    case SqlTbl<T>::COLUMN_TYPE_STRING:
        return content_t::TEXT;
    default:
        return content_t::STATUS;
    }
}

template <class T>
std::vector<std::string> statusWords(SqlTbl<T> const& tbl)
{
    std::vector<std::string> words;
    constexpr auto kNeither = static_cast<faultStatus_t>(2);
    for (faultStatus_t status : {FAULT_INACTIVE, FAULT_ACTIVE, kNeither})
    {
        words.push_back(tbl.convertValueToStr(SqlTbl<T>::COLUMN_TYPE_CUSTOM, &status));
    }
    return words;
}

template <class Table, class T>
tableFormat_t describe(firaim::historyTable_t table)
{
    Table tbl(Table::kTableName);
    tbl.init("");
    tableFormat_t format;
    format.table = table;
    format.name = Table::kTableName;
    format.createStatement = "CREATE TABLE \"" + format.name + "\" (";
    for (auto const& [id, column] : tbl.m_columns)
    {
        content_t const content = contentOf<T>(tbl, column);
        column_t described = {
            column.name, column.sqlType.substr(0, column.sqlType.find(' ')), content, bitsOf<T>(column.type), {}};
        if (content == content_t::STATUS)
        {
            described.words = statusWords<T>(tbl);
        }
        format.createStatement += (id == 0 ? "\"" : ",\"") + column.name + "\" " + column.sqlType;
        format.columns.push_back(std::move(described));
    }
    format.createStatement += ")";
    return format;
}

} // namespace

tableFormat_t const& faultFormat()
{
    static tableFormat_t const format = describe<FdbSqlFaultTbl, Fault>(historyTable_t::FAULTS);
    return format;
}

tableFormat_t const& statisticFormat()
{
    static tableFormat_t const format = describe<FdbSqlFaultStatisticTbl, FaultStatistic>(historyTable_t::STATISTICS);
    return format;
}

tableFormat_t const& versionFormat()
{
    static tableFormat_t const format = describe<FdbSqlVersionTbl, FdbVersion>(historyTable_t::VERSIONS);
    return format;
}

std::vector<tableFormat_t const*> const& allFormats()
{
    static std::vector<tableFormat_t const*> const formats = {&faultFormat(), &statisticFormat(), &versionFormat()};
    return formats;
}

} // namespace tool
