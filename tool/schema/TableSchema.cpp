#include <tool/schema/TableSchema.h>

#include <fdb/tables/FdbSqlVersionTbl.h>

#include <algorithm>

namespace tool
{

using firaim::HistoryTable;

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
ColumnKind kindOf(SqlTbl<T> const& tbl, typename SqlTbl<T>::column_t const& column)
{
    if (column.sqlType == tbl.m_sqlPrimaryKey)
    {
        return ColumnKind::KEY;
    }
    switch (column.type)
    {
    case SqlTbl<T>::COLUMN_TYPE_UINT64:
    case SqlTbl<T>::COLUMN_TYPE_UINT32:
    case SqlTbl<T>::COLUMN_TYPE_UINT16:
        return ColumnKind::NUMBER;
    case SqlTbl<T>::COLUMN_TYPE_STRING:
        return ColumnKind::TEXT;
    default:
        return ColumnKind::STATUS;
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
TableSchema describe(firaim::HistoryTable table)
{
    Table tbl(Table::kTableName);
    tbl.init("");
    TableSchema schema;
    schema.table = table;
    schema.name = Table::kTableName;
    schema.createStatement = "CREATE TABLE \"" + schema.name + "\" (";
    for (auto const& [id, column] : tbl.m_columns)
    {
        ColumnKind const kind = kindOf<T>(tbl, column);
        Column described = {
            column.name, column.sqlType.substr(0, column.sqlType.find(' ')), kind, bitsOf<T>(column.type), {}};
        if (kind == ColumnKind::STATUS)
        {
            described.words = statusWords<T>(tbl);
        }
        schema.createStatement += (id == 0 ? "\"" : ",\"") + column.name + "\" " + column.sqlType;
        schema.columns.push_back(std::move(described));
    }
    schema.createStatement += ")";
    return schema;
}

} // namespace

TableSchema const& faultSchema()
{
    static TableSchema const schema = describe<FdbSqlFaultTbl, Fault>(HistoryTable::FAULTS);
    return schema;
}

TableSchema const& statisticSchema()
{
    static TableSchema const schema = describe<FdbSqlFaultStatisticTbl, FaultStatistic>(HistoryTable::STATISTICS);
    return schema;
}

TableSchema const& versionSchema()
{
    static TableSchema const schema = describe<FdbSqlVersionTbl, FdbVersion>(HistoryTable::VERSIONS);
    return schema;
}

std::vector<TableSchema const*> const& allSchemas()
{
    static std::vector<TableSchema const*> const schemas = {&faultSchema(), &statisticSchema(), &versionSchema()};
    return schemas;
}

std::size_t positionOf(TableSchema const& schema, std::string const& column)
{
    auto const found = std::find_if(schema.columns.begin(), schema.columns.end(),
                                    [&](Column const& candidate) { return candidate.name == column; });
    return static_cast<std::size_t>(found - schema.columns.begin());
}

} // namespace tool
