#include "FaultRecorder.h"

#include "UtcTime.h"

#include <algorithm>
#include <limits>
#include <sstream>

namespace healthMonitor
{

namespace
{

/// Tells this program's faults from those of other programs that write to the same file.
constexpr char kModuleName[] = "health_monitor";
constexpr char kTimeZone[] = "UTC";

char const* resultText(int result)
{
    switch (result)
    {
    case RESULT_INVALID_STATE:
        return "not possible in this state";
    case RESULT_FAILED:
        return "failed";
    case RESULT_VERSION_MISMATCH:
        return "the file has another format version";
    default:
        return "unexpected result";
    }
}

void require(int result, std::string const& action)
{
    if (result < 0)
    {
        throw DatabaseError(action, result);
    }
}

/// The library takes a quote inside a text as a pair of them; a path or a text read back may hold single ones.
std::string quoted(std::string const& text)
{
    std::string result;
    for (char const c : text)
    {
        result.append(c == '\'' ? 2 : 1, c);
    }
    return result;
}

void countUp(unsigned short& count)
{
    if (count < std::numeric_limits<unsigned short>::max())
    {
        ++count;
    }
}

std::string nameOf(faultCode_t code)
{
    std::ostringstream name;
    name << code;
    return name.str();
}

void apply(Fault const& fault, FaultStatistic& statistic)
{
    statistic.FaultEntryId = fault.EntryId;
    if (fault.Status != FAULT_ACTIVE)
    {
        return;
    }
    if (statistic.OccurenceCnt == 0)
    {
        statistic.TimeFirstOccurredUTC = fault.TimeStampUTC;
        statistic.TimeZoneFirstOccurred = fault.TimeZone;
    }
    statistic.TimeLastOccurredUTC = fault.TimeStampUTC;
    statistic.TimeZoneLastOccurred = fault.TimeZone;
    countUp(statistic.OccurenceCnt);
}

} // namespace

DatabaseError::DatabaseError(std::string const& action, int result)
    : std::runtime_error("cannot " + action + ": " + resultText(result) + " (" + std::to_string(result) + ")")
{
}

void openOrCreate(FaultDb& db, std::string const& path)
{
    int const created = db.createDb(path, false);
    if (created != RESULT_FILE_EXISTS)
    {
        require(created, "create the database file '" + path + "', or open an existing one for writing");
    }
    int const opened = db.openDb(path, false);
    if (opened == RESULT_FAILED)
    {
        // A file whose creation was cut short looks the same. It is never overwritten here: it may as well be
        // somebody's file, named by mistake.
        throw DatabaseError("open '" + path + "', which is locked or is no whole fault database and is left as it is",
                            opened);
    }
    require(opened, "open the database file '" + path + "'");
}

FaultRecorder::FaultRecorder(FaultDb& db) : m_db(db), m_startupId(nextStartupId())
{
    loadActiveFaults();
    catchUpStatistics();
}

unsigned int FaultRecorder::nextStartupId()
{
    FaultTbl faults;
    require(m_db.getFaultTbl("SELECT * FROM FdbFaultTbl ORDER BY RdbStartupId DESC LIMIT 1", faults),
            "read the last start-up id of the faults");
    FaultStatisticTbl statistics;
    require(
        m_db.getFaultStatisticTbl("SELECT * FROM FdbFaultStatisticTbl ORDER BY RdbStartupId DESC LIMIT 1", statistics),
        "read the last start-up id of the statistics");
    unsigned int last = 0;
    if (!faults.empty())
    {
        last = faults.front().RdbStartupId;
    }
    if (!statistics.empty())
    {
        last = std::max(last, statistics.front().RdbStartupId);
    }
    if (last == std::numeric_limits<unsigned int>::max())
    {
        throw std::runtime_error("the file's start-up ids are used up");
    }
    return last + 1;
}

void FaultRecorder::loadActiveFaults()
{
    FaultTbl latest;
    require(m_db.getFaultTbl(std::string("SELECT * FROM FdbFaultTbl WHERE EntryId IN (SELECT MAX(EntryId) FROM "
                                         "FdbFaultTbl WHERE ModuleName='") +
                                 kModuleName + "' GROUP BY FaultCode, Parameter)",
                             latest),
            "read the faults left active by an earlier run");
    for (Fault const& fault : latest)
    {
        if (fault.Status == FAULT_ACTIVE)
        {
            m_activeFaults[{fault.FaultCode, fault.Parameter}] = true;
        }
    }
}

/// A fault and its statistic are two writes, and a power cut may fall in between. The fault is written first and the
/// statistic names the last fault counted, so what is missing can be counted afterwards.
void FaultRecorder::catchUpStatistics()
{
    FaultTbl uncounted;
    require(m_db.getFaultTbl(std::string("SELECT * FROM FdbFaultTbl WHERE ModuleName='") + kModuleName +
                                 "' AND EntryId > COALESCE((SELECT MAX(FaultEntryId) FROM FdbFaultStatisticTbl "
                                 "WHERE FdbFaultStatisticTbl.FaultCode = FdbFaultTbl.FaultCode), 0) ORDER BY EntryId",
                             uncounted),
            "read the faults not counted yet");
    std::map<faultCode_t, Cycle> cycles;
    for (Fault const& fault : uncounted)
    {
        cycles[fault.FaultCode].faults.push_back(fault);
    }
    for (auto const& [code, cycle] : cycles)
    {
        updateStatistic(code, cycle);
    }
}

std::vector<Fault> FaultRecorder::record(Sample const& sample, std::vector<Finding> const& findings)
{
    std::vector<Fault> recorded;
    std::map<faultCode_t, Cycle> cycles;
    for (Finding const& finding : findings)
    {
        Cycle& cycle = cycles[finding.code];
        cycle.isActive = cycle.isActive || finding.isCrossed;
        std::string remark;
        if (takeTransition(finding, remark))
        {
            cycle.faults.push_back(insertFault(sample, finding, remark));
            recorded.push_back(cycle.faults.back());
        }
    }
    for (auto const& [code, cycle] : cycles)
    {
        // Written in every active cycle and not once at the end, so that a power cut loses one cycle at most; a device
        // with a delicate storage samples less often.
        if (cycle.isActive || !cycle.faults.empty())
        {
            updateStatistic(code, cycle);
        }
    }
    return recorded;
}

/// Notes the state of `finding`; returns whether that is to be recorded, and sets what is to be said about it.
bool FaultRecorder::takeTransition(Finding const& finding, std::string& remark)
{
    Key const key(finding.code, finding.parameter);
    auto const active = m_activeFaults.find(key);
    bool const wasActive = active != m_activeFaults.end();
    bool const isFromEarlierRun = wasActive && active->second;
    if (wasActive == finding.isCrossed && !isFromEarlierRun)
    {
        return false;
    }
    if (finding.isCrossed)
    {
        m_activeFaults[key] = false;
        remark = isFromEarlierRun ? " (was active when an earlier run ended)" : "";
    }
    else
    {
        m_activeFaults.erase(active);
        remark = isFromEarlierRun ? " (cleared while not watched)" : "";
    }
    return true;
}

Fault FaultRecorder::insertFault(Sample const& sample, Finding const& finding, std::string const& remark)
{
    Fault fault;
    fault.TimeStampUTC = sample.utcMilliseconds;
    fault.DateTimeString = utcText(sample.utcMilliseconds);
    // The same: there is no clock here but the system's.
    fault.SystemDateTimeString = fault.DateTimeString;
    fault.TimeZone = kTimeZone;
    fault.FaultCode = finding.code;
    fault.FaultCodeName = nameOf(finding.code);
    fault.ModuleName = kModuleName;
    fault.Parameter = finding.parameter;
    fault.Status = finding.isCrossed ? FAULT_ACTIVE : FAULT_INACTIVE;
    fault.Description = finding.description + remark;
    fault.LoggerUpTime = sample.upTimeSeconds;
    fault.RdbStartupId = m_startupId;

    Fault stored = fault;
    stored.Parameter = quoted(fault.Parameter);
    stored.Description = quoted(fault.Description);
    require(m_db.insert(stored), "record the fault " + fault.FaultCodeName);
    fault.EntryId = stored.EntryId;
    return fault;
}

void FaultRecorder::updateStatistic(faultCode_t code, Cycle const& cycle)
{
    std::string const name = nameOf(code);
    // Not getFaultStatisticForFC: it does not tell a missing row, which is to be inserted, from a failed query.
    FaultStatisticTbl found;
    require(m_db.getFaultStatisticTbl("SELECT * FROM FdbFaultStatisticTbl WHERE FaultCode=" +
                                          std::to_string(static_cast<unsigned int>(code)) + " LIMIT 1",
                                      found),
            "read the statistic of " + name);
    FaultStatistic statistic;
    if (!found.empty())
    {
        statistic = found.front();
    }
    statistic.FaultCode = code;
    statistic.FaultCodeName = name;
    for (Fault const& fault : cycle.faults)
    {
        apply(fault, statistic);
    }
    if (cycle.isActive)
    {
        countUp(statistic.FaultActiveCycleCnt);
    }
    statistic.FaultActive = isActive(code) ? FAULT_ACTIVE : FAULT_INACTIVE;
    statistic.RdbStartupId = m_startupId;
    statistic.TimeZoneFirstOccurred = quoted(statistic.TimeZoneFirstOccurred);
    statistic.TimeZoneLastOccurred = quoted(statistic.TimeZoneLastOccurred);
    require(found.empty() ? m_db.insert(statistic) : m_db.update(statistic), "write the statistic of " + name);
}

bool FaultRecorder::isActive(faultCode_t code) const
{
    auto const first = m_activeFaults.lower_bound({code, std::string()});
    return first != m_activeFaults.end() && first->first.first == code;
}

} // namespace healthMonitor
