#include <fdb/tables/FdbSqlFaultTbl.h>

namespace
{

constexpr char kActive[] = "ErrorActive";
constexpr char kInactive[] = "ErrorInactive";

} // namespace

FdbSqlFaultTbl::~FdbSqlFaultTbl() = default;

void FdbSqlFaultTbl::init(std::string const&)
{
    if (!m_columns.empty())
    {
        return;
    }
    addColumn(0, "EntryId", COLUMN_TYPE_UINT64, &m_record.EntryId, m_sqlPrimaryKey);
    addColumn(1, "DateTimeString", COLUMN_TYPE_STRING, &m_record.DateTimeString, m_sqlVarchar);
    addColumn(2, "FaultCode", COLUMN_TYPE_UINT32, &m_record.FaultCode, m_sqlInteger);
    addColumn(3, "FaultCodeName", COLUMN_TYPE_STRING, &m_record.FaultCodeName, m_sqlVarchar);
    addColumn(4, "ModuleName", COLUMN_TYPE_STRING, &m_record.ModuleName, m_sqlVarchar);
    addColumn(5, "Parameter", COLUMN_TYPE_STRING, &m_record.Parameter, m_sqlVarchar);
    addColumn(6, "TimeStampUTC", COLUMN_TYPE_UINT64, &m_record.TimeStampUTC, m_sqlInteger);
    addColumn(7, "TimeZone", COLUMN_TYPE_STRING, &m_record.TimeZone, m_sqlVarchar);
    addColumn(8, "Status", COLUMN_TYPE_CUSTOM, &m_record.Status, m_sqlVarchar);
    addColumn(9, "Description", COLUMN_TYPE_STRING, &m_record.Description, m_sqlVarchar);
    addColumn(10, "DiagSignalsDumpFileName", COLUMN_TYPE_STRING, &m_record.DiagSignalsDumpFileName, m_sqlVarchar);
    addColumn(11, "LoggerUpTime", COLUMN_TYPE_UINT32, &m_record.LoggerUpTime, m_sqlInteger);
    addColumn(12, "LoggerLifeTime", COLUMN_TYPE_UINT32, &m_record.LoggerLifeTime, m_sqlInteger);
    addColumn(13, "CfgBackupFile", COLUMN_TYPE_STRING, &m_record.CfgBackupFile, m_sqlVarchar);
    addColumn(14, "RdbStartupId", COLUMN_TYPE_UINT32, &m_record.RdbStartupId, m_sqlInteger);
    addColumn(15, "SystemDateTimeString", COLUMN_TYPE_STRING, &m_record.SystemDateTimeString, m_sqlVarchar);
}

std::string FdbSqlFaultTbl::convertValueToStr(columnValueType_t type, void* value) const
{
    if (type != COLUMN_TYPE_CUSTOM)
    {
        return "null";
    }
    return *static_cast<faultStatus_t const*>(value) == FAULT_ACTIVE ? kActive : kInactive;
}

void FdbSqlFaultTbl::convertValueFromStr(columnValueType_t type, std::string const& text, void* value) const
{
    if (type == COLUMN_TYPE_CUSTOM)
    {
        *static_cast<faultStatus_t*>(value) = text == kActive ? FAULT_ACTIVE : FAULT_INACTIVE;
    }
}
