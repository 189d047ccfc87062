#include "EventModel.h"

#include "FuzzSupport.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <sstream>

using namespace firaim;

unsigned long long EventModel::activeKey(Triple const& triple) const
{
    auto const found = m_active.find(triple);
    return found != m_active.end() ? found->second : 0;
}

std::vector<Triple> EventModel::activeTriples(std::uint32_t code) const
{
    std::vector<Triple> triples;
    for (auto const& [triple, key] : m_active)
    {
        if (std::get<0>(triple) == code)
        {
            triples.push_back(triple);
        }
    }
    return triples;
}

bool EventModel::isCodeActive(std::uint32_t code) const
{
    return !activeTriples(code).empty();
}

/// Models the opening of a recorder on the present content.
void EventModel::begin(RecorderOptions const& options)
{
    m_options = options;
    m_countedInCycle.clear();
    m_startupId = m_rows.empty() ? 0 : m_rows.back().fault.RdbStartupId;
    for (auto const& [code, statistic] : m_statistics)
    {
        m_startupId = std::max(m_startupId, statistic.record.RdbStartupId);
    }
    bool const isNext = options.startup == RecorderOptions::NEXT_STARTUP;
    m_startupId += isNext && m_startupId < std::numeric_limits<unsigned int>::max() ? 1 : 0;
    m_startupId = options.startup == RecorderOptions::GIVEN_STARTUP ? options.startupId : m_startupId;
    m_unit = options.timeUnit;
    if (m_unit == TimeUnit::GUESSED)
    {
        m_unit = m_stamps.empty() ? TimeUnit::MILLISECONDS : unitOf(m_stamps.back());
    }
}

std::string EventModel::codeName(FaultEvent const& event) const
{
    if (event.codeName)
    {
        return *event.codeName;
    }
    std::ostringstream builtIn;
    builtIn << static_cast<faultCode_t>(event.code);
    bool const isNamed = builtIn.str().rfind("UNKNOWN_FAULT_CODE(", 0) != 0;
    auto const found = m_statistics.find(static_cast<std::uint32_t>(event.code));
    std::string const known = found != m_statistics.end() ? found->second.record.FaultCodeName : "";
    // A missing text is read as "n/a".
    return isNamed || known.empty() || known == "n/a" ? builtIn.str() : known;
}

void EventModel::write(FaultEvent const& event, faultStatus_t status)
{
    auto const code = static_cast<std::uint32_t>(event.code);
    bool const isActive = status == FAULT_ACTIVE;
    Row& row = m_rows.emplace_back();
    row.event = event;
    row.unit = m_unit;
    Fault& fault = row.fault;
    fault.EntryId = m_rows.size();
    fault.FaultCode = static_cast<faultCode_t>(code);
    fault.FaultCodeName = codeName(event);
    fault.ModuleName = event.module;
    fault.Parameter = event.parameter;
    fault.TimeStampUTC = event.time.value_or(0);
    fault.TimeZone = event.timeZone.value_or(m_options.timeZone);
    fault.Status = isActive ? FAULT_ACTIVE : FAULT_INACTIVE;
    fault.Description = event.description;
    fault.DiagSignalsDumpFileName = event.signalsFile;
    fault.LoggerUpTime = event.upTime.value_or(0);
    fault.LoggerLifeTime = event.lifeTime.value_or(0);
    fault.CfgBackupFile = event.configBackup;
    fault.RdbStartupId = event.startupId.value_or(m_startupId);

    Triple const triple(code, event.module, event.parameter);
    m_active.erase(triple);
    if (isActive)
    {
        m_active[triple] = fault.EntryId;
    }

    if (m_statistics.count(code) == 0)
    {
        m_codes.push_back(code);
    }
    Statistic& statistic = m_statistics[code];
    FaultStatistic& record = statistic.record;
    record.FaultCode = fault.FaultCode;
    record.FaultCodeName = fault.FaultCodeName;
    if (isActive)
    {
        if (record.OccurenceCnt == 0)
        {
            statistic.firstKey = fault.EntryId;
            record.TimeZoneFirstOccurred = fault.TimeZone;
        }
        statistic.lastKey = fault.EntryId;
        record.TimeZoneLastOccurred = fault.TimeZone;
        ++record.OccurenceCnt;
        ++record.FaultActiveCycleCnt;
        m_countedInCycle.insert(code);
    }
    record.FaultActive = isCodeActive(code) ? FAULT_ACTIVE : FAULT_INACTIVE;
    record.FaultEntryId = fault.EntryId;
    record.RdbStartupId = fault.RdbStartupId;
}

void EventModel::date(std::size_t first, Moments const& moments, std::pair<unsigned int, unsigned int> upTimes)
{
    for (std::size_t i = first; i < m_rows.size(); ++i)
    {
        m_rows[i].moments = moments;
        m_rows[i].upTimes = upTimes;
    }
}

void EventModel::endCycle()
{
    for (auto& [code, statistic] : m_statistics)
    {
        bool const isFurther = statistic.record.FaultActive == FAULT_ACTIVE && m_countedInCycle.count(code) == 0;
        statistic.record.FaultActiveCycleCnt =
            static_cast<unsigned short>(statistic.record.FaultActiveCycleCnt + (isFurther ? 1 : 0));
    }
    m_countedInCycle.clear();
}

void EventModel::requireRow(Row const& row, Fault const& read) const
{
    Fault const& own = row.fault;
    FaultEvent const& event = row.event;
    fuzz::require(read.EntryId == own.EntryId, "the key is the row's");
    fuzz::require(read.FaultCode == own.FaultCode && read.FaultCodeName == own.FaultCodeName, "the code is read back");
    fuzz::require(read.ModuleName == own.ModuleName && read.Parameter == own.Parameter, "the source is read back");
    fuzz::require(read.TimeZone == own.TimeZone && read.Status == own.Status, "time zone and status are read back");
    fuzz::require(read.Description == own.Description && read.DiagSignalsDumpFileName == own.DiagSignalsDumpFileName &&
                      read.CfgBackupFile == own.CfgBackupFile,
                  "the texts are read back");
    fuzz::require(read.LoggerLifeTime == own.LoggerLifeTime && read.RdbStartupId == own.RdbStartupId,
                  "life time and start-up are read back");
    unsigned int const firstUpTime = event.upTime.value_or(row.upTimes.first);
    unsigned int const lastUpTime = event.upTime.value_or(row.upTimes.second);
    fuzz::require(read.LoggerUpTime >= firstUpTime && read.LoggerUpTime <= lastUpTime, "the up-time is the machine's");
    unsigned long long const firstStamp = event.time.value_or(stampOf(row.moments.begin, row.unit).value_or(0));
    unsigned long long const lastStamp = event.time.value_or(stampOf(row.moments.end, row.unit).value_or(0));
    fuzz::require(read.TimeStampUTC >= firstStamp && read.TimeStampUTC <= lastStamp, "the stamp is of the call");
    std::optional<std::int64_t> const time = timeOf(read.TimeStampUTC, row.unit);
    fuzz::require(read.DateTimeString == event.dateTimeText.value_or(time ? utcText(*time) : ""),
                  "the date is that of the stamp");
    // Texts of this form sort like their times for years of four digits.
    fuzz::require(event.systemTimeText ? read.SystemDateTimeString == *event.systemTimeText
                                       : read.SystemDateTimeString >= utcText(row.moments.begin) &&
                                             read.SystemDateTimeString <= utcText(row.moments.end),
                  "the system time is that of the call");
}

void EventModel::requireStatistic(Statistic const& statistic, FaultStatistic const& read) const
{
    FaultStatistic const& own = statistic.record;
    fuzz::require(read.FaultCode == own.FaultCode && read.FaultCodeName == own.FaultCodeName,
                  "the statistic has the code and its name");
    fuzz::require(read.OccurenceCnt == own.OccurenceCnt, "the occurrences are the model's");
    fuzz::require(read.FaultActiveCycleCnt == own.FaultActiveCycleCnt, "the cycles are the model's");
    fuzz::require(read.FaultActive == own.FaultActive, "the code is active where the model's is");
    fuzz::require(read.FaultEntryId == own.FaultEntryId && read.RdbStartupId == own.RdbStartupId,
                  "the statistic refers to the newest row of the code");
    fuzz::require(read.TimeZoneFirstOccurred == own.TimeZoneFirstOccurred &&
                      read.TimeZoneLastOccurred == own.TimeZoneLastOccurred,
                  "the time zones are those of the occurrences");
    auto const stampOfKey = [this](unsigned long long key) { return key == 0 ? 0 : m_stamps[key - 1]; };
    fuzz::require(read.TimeFirstOccurredUTC == stampOfKey(statistic.firstKey) &&
                      read.TimeLastOccurredUTC == stampOfKey(statistic.lastKey),
                  "the times are those of the occurrences");
}

void EventModel::requireContent(FaultReader& reader)
{
    FaultQuery query;
    query.order = FaultQuery::OLDEST_FIRST;
    FaultCursor cursor = reader.faults(query);
    m_stamps.clear();
    Fault fault;
    for (Row const& row : m_rows)
    {
        fuzz::require(cursor.next(fault) == HISTORY_OK, "no row is missing");
        requireRow(row, fault);
        m_stamps.push_back(fault.TimeStampUTC);
    }
    fuzz::require(cursor.next(fault) == HISTORY_END, "nothing else was written");

    std::vector<FaultStatistic> statistics;
    fuzz::require(reader.statistics(statistics) == HISTORY_OK, "the statistics are read");
    fuzz::require(statistics.size() == m_codes.size(), "there is one statistic for each code");
    for (FaultStatistic const& read : statistics)
    {
        auto const found = m_statistics.find(static_cast<std::uint32_t>(read.FaultCode));
        fuzz::require(found != m_statistics.end(), "a statistic is of a code that was recorded");
        requireStatistic(found->second, read);
    }

    std::vector<Fault> active;
    fuzz::require(reader.activeNow(active) == HISTORY_OK, "the active faults are read");
    std::set<unsigned long long> keys;
    for (auto const& [triple, key] : m_active)
    {
        keys.insert(key);
    }
    fuzz::require(active.size() == keys.size() &&
                      std::equal(active.begin(), active.end(), keys.begin(),
                                 [](Fault const& read, unsigned long long key) { return read.EntryId == key; }),
                  "the active faults are the model's");
}
