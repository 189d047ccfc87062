#include <fdb/tables/FdbSqlVersionTbl.h>

FdbSqlVersionTbl::~FdbSqlVersionTbl() = default;

void FdbSqlVersionTbl::init(std::string const&)
{
    if (!m_columns.empty())
    {
        return;
    }
    addColumn(0, "VersionEntryId", COLUMN_TYPE_UINT16, &m_record.VersionEntryId, m_sqlPrimaryKey);
    addColumn(1, "Component", COLUMN_TYPE_STRING, &m_record.Component, m_sqlVarchar);
    addColumn(2, "Version", COLUMN_TYPE_STRING, &m_record.Version, m_sqlVarchar);
}
