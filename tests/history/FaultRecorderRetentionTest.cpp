// Retention: the rows that are removed, the rows that are kept, and pruning that fails while recording.

#include "RecorderFixtures.h"

#include <optional>

#include <sys/stat.h>

namespace
{

using namespace firaim;
using namespace std::chrono_literals;

class FaultRecorderRetentionTest : public FaultRecorderTest
{
protected:
    static RecorderOptions keeping(std::uint64_t count)
    {
        RecorderOptions options;
        options.keepNewest = count;
        return options;
    }

    static FaultEvent inactive(std::uint64_t code, std::string const& module = "module")
    {
        return eventOf(code, module, "parameter", FAULT_INACTIVE);
    }

    void record(FaultEvent const& event, int times = 1)
    {
        for (int i = 0; i < times; ++i)
        {
            ASSERT_EQ(recorder.record(event).result, HISTORY_OK) << recorder.lastProblem();
        }
    }

    void addOldRows(int count) const
    {
        exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(count) +
             ") INSERT INTO FdbFaultTbl(FaultCode, ModuleName, Parameter, Status) SELECT 7, 'old', 'old', "
             "'ErrorInactive' FROM n");
    }

    std::string keys() const { return value("SELECT group_concat(EntryId) FROM FdbFaultTbl"); }
    std::uint64_t count() const { return std::stoull(value(kCountOfFaults)); }
};

TEST_F(FaultRecorderRetentionTest, EveryRowIsKeptByDefault)
{
    open();
    record(inactive(1), 100);
    EXPECT_EQ(value(kCountOfFaults), "100");
    EXPECT_EQ(recorder.counters().pruned, 0U);
}

TEST_F(FaultRecorderRetentionTest, NewestKeysAreKeptAndTheOldestRemoved)
{
    open(keeping(3));
    for (char const* const expected : {"1", "1,2", "1,2,3", "2,3,4", "3,4,5", "4,5,6"})
    {
        record(inactive(1));
        EXPECT_EQ(keys(), expected);
    }
    EXPECT_EQ(recorder.counters().pruned, 3U);
    EXPECT_EQ(statistic(1, "FaultEntryId"), "6");
}

TEST_F(FaultRecorderRetentionTest, RowsAreKeptByTheDistanceOfKeysNotByTheirNumber)
{
    open(keeping(10));
    record(inactive(1), 5);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId BETWEEN 2 AND 4");
    record(inactive(1), 6);
    EXPECT_EQ(keys(), "5,6,7,8,9,10,11");
}

TEST_F(FaultRecorderRetentionTest, KeysAreNeverUsedAgain)
{
    open(keeping(1));
    record(inactive(1), 20);
    EXPECT_EQ(keys(), "20");
    ASSERT_EQ(recorder.close(), HISTORY_OK);
    open(keeping(1));
    EXPECT_EQ(recorder.record(inactive(1)).key, 21U);
    EXPECT_EQ(keys(), "21");
}

TEST_F(FaultRecorderRetentionTest, NewestRowOfEachActiveTripleStaysUntilItIsCleared)
{
    open(keeping(2));
    ASSERT_EQ(recorder.raise(eventOf(1, "a")).key, 1U);
    ASSERT_EQ(recorder.raise(eventOf(1, "b")).key, 2U);
    ASSERT_EQ(recorder.raise(eventOf(2, "a")).key, 3U);
    record(inactive(9), 30);
    EXPECT_EQ(keys(), "1,2,3,32,33");
    EXPECT_EQ(recorder.raise(eventOf(1, "a")).result, HISTORY_UNCHANGED);
    ASSERT_EQ(recorder.clear(eventOf(1, "b")).key, 34U);
    EXPECT_EQ(keys(), "1,3,33,34") << "the row is no longer needed";
    record(eventOf(2, "a"));
    EXPECT_EQ(keys(), "1,34,35") << "a newer row of the triple takes its place";
}

TEST_F(FaultRecorderRetentionTest, RowThatAnActiveStatisticRefersToStays)
{
    createWithFacade();
    addOldRows(3);
    exec("INSERT INTO FdbFaultStatisticTbl(FaultCode, FaultActive, FaultEntryId) VALUES (5, 'active', 2)");
    open(keeping(1));
    record(inactive(9), 5);
    EXPECT_EQ(keys(), "2,8");
}

TEST_F(FaultRecorderRetentionTest, BacklogIsRemovedInStepsOldestFirst)
{
    createWithFacade();
    addOldRows(10000);
    open(keeping(100));
    std::uint64_t before = count();
    std::uint64_t events = 0;
    while (before > 100)
    {
        ASSERT_LT(++events, 1500U) << "pruning the backlog does not end";
        record(inactive(1));
        std::uint64_t const now = count();
        ASSERT_LT(now, before);
        ASSERT_LE(before - now, 20U) << "one event removes too many rows";
        ASSERT_EQ(value("SELECT max(EntryId) - min(EntryId) + 1 FROM FdbFaultTbl"), std::to_string(now));
        before = now;
    }
    EXPECT_EQ(count(), 100U);
    EXPECT_EQ(recorder.counters().pruned, 10000 + events - 100);
}

TEST_F(FaultRecorderRetentionTest, ManyRowsThatAreNoLongerNeededAreAlsoRemovedInSteps)
{
    open(keeping(5));
    std::vector<FaultEvent> raised;
    for (std::uint64_t code = 1; code <= 500; ++code)
    {
        raised.push_back(eventOf(code));
    }
    std::vector<Receipt> receipts;
    ASSERT_EQ(recorder.recordAll(raised, receipts), HISTORY_OK);
    record(inactive(9999), 100);
    EXPECT_EQ(count(), 505U);
    exec("UPDATE FdbFaultTbl SET Status = 'ErrorInactive'; UPDATE FdbFaultStatisticTbl SET FaultActive = 'inactive'");
    for (std::uint64_t before = 505; before > 5;)
    {
        record(inactive(9999));
        std::uint64_t const now = count();
        ASSERT_LT(now, before);
        ASSERT_LE(before - now, 20U);
        before = now;
    }
}

TEST_F(FaultRecorderRetentionTest, FileStopsGrowing)
{
    open(keeping(50));
    FaultEvent event = inactive(1);
    event.description.assign(500, 'x');
    record(event, 100);
    struct stat before = {};
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    record(event, 1000);
    struct stat after = {};
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_LE(after.st_size, before.st_size + 4 * 4096);
    EXPECT_EQ(value("PRAGMA integrity_check"), "ok");
}

TEST_F(FaultRecorderRetentionTest, OldRowsAreRemovedInTheTransactionOfTheNewOne)
{
    open(keeping(1));
    record(inactive(1));
    {
        RawDb reader(path);
        reader.exec("BEGIN");
        ASSERT_EQ(reader.value(kCountOfFaults), "1");
        ASSERT_EQ(recorder.record(inactive(1), 50ms).result, HISTORY_BUSY);
        reader.exec("COMMIT");
    }
    EXPECT_EQ(keys(), "1") << "no row was added or removed";
    EXPECT_EQ(recorder.counters().pruned, 0U);
    record(inactive(1));
    EXPECT_EQ(keys(), "2");
}

TEST_F(FaultRecorderRetentionTest, TriggerThatRefusesTheDeleteKeepsRowsAndFailsNoRecording)
{
    for (char const* const action :
         {"RAISE(ABORT, 'stays')", "RAISE(FAIL, 'stays')", "RAISE(ROLLBACK, 'stays')", "RAISE(IGNORE)"})
    {
        SCOPED_TRACE(action);
        std::string const file = dir.file(std::string(action).substr(6, 5));
        FaultRecorder own;
        ASSERT_EQ(own.open(file, keeping(2)), HISTORY_OK);
        RawDb raw(file);
        raw.exec(
            std::string("CREATE TRIGGER keep BEFORE DELETE ON FdbFaultTbl WHEN old.EntryId % 2 = 1 BEGIN SELECT ") +
            action + "; END");
        for (unsigned long long key = 1; key <= 10; ++key)
        {
            Receipt const receipt = own.record(inactive(1));
            ASSERT_EQ(receipt.result, HISTORY_OK) << own.lastProblem();
            ASSERT_EQ(receipt.key, key);
        }
        std::string const left = raw.value("SELECT group_concat(EntryId) FROM FdbFaultTbl");
        bool const isAllKept = std::string(action).find("ROLLBACK") != std::string::npos;
        EXPECT_EQ(left, isAllKept ? "1,2,3,4,5,6,7,8,9,10" : "1,3,5,7,9,10");
        EXPECT_EQ(own.counters().pruned, isAllKept ? 0U : 4U);
        EXPECT_EQ(raw.value("SELECT OccurenceCnt FROM FdbFaultStatisticTbl"), "0");
        EXPECT_EQ(own.counters().recorded, 10U);
    }
}

TEST_F(FaultRecorderRetentionTest, EndlessTriggerFailsNoRecordingAndIsNotRunEachTime)
{
    open(keeping(1));
    record(inactive(1));
    exec(
        "CREATE TRIGGER slow BEFORE DELETE ON FdbFaultTbl BEGIN SELECT count(*) FROM (WITH RECURSIVE c(x) AS (SELECT 1 "
        "UNION ALL SELECT x + 1 FROM c) SELECT x FROM c); END");
    // A run is interrupted after 5 s of processor time. With a run for each event, this would take 200 s or longer.
    auto const begin = std::chrono::steady_clock::now();
    record(inactive(1), 40);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 40s);
    EXPECT_EQ(count(), 41U);
    exec("DROP TRIGGER slow");
    ASSERT_EQ(recorder.close(), HISTORY_OK);
    open(keeping(1));
    record(inactive(1), 10);
    EXPECT_EQ(keys(), "51");
}

TEST_F(FaultRecorderRetentionTest, RecordersWithAndWithoutRetentionShareAFile)
{
    open(keeping(3));
    FaultRecorder other;
    ASSERT_EQ(other.open(path), HISTORY_OK);
    ASSERT_EQ(other.raise(eventOf(1, "other")).key, 1U);
    ASSERT_EQ(recorder.raise(eventOf(1, "own")).key, 2U);
    for (int i = 0; i < 20; ++i)
    {
        ASSERT_EQ(other.record(inactive(5)).result, HISTORY_OK);
        record(inactive(6));
    }
    EXPECT_EQ(keys(), "1,2,40,41,42");
    EXPECT_EQ(other.raise(eventOf(1, "other")).result, HISTORY_UNCHANGED);
    EXPECT_EQ(other.raise(eventOf(1, "own")).result, HISTORY_UNCHANGED);
    EXPECT_EQ(recorder.raise(eventOf(1, "other")).result, HISTORY_UNCHANGED);
    EXPECT_EQ(other.clear(eventOf(1, "own")).result, HISTORY_OK);
    EXPECT_EQ(recorder.clear(eventOf(1, "own")).result, HISTORY_UNCHANGED);
    record(inactive(6));
    EXPECT_EQ(keys(), "1,42,43,44");
    for (int i = 0; i < 10; ++i)
    {
        ASSERT_EQ(other.record(inactive(5)).result, HISTORY_OK);
    }
    EXPECT_EQ(count(), 14U) << "the recorder without retention removes nothing";
    EXPECT_EQ(other.counters().pruned, 0U);
}

TEST_F(FaultRecorderRetentionTest, StateReadAnewAfterPruningIsTheSame)
{
    {
        FaultRecorder own;
        ASSERT_EQ(own.open(path, keeping(2)), HISTORY_OK);
        ASSERT_EQ(own.raise(eventOf(1, "a")).result, HISTORY_OK);
        ASSERT_EQ(own.raise(eventOf(2, "b")).result, HISTORY_OK);
        ASSERT_EQ(own.clear(eventOf(2, "b")).result, HISTORY_OK);
        for (int i = 0; i < 20; ++i)
        {
            ASSERT_EQ(own.record(inactive(3)).result, HISTORY_OK);
        }
    }
    open();
    EXPECT_EQ(recorder.raise(eventOf(1, "a")).result, HISTORY_UNCHANGED);
    EXPECT_EQ(recorder.raise(eventOf(1, "a")).key, 1U);
    EXPECT_EQ(recorder.clear(eventOf(2, "b")).result, HISTORY_UNCHANGED);
}

} // namespace
