#include "OperationScript.h"

namespace
{

constexpr unsigned int kFaultCodes = 12;
constexpr unsigned int kStartupIds = 4;

} // namespace

Operation OperationScript::next()
{
    Operation operation;
    operation.fault = fault();
    operation.statistic = statistic();
    operation.newId = below(kStartupIds);
    operation.oldId = below(kStartupIds);
    unsigned int const choice = below(20);
    if (choice < 9)
    {
        operation.kind = Operation::INSERT_FAULT;
        ++m_faultCount;
    }
    else if (choice < 13)
    {
        operation.kind = Operation::UPDATE_FAULT;
    }
    else if (choice < 15)
    {
        operation.kind = Operation::INSERT_STATISTIC;
    }
    else
    {
        operation.kind = choice < 19 ? Operation::UPDATE_STATISTIC : Operation::MOVE;
    }
    return operation;
}

/// A random text: some are empty, some have quotes, and some are longer than a page.
std::string OperationScript::text()
{
    switch (below(12))
    {
    case 0:
        return "";
    case 1:
        return "it''s";
    case 2:
        return std::string(below(12000), static_cast<char>('a' + below(26)));
    default:
        return "text " + std::to_string(m_random());
    }
}

Fault OperationScript::fault()
{
    Fault fault;
    fault.EntryId = 1 + m_random() % (m_faultCount + 1); // Sometimes a key without a row.
    fault.DateTimeString = text();
    fault.FaultCode = static_cast<faultCode_t>(m_random());
    fault.FaultCodeName = "name";
    fault.Parameter = "parameter";
    fault.TimeStampUTC = m_random();
    fault.Status = below(2) == 0 ? FAULT_INACTIVE : FAULT_ACTIVE;
    fault.Description = text();
    fault.DiagSignalsDumpFileName = "dump";
    fault.ModuleName = "module";
    fault.TimeZone = "zone";
    fault.LoggerUpTime = static_cast<unsigned int>(m_random());
    fault.LoggerLifeTime = static_cast<unsigned int>(m_random());
    fault.CfgBackupFile = "backup";
    fault.RdbStartupId = below(kStartupIds);
    fault.SystemDateTimeString = "date";
    return fault;
}

FaultStatistic OperationScript::statistic()
{
    FaultStatistic statistic;
    statistic.FaultCode = static_cast<faultCode_t>(below(kFaultCodes));
    statistic.FaultCodeName = text();
    statistic.OccurenceCnt = static_cast<unsigned short>(m_random());
    statistic.TimeFirstOccurredUTC = m_random();
    statistic.TimeLastOccurredUTC = m_random();
    statistic.FaultActive = below(2) == 0 ? FAULT_INACTIVE : FAULT_ACTIVE;
    statistic.TimeZoneFirstOccurred = "first";
    statistic.TimeZoneLastOccurred = "last";
    statistic.FaultActiveCycleCnt = static_cast<unsigned short>(m_random());
    statistic.FaultEntryId = m_random();
    statistic.RdbStartupId = below(kStartupIds);
    return statistic;
}
