#include "StoredCells.h"

std::optional<std::string> stored(std::string_view text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        result += text[i];
        if (text[i] == '\0')
        {
            return std::nullopt;
        }
        if (text[i] == '\'')
        {
            ++i;
            if (i == text.size() || text[i] != '\'')
            {
                return std::nullopt;
            }
        }
    }
    return result;
}

fuzz::Cells cellsOf(Fault const& f, std::size_t key)
{
    return {std::to_string(key),
            f.DateTimeString,
            std::to_string(static_cast<unsigned int>(f.FaultCode)),
            f.FaultCodeName,
            f.ModuleName,
            f.Parameter,
            std::to_string(f.TimeStampUTC),
            f.TimeZone,
            f.Status == FAULT_ACTIVE ? "ErrorActive" : "ErrorInactive",
            f.Description,
            f.DiagSignalsDumpFileName,
            std::to_string(f.LoggerUpTime),
            std::to_string(f.LoggerLifeTime),
            f.CfgBackupFile,
            std::to_string(f.RdbStartupId),
            f.SystemDateTimeString};
}

fuzz::Cells cellsOf(FaultStatistic const& s, std::size_t key)
{
    return {std::to_string(key),
            std::to_string(static_cast<unsigned int>(s.FaultCode)),
            s.FaultCodeName,
            std::to_string(s.TimeFirstOccurredUTC),
            std::to_string(s.TimeLastOccurredUTC),
            s.TimeZoneFirstOccurred,
            s.TimeZoneLastOccurred,
            std::to_string(s.OccurenceCnt),
            s.FaultActive == FAULT_ACTIVE ? "active" : "inactive",
            std::to_string(s.FaultActiveCycleCnt),
            std::to_string(s.FaultEntryId),
            std::to_string(s.RdbStartupId)};
}
