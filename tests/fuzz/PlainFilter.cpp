#include "PlainFilter.h"

#include <history/TimeStamp.h>

#include <algorithm>
#include <locale>
#include <optional>
#include <sstream>
#include <string>

using namespace firaim;

namespace
{

std::string decodedText(std::optional<std::string> const& cell)
{
    return cell ? cell->substr(0, cell->find('\0')) : "n/a";
}

template <class Integer>
Integer decodedNumber(std::optional<std::string> const& cell)
{
    std::istringstream stream(cell ? decodedText(cell) : "0");
    stream.imbue(std::locale::classic());
    Integer value = 0;
    return stream >> value ? value : 0;
}

std::string lowered(std::string text)
{
    for (char& letter : text)
    {
        letter = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + ('a' - 'A')) : letter;
    }
    return text;
}

template <class Value>
bool isAmong(std::vector<Value> const& values, Value const& value)
{
    return values.empty() || std::count(values.begin(), values.end(), value) > 0;
}

bool isWanted(FaultQuery const& query, std::int64_t rowKey, Fault const& fault)
{
    if ((query.afterKey && rowKey <= *query.afterKey) || (query.beforeKey && rowKey >= *query.beforeKey) ||
        (query.isActiveOnly && fault.Status != FAULT_ACTIVE))
    {
        return false;
    }
    auto const stamp = timeOf(fault.TimeStampUTC, query.timeUnit);
    if ((query.since && (!stamp || *stamp < *query.since)) || (query.until && (!stamp || *stamp >= *query.until)))
    {
        return false;
    }
    bool isMentioned = !query.text;
    for (std::string const* const text : {&fault.Description, &fault.Parameter, &fault.ModuleName, &fault.FaultCodeName,
                                          &fault.DiagSignalsDumpFileName, &fault.CfgBackupFile})
    {
        isMentioned = isMentioned || lowered(*text).find(lowered(*query.text)) != std::string::npos;
    }
    return isMentioned && isAmong(query.codes, static_cast<std::uint32_t>(fault.FaultCode)) &&
           isAmong(query.modules, fault.ModuleName) && isAmong(query.startups, fault.RdbStartupId);
}

} // namespace

Fault decoded(fuzz::Cells const& cells)
{
    Fault fault;
    fault.EntryId = decodedNumber<unsigned long long>(cells[0]);
    fault.DateTimeString = decodedText(cells[1]);
    fault.FaultCode = static_cast<faultCode_t>(decodedNumber<unsigned int>(cells[2]));
    fault.FaultCodeName = decodedText(cells[3]);
    fault.ModuleName = decodedText(cells[4]);
    fault.Parameter = decodedText(cells[5]);
    fault.TimeStampUTC = decodedNumber<unsigned long long>(cells[6]);
    fault.TimeZone = decodedText(cells[7]);
    fault.Status = decodedText(cells[8]) == "ErrorActive" ? FAULT_ACTIVE : FAULT_INACTIVE;
    fault.Description = decodedText(cells[9]);
    fault.DiagSignalsDumpFileName = decodedText(cells[10]);
    fault.LoggerUpTime = decodedNumber<unsigned int>(cells[11]);
    fault.LoggerLifeTime = decodedNumber<unsigned int>(cells[12]);
    fault.CfgBackupFile = decodedText(cells[13]);
    fault.RdbStartupId = decodedNumber<unsigned int>(cells[14]);
    fault.SystemDateTimeString = decodedText(cells[15]);
    return fault;
}

bool areSame(Fault const& a, Fault const& b)
{
    return a.EntryId == b.EntryId && a.DateTimeString == b.DateTimeString && a.FaultCode == b.FaultCode &&
           a.FaultCodeName == b.FaultCodeName && a.ModuleName == b.ModuleName && a.Parameter == b.Parameter &&
           a.TimeStampUTC == b.TimeStampUTC && a.TimeZone == b.TimeZone && a.Status == b.Status &&
           a.Description == b.Description && a.DiagSignalsDumpFileName == b.DiagSignalsDumpFileName &&
           a.LoggerUpTime == b.LoggerUpTime && a.LoggerLifeTime == b.LoggerLifeTime &&
           a.CfgBackupFile == b.CfgBackupFile && a.RdbStartupId == b.RdbStartupId &&
           a.SystemDateTimeString == b.SystemDateTimeString;
}

std::vector<Found> filtered(std::map<std::int64_t, Fault> const& faults, FaultQuery const& query)
{
    std::vector<Found> found;
    for (auto const& [rowKey, fault] : faults)
    {
        if (isWanted(query, rowKey, fault))
        {
            found.push_back({rowKey, fault});
        }
    }
    if (query.order == FaultQuery::NEWEST_FIRST)
    {
        std::reverse(found.begin(), found.end());
    }
    if (query.limit && *query.limit < found.size())
    {
        found.erase(found.begin() + static_cast<std::ptrdiff_t>(*query.limit), found.end());
    }
    return found;
}
