#include <fdb/tables/FdbSqlFaultStatisticTbl.h>

namespace
{

constexpr char kInactiveText[] = "inactive";

} // namespace

FdbSqlFaultStatisticTbl::~FdbSqlFaultStatisticTbl() = default;

void FdbSqlFaultStatisticTbl::init(std::string const&)
{
    if (!m_columns.empty())
    {
        return;
    }
    addColumn(0, "EntryId", COLUMN_TYPE_UINT64, &m_record.EntryId, m_sqlPrimaryKey);
    addColumn(1, "FaultCode", COLUMN_TYPE_UINT32, &m_record.FaultCode, m_sqlInteger);
    addColumn(2, "FaultCodeName", COLUMN_TYPE_STRING, &m_record.FaultCodeName, m_sqlVarchar);
    addColumn(3, "TimeFirstOccurredUTC", COLUMN_TYPE_UINT64, &m_record.TimeFirstOccurredUTC, m_sqlInteger);
    addColumn(4, "TimeLastOccurredUTC", COLUMN_TYPE_UINT64, &m_record.TimeLastOccurredUTC, m_sqlInteger);
    addColumn(5, "TimeZoneFirstOccurred", COLUMN_TYPE_STRING, &m_record.TimeZoneFirstOccurred, m_sqlVarchar);
    addColumn(6, "TimeZoneLastOccurred", COLUMN_TYPE_STRING, &m_record.TimeZoneLastOccurred, m_sqlVarchar);
    addColumn(7, "OccurenceCnt", COLUMN_TYPE_UINT16, &m_record.OccurenceCnt, m_sqlInteger);
    addColumn(8, "FaultActive", COLUMN_TYPE_CUSTOM, &m_record.FaultActive, m_sqlVarchar);
    addColumn(9, "FaultActiveCycleCnt", COLUMN_TYPE_UINT16, &m_record.FaultActiveCycleCnt, m_sqlInteger);
    addColumn(10, "FaultEntryId", COLUMN_TYPE_UINT64, &m_record.FaultEntryId, m_sqlInteger);
    addColumn(11, "RdbStartupId", COLUMN_TYPE_UINT32, &m_record.RdbStartupId, m_sqlInteger);
}

std::string FdbSqlFaultStatisticTbl::convertValueToStr(columnValueType_t type, void* value) const
{
    if (type != COLUMN_TYPE_CUSTOM)
    {
        return "null";
    }
    switch (*static_cast<faultStatus_t const*>(value))
    {
    case FAULT_INACTIVE:
        return kInactiveText;
    case FAULT_ACTIVE:
        return kActiveText;
    }
    return {};
}

void FdbSqlFaultStatisticTbl::convertValueFromStr(columnValueType_t type, std::string const& text, void* value) const
{
    if (type == COLUMN_TYPE_CUSTOM)
    {
        *static_cast<faultStatus_t*>(value) = text == kActiveText ? FAULT_ACTIVE : FAULT_INACTIVE;
    }
}
