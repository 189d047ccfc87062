#include "RecorderWorkload.h"

#include <exception>

namespace
{

using namespace firaim;

/// A code with two triples, both active before the call.
constexpr std::uint64_t kCode = 7;
/// Prefix of the modules of the call's events.
constexpr char kOfCall[] = "call";

FaultEvent eventOf(std::uint64_t code, std::string const& module)
{
    FaultEvent event;
    event.code = code;
    event.module = module;
    event.parameter = "parameter";
    event.description = std::string(3000, 'd'); // A group of such events needs additional pages.
    event.codeName = "name";
    return event;
}

} // namespace

RecorderWorkload::RecorderWorkload(FaultPlan& plan, Call call, bool hasLog)
    : m_plan(plan), m_call(call), m_hasLog(hasLog)
{
    if (m_hasLog)
    {
        EXPECT_EQ(RawDb(m_path).value("PRAGMA journal_mode=WAL"), "wal");
    }
    for (unsigned int i = 0; i < 5; ++i)
    {
        m_events.push_back(eventOf(call == CLEAR_CODE || i % 2 == 0 ? kCode : 100 + i, kOfCall + std::to_string(i)));
    }
    m_receipts.reserve(m_events.size());
    if (call == OPEN_NEW)
    {
        return;
    }
    EXPECT_EQ(m_recorder.open(m_path), HISTORY_OK) << m_recorder.lastProblem();
    EXPECT_EQ(m_recorder.raise(eventOf(kCode, "a")).result, HISTORY_OK);
    EXPECT_EQ(m_recorder.raise(eventOf(kCode, "b")).result, HISTORY_OK);
    if (call == CLEAR)
    {
        EXPECT_EQ(m_recorder.raise(m_events.front()).result, HISTORY_OK);
    }
    if (call == END_CYCLE)
    {
        EXPECT_EQ(m_recorder.endCycle(), HISTORY_OK);
    }
    if (call == OPEN_OLD || call == OPEN_CRASHED)
    {
        EXPECT_EQ(m_recorder.close(), HISTORY_OK);
    }
    if (call == OPEN_CRASHED)
    {
        leaveHalfWritten();
    }
}

/// Restores the files as they were in the middle of a transaction: with a hot journal or with a log.
void RecorderWorkload::leaveHalfWritten()
{
    std::string const journalPath = m_path + (m_hasLog ? "-wal" : "-journal");
    std::string file;
    std::string journal;
    {
        RawDb raw(m_path);
        raw.exec("PRAGMA cache_size = 1; BEGIN; UPDATE FdbFaultTbl SET Status = 'ErrorInactive'; "
                 "UPDATE FdbFaultStatisticTbl SET OccurenceCnt = 99; INSERT INTO FdbFaultTbl(Description) WITH "
                 "RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c WHERE x < 50) SELECT hex(zeroblob(1000)) "
                 "FROM c");
        file = readFile(m_path);
        journal = readFile(journalPath);
        raw.exec("ROLLBACK");
    }
    writeFile(m_path, file);
    writeFile(journalPath, journal);
}

void RecorderWorkload::run()
{
    m_plan.resume();
    try
    {
        runCall();
    }
    catch (std::exception const& exception)
    {
        m_plan.pause();
        ADD_FAILURE() << "the recorder threw: " << exception.what();
        m_receipts.assign(1, {HISTORY_FAILED, 0});
    }
    m_plan.pause();
}

void RecorderWorkload::runCall()
{
    FaultEvent const& event = m_events.front();
    switch (m_call)
    {
    case OPEN_NEW:
    case OPEN_OLD:
    case OPEN_CRASHED:
        m_receipts.resize(1);
        m_receipts[0].result = m_recorder.open(m_path);
        break;
    case RECORD:
        m_receipts.push_back(m_recorder.record(event));
        break;
    case RAISE:
        m_receipts.push_back(m_recorder.raise(event));
        break;
    case CLEAR:
        m_receipts.push_back(m_recorder.clear(event));
        break;
    case RECORD_ALL:
        static_cast<void>(m_recorder.recordAll(m_events, m_receipts)); // The receipts hold the results.
        break;
    case CLEAR_CODE:
        m_receipts.resize(1);
        m_receipts[0].result = m_recorder.clearCode(event, m_keys);
        break;
    case END_CYCLE:
        m_receipts.resize(1);
        m_receipts[0].result = m_recorder.endCycle();
        break;
    case CALL_COUNT:
        break;
    }
}

unsigned long long RecorderWorkload::rowsOf(RawDb& raw, std::string const& module) const
{
    std::string const status = m_call == CLEAR ? "'ErrorInactive'" : "'ErrorActive'";
    return std::stoull(
        raw.value("SELECT count(*) FROM FdbFaultTbl WHERE ModuleName = '" + module + "' AND Status = " + status));
}

void RecorderWorkload::expectFileAsReported()
{
    if (m_call == OPEN_NEW)
    {
        RawDb raw(m_path);
        bool const isThere = raw.value("SELECT count(*) FROM sqlite_master") != "0";
        EXPECT_TRUE(isThere || m_receipts[0].result != HISTORY_OK);
        EXPECT_EQ(raw.value("SELECT count(*) FROM sqlite_master WHERE name LIKE 'Fdb%'"), isThere ? "3" : "0");
        return;
    }
    RawDb raw(m_path);
    EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
    for (std::size_t i = 0; i < m_receipts.size(); ++i)
    {
        Receipt const& receipt = m_receipts[i];
        SCOPED_TRACE("event " + std::to_string(i) + ", result " + std::to_string(receipt.result) + ": " +
                     m_recorder.lastProblem());
        unsigned long long stored = 0;
        unsigned long long whole = 1;
        switch (m_call)
        {
        case OPEN_OLD:
        case OPEN_CRASHED:
            continue;
        case CLEAR_CODE:
            stored = std::stoull(raw.value("SELECT count(*) FROM FdbFaultTbl WHERE Status = 'ErrorInactive'"));
            whole = 2;
            EXPECT_EQ(m_keys.size(), receipt.result == HISTORY_OK ? 2U : 0U);
            break;
        case END_CYCLE:
            stored = std::stoull(raw.value("SELECT FaultActiveCycleCnt FROM FdbFaultStatisticTbl")) - 2;
            break;
        default:
            stored = rowsOf(raw, kOfCall + std::to_string(i));
        }
        if (receipt.result == HISTORY_UNKNOWN)
        {
            EXPECT_TRUE(stored == 0 || stored == whole) << stored;
        }
        else
        {
            EXPECT_EQ(stored, receipt.result == HISTORY_OK ? whole : 0);
        }
        if (receipt.key != 0)
        {
            EXPECT_EQ(raw.value("SELECT ModuleName FROM FdbFaultTbl WHERE EntryId = " + std::to_string(receipt.key)),
                      kOfCall + std::to_string(i));
        }
        else
        {
            EXPECT_TRUE(receipt.result != HISTORY_OK || m_call == CLEAR_CODE || m_call == END_CYCLE);
        }
    }
    expectStatistics();
}

/// Expects statistics that agree with the rows: one is never stored without the other.
void RecorderWorkload::expectStatistics()
{
    RawDb raw(m_path);
    EXPECT_EQ(raw.rows("SELECT FaultCode, OccurenceCnt FROM FdbFaultStatisticTbl ORDER BY FaultCode"),
              raw.rows("SELECT FaultCode, sum(Status = 'ErrorActive') FROM FdbFaultTbl GROUP BY FaultCode "
                       "ORDER BY FaultCode"));
    EXPECT_EQ(raw.rows("SELECT FaultCode, FaultEntryId FROM FdbFaultStatisticTbl ORDER BY FaultCode"),
              raw.rows("SELECT FaultCode, max(EntryId) FROM FdbFaultTbl GROUP BY FaultCode ORDER BY FaultCode"));
}

void RecorderWorkload::expectWorksOn()
{
    if (m_call == OPEN_NEW || m_call == OPEN_OLD || m_call == OPEN_CRASHED)
    {
        int const expected = m_receipts[0].result == HISTORY_OK ? HISTORY_INVALID_STATE : HISTORY_OK;
        EXPECT_EQ(m_recorder.open(m_path), expected) << m_recorder.lastProblem();
    }
    FaultEvent const last = eventOf(kCode, "last");
    EXPECT_EQ(m_recorder.raise(last).result, HISTORY_OK) << m_recorder.lastProblem();
    EXPECT_EQ(m_recorder.raise(last).result, HISTORY_UNCHANGED);
    EXPECT_EQ(m_recorder.clear(last).result, HISTORY_OK) << m_recorder.lastProblem();
    EXPECT_EQ(m_recorder.endCycle(), HISTORY_OK) << m_recorder.lastProblem();
    std::vector<unsigned long long> keys;
    int const result = m_recorder.clearCode(last, keys);
    EXPECT_TRUE(result == HISTORY_OK || result == HISTORY_UNCHANGED) << m_recorder.lastProblem();
    RawDb raw(m_path);
    EXPECT_EQ(raw.value("SELECT FaultActive FROM FdbFaultStatisticTbl WHERE FaultCode = 7"), "inactive");
    EXPECT_EQ(raw.value("SELECT count(*) FROM FdbFaultTbl a WHERE FaultCode = 7 AND Status = 'ErrorActive' AND NOT "
                        "EXISTS(SELECT 1 FROM FdbFaultTbl b WHERE b.FaultCode = 7 AND b.ModuleName = a.ModuleName AND "
                        "b.EntryId > a.EntryId)"),
              "0");
    expectStatistics();
}

bool RecorderWorkload::isUnknown() const
{
    for (Receipt const& receipt : m_receipts)
    {
        if (receipt.result == HISTORY_UNKNOWN)
        {
            return true;
        }
    }
    return false;
}

bool RecorderWorkload::isDone() const
{
    for (Receipt const& receipt : m_receipts)
    {
        if (receipt.result != HISTORY_OK)
        {
            return false;
        }
    }
    return true;
}

char const* RecorderWorkload::name(Call call)
{
    static constexpr char const* kNames[] = {"open of a new file",
                                             "open of an old file",
                                             "open after a crash",
                                             "record",
                                             "raise",
                                             "clear",
                                             "recordAll",
                                             "clearCode",
                                             "endCycle"};
    static_assert(sizeof kNames / sizeof *kNames == CALL_COUNT, "one name for each call");
    return kNames[call];
}
