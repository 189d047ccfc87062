// Events that share a transaction: events of several threads, and events of one call.

#include "RecorderFixtures.h"
#include "Waiters.h"

#include <filesystem>
#include <set>
#include <thread>

namespace
{

using namespace firaim;
using testing::Each;
using testing::HasSubstr;

constexpr std::chrono::minutes kLong(1);

class FaultRecorderGroupTest : public FaultRecorderTest
{
protected:
    FaultRecorderGroupTest()
    {
        RecorderOptions options;
        Waiters::watch(options);
        open(options);
    }

    /// Runs `body(i)` in `count` threads. Another process locks the file until all of them wait.
    template <class Body>
    void runTogether(unsigned int count, Body const& body)
    {
        LockingProcess other(path);
        std::vector<std::thread> threads;
        for (unsigned int i = 0; i < count; ++i)
        {
            threads.emplace_back([&body, i] { body(i); });
        }
        Waiters::waitFor(count);
        other.release();
        for (std::thread& thread : threads)
        {
            thread.join();
        }
    }

    /// Creates a trigger for rows of one module.
    void createTrigger(std::string const& module, std::string const& action) const
    {
        exec("CREATE TRIGGER onInsert BEFORE INSERT ON FdbFaultTbl WHEN new.ModuleName = '" + module +
             "' BEGIN SELECT " + action + "; END");
    }

    static std::vector<int> resultsOf(std::vector<Receipt> const& receipts)
    {
        std::vector<int> results;
        for (Receipt const& receipt : receipts)
        {
            results.push_back(receipt.result);
        }
        return results;
    }
};

TEST_F(FaultRecorderGroupTest, CallsThatWaitAtTheSameTimeShareOneCommit)
{
    constexpr unsigned int kThreads = 8;
    std::vector<Receipt> receipts(kThreads);
    runTogether(kThreads, [&](unsigned int i) { receipts[i] = recorder.record(eventOf(1 + i), kLong); });
    EXPECT_THAT(resultsOf(receipts), Each(HISTORY_OK));
    EXPECT_EQ(recorder.counters().recorded, kThreads);
    EXPECT_EQ(recorder.counters().groups, 1U);
    for (unsigned int i = 0; i < kThreads; ++i)
    {
        EXPECT_EQ(value("SELECT FaultCode FROM FdbFaultTbl WHERE EntryId = " + std::to_string(receipts[i].key)),
                  std::to_string(1 + i));
    }
}

TEST_F(FaultRecorderGroupTest, AnEdgeThatHasToReadAllFaultsFirstDoesNotJoinATransactionThatHasBegun)
{
    LockingProcess other(path);
    std::thread leader([&] { EXPECT_EQ(recorder.record(eventOf(FC_BUS_OFF), kLong).result, HISTORY_OK); });
    Waiters::waitFor(1);
    std::thread later([&] { EXPECT_EQ(recorder.raise(eventOf(2), kLong).result, HISTORY_OK); });
    Waiters::waitFor(2);
    other.release();
    leader.join();
    later.join();
    EXPECT_EQ(recorder.counters().groups, 2U);
}

TEST_F(FaultRecorderGroupTest, ManyThreadsLoseNothing)
{
    constexpr unsigned int kThreads = 8;
    constexpr unsigned int kRecords = 200;
    std::vector<std::vector<Receipt>> receipts(kThreads);
    runTogether(kThreads,
                [&](unsigned int thread)
                {
                    for (unsigned int i = 0; i < kRecords; ++i)
                    {
                        receipts[thread].push_back(recorder.record(eventOf(1 + i % 2, std::to_string(thread)), kLong));
                    }
                });
    std::set<unsigned long long> keys;
    for (std::vector<Receipt> const& ofThread : receipts)
    {
        EXPECT_THAT(resultsOf(ofThread), Each(HISTORY_OK));
        for (Receipt const& receipt : ofThread)
        {
            keys.insert(receipt.key);
        }
    }
    EXPECT_EQ(keys.size(), kThreads * kRecords);
    EXPECT_EQ(rows("SELECT ModuleName, FaultCode, count(*) FROM FdbFaultTbl GROUP BY 1, 2").size(), 2 * kThreads);
    EXPECT_EQ(value(kCountOfFaults), "1600");
    EXPECT_EQ(rows("SELECT FaultCode, OccurenceCnt FROM FdbFaultStatisticTbl ORDER BY FaultCode"),
              (Rows{{"1", "800"}, {"2", "800"}}));
    FaultRecorder::Counters const counters = recorder.counters();
    EXPECT_EQ(counters.recorded, kThreads * kRecords);
    EXPECT_LT(counters.groups, counters.recorded);
}

TEST_F(FaultRecorderGroupTest, EdgesOfManyThreadsAreOneForEachTriple)
{
    std::vector<Receipt> receipts(8);
    runTogether(8, [&](unsigned int i) { receipts[i] = recorder.raise(eventOf(1), kLong); });
    std::vector<int> const results = resultsOf(receipts);
    EXPECT_EQ(std::count(results.begin(), results.end(), HISTORY_OK), 1);
    EXPECT_EQ(std::count(results.begin(), results.end(), HISTORY_UNCHANGED), 7);
    EXPECT_EQ(value(kCountOfFaults), "1");
    for (Receipt const& receipt : receipts)
    {
        EXPECT_EQ(receipt.key, 1U);
    }
}

TEST_F(FaultRecorderGroupTest, EventsOfOneCallAreRecordedInTheirOrder)
{
    std::vector<FaultEvent> events;
    for (std::uint64_t i = 0; i < 5000; ++i)
    {
        events.push_back(eventOf(i % 7 == 3 ? 1ULL << 32U : i % 10, std::to_string(i)));
    }
    std::vector<Receipt> receipts;
    EXPECT_EQ(recorder.recordAll(events, receipts), HISTORY_REFUSED);
    ASSERT_EQ(receipts.size(), events.size());
    Rows expected;
    unsigned long long key = 0;
    for (std::size_t i = 0; i < events.size(); ++i)
    {
        bool const isRefused = i % 7 == 3;
        ASSERT_EQ(receipts[i].result, isRefused ? HISTORY_REFUSED : HISTORY_OK) << i;
        ASSERT_EQ(receipts[i].key, isRefused ? 0 : ++key) << i;
        if (!isRefused)
        {
            expected.push_back({std::to_string(key), events[i].module});
        }
    }
    EXPECT_TRUE(rows("SELECT EntryId, ModuleName FROM FdbFaultTbl ORDER BY EntryId") == expected);
    EXPECT_EQ(value("SELECT sum(OccurenceCnt) FROM FdbFaultStatisticTbl"), std::to_string(key));
    EXPECT_EQ(recorder.counters().recorded, key);
    EXPECT_EQ(recorder.counters().refused, events.size() - key);
    EXPECT_LT(recorder.counters().groups, 10U);
}

TEST_F(FaultRecorderGroupTest, ResultOfACallIsItsFirstFailure)
{
    ASSERT_EQ(recorder.close(), HISTORY_OK);
    RecorderOptions options;
    options.stormBurst = 1;
    open(options);
    exec("CREATE TRIGGER onInsert BEFORE INSERT ON FdbFaultTbl WHEN new.ModuleName = 'bad' "
         "BEGIN SELECT RAISE(ABORT, 'no'); END");
    std::vector<Receipt> receipts;
    EXPECT_EQ(recorder.recordAll({eventOf(1), eventOf(1)}, receipts), HISTORY_COUNTED);
    EXPECT_EQ(recorder.recordAll({eventOf(2), eventOf(2), eventOf(3, "bad"), eventOf(4)}, receipts), HISTORY_REFUSED);
    EXPECT_THAT(resultsOf(receipts), testing::ElementsAre(HISTORY_OK, HISTORY_COUNTED, HISTORY_REFUSED, HISTORY_OK));
}

TEST_F(FaultRecorderGroupTest, LargeEventsShareNoCommit)
{
    std::vector<FaultEvent> events = {eventOf(1), eventOf(2), eventOf(3)};
    events[1].description.assign(700'000, 'd');
    events[2].description.assign(700'000, 'd');
    std::vector<Receipt> receipts;
    EXPECT_EQ(recorder.recordAll(events, receipts), HISTORY_OK);
    EXPECT_EQ(recorder.counters().groups, 2U);
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1,2,3");
}

TEST_F(FaultRecorderGroupTest, NoEventsAreRecordedAtOnce)
{
    LockingProcess const other(path);
    std::vector<Receipt> receipts(3);
    EXPECT_EQ(recorder.recordAll({}, receipts, std::chrono::milliseconds(0)), HISTORY_OK);
    EXPECT_EQ(receipts.size(), 0U);
}

TEST_F(FaultRecorderGroupTest, EventThatATriggerRefusesIsRefusedAlone)
{
    for (char const* const action :
         {"RAISE(ABORT, 'not this one')", "RAISE(FAIL, 'not this one')", "RAISE(ROLLBACK, 'not this one')"})
    {
        SCOPED_TRACE(action);
        exec("DROP TRIGGER IF EXISTS onInsert; DELETE FROM FdbFaultTbl; DELETE FROM FdbFaultStatisticTbl");
        createTrigger("bad", action);
        std::vector<Receipt> receipts;
        EXPECT_EQ(recorder.recordAll({eventOf(1), eventOf(2, "bad"), eventOf(3)}, receipts), HISTORY_REFUSED);
        EXPECT_THAT(resultsOf(receipts), testing::ElementsAre(HISTORY_OK, HISTORY_REFUSED, HISTORY_OK));
        EXPECT_THAT(recorder.lastProblem(), testing::AllOf(HasSubstr(path), HasSubstr("not this one")));
        EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1,3");
        EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultStatisticTbl"), "1,3");
    }
    EXPECT_EQ(recorder.counters().groups, 6U) << "each event was committed alone";
    EXPECT_EQ(recorder.counters().refused, 3U);
}

TEST_F(FaultRecorderGroupTest, EventAtWhichATriggerFailsIsRefusedAlone)
{
    createTrigger("bad", "abs(-9223372036854775807 - 1)");
    std::vector<Receipt> receipts;
    EXPECT_EQ(recorder.recordAll({eventOf(1), eventOf(2, "bad"), eventOf(3), eventOf(4, "bad")}, receipts),
              HISTORY_REFUSED);
    EXPECT_THAT(resultsOf(receipts), testing::ElementsAre(HISTORY_OK, HISTORY_REFUSED, HISTORY_OK, HISTORY_REFUSED));
    EXPECT_THAT(recorder.lastProblem(), HasSubstr("integer overflow"));
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1,3");
}

TEST_F(FaultRecorderGroupTest, UnusableSchemaFailsAllEventsOfAGroup)
{
    std::vector<Receipt> receipts;
    createTrigger("bad", "(SELECT count(*) FROM missing)");
    EXPECT_EQ(recorder.recordAll({eventOf(1), eventOf(2)}, receipts), HISTORY_FAILED);
    EXPECT_THAT(resultsOf(receipts), testing::Each(HISTORY_FAILED));
    exec("DROP TRIGGER onInsert");
    EXPECT_EQ(recorder.recordAll({eventOf(1), eventOf(2)}, receipts), HISTORY_OK);
    exec("DROP TABLE FdbFaultStatisticTbl");
    EXPECT_NE(recorder.record(eventOf(1)).result, HISTORY_REFUSED);
    EXPECT_EQ(recorder.record(eventOf(2)).result, HISTORY_FOREIGN_FILE);
}

TEST_F(FaultRecorderGroupTest, GroupThatChangesNothingIsNotCounted)
{
    ASSERT_EQ(recorder.raise(eventOf(1)).result, HISTORY_OK);
    ASSERT_EQ(recorder.raise(eventOf(1)).result, HISTORY_UNCHANGED);
    ASSERT_EQ(recorder.clear(eventOf(2)).result, HISTORY_UNCHANGED);
    EXPECT_EQ(recorder.counters().groups, 1U);
    ASSERT_EQ(recorder.endCycle(), HISTORY_OK); // The event counted the first cycle already.
    EXPECT_EQ(recorder.counters().groups, 1U);
    ASSERT_EQ(recorder.endCycle(), HISTORY_OK);
    EXPECT_EQ(recorder.counters().groups, 2U);
}

TEST_F(FaultRecorderGroupTest, FailedTriesOfAPostedEventAreNotCountedAsRefused)
{
    LockingProcess other(path);
    ASSERT_EQ(recorder.post(eventOf(1)), HISTORY_QUEUED);
    std::uint64_t left = 0;
    EXPECT_NE(recorder.flush(left, std::chrono::milliseconds(700)), HISTORY_OK);
    EXPECT_EQ(left, 1U);
    EXPECT_EQ(recorder.counters().refused, 0U);
    other.release();
    EXPECT_EQ(recorder.flush(left), HISTORY_OK);
    EXPECT_EQ(recorder.counters().recorded, 1U);
}

TEST_F(FaultRecorderGroupTest, EventThatATriggerIgnoresIsRefusedAlone)
{
    createTrigger("bad", "RAISE(IGNORE)");
    std::vector<Receipt> receipts;
    EXPECT_EQ(recorder.recordAll({eventOf(1), eventOf(2, "bad"), eventOf(3)}, receipts), HISTORY_REFUSED);
    EXPECT_THAT(resultsOf(receipts), testing::ElementsAre(HISTORY_OK, HISTORY_REFUSED, HISTORY_OK));
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1,3");
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultStatisticTbl"), "1,3");
}

TEST_F(FaultRecorderGroupTest, EventWhoseStatisticATriggerRefusesGetsNoRow)
{
    exec("CREATE TRIGGER onStatistic BEFORE INSERT ON FdbFaultStatisticTbl WHEN new.FaultCode = 2 "
         "BEGIN SELECT RAISE(ABORT, 'no'); END");
    std::vector<Receipt> receipts;
    EXPECT_EQ(recorder.recordAll({eventOf(1), eventOf(2), eventOf(3)}, receipts), HISTORY_REFUSED);
    EXPECT_THAT(resultsOf(receipts), testing::ElementsAre(HISTORY_OK, HISTORY_REFUSED, HISTORY_OK));
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1,3");
    EXPECT_EQ(recorder.raise(eventOf(2)).result, HISTORY_REFUSED) << "the triple is not active";
}

TEST_F(FaultRecorderGroupTest, EndlessTriggerIsInterruptedAndFailsItsEventAlone)
{
    createTrigger("endless", "(SELECT count(*) FROM (WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) "
                             "SELECT x FROM c))");
    std::vector<Receipt> receipts;
    EXPECT_EQ(recorder.recordAll({eventOf(1), eventOf(2, "endless"), eventOf(3)}, receipts), HISTORY_FAILED);
    EXPECT_THAT(resultsOf(receipts), testing::ElementsAre(HISTORY_OK, HISTORY_FAILED, HISTORY_OK));
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1,3");
}

TEST_F(FaultRecorderGroupTest, JournalOfALargeGroupIsNotKept)
{
    std::vector<FaultEvent> events;
    for (std::uint64_t code = 1; code <= 1000; ++code)
    {
        events.push_back(eventOf(code));
        events.back().codeName = std::string(500, 'n');
    }
    std::vector<Receipt> receipts;
    ASSERT_EQ(recorder.recordAll(events, receipts), HISTORY_OK);
    // This rewrites every page of the statistics, so the journal held them all.
    ASSERT_EQ(recorder.recordAll(events, receipts), HISTORY_OK);
    ASSERT_GT(std::stoi(value("PRAGMA page_count")), 100);
    EXPECT_TRUE(exists(path + "-journal"));
    EXPECT_LE(std::filesystem::file_size(path + "-journal"), 65536U);
}

TEST_F(FaultRecorderGroupTest, CloseWaitsForCallsInProgress)
{
    LockingProcess other(path);
    Receipt receipt;
    std::thread recording([&] { receipt = recorder.record(eventOf(1), kLong); });
    Waiters::waitFor(1);
    int closed = HISTORY_FAILED;
    std::thread closing([&] { closed = recorder.close(); });
    while (recorder.record(eventOf(2), std::chrono::milliseconds(0)).result != HISTORY_INVALID_STATE)
    {
        std::this_thread::yield();
    }
    other.release();
    recording.join();
    closing.join();
    EXPECT_EQ(receipt.result, HISTORY_OK);
    EXPECT_EQ(closed, HISTORY_OK);
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1");
}

} // namespace
