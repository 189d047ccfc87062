// A recorder beside other processes: their locks, their crashes, and simultaneous creation of a file.

#include "RecorderFixtures.h"
#include "Waiters.h"

#include <atomic>
#include <csignal>
#include <thread>

namespace
{

using namespace firaim;
using testing::HasSubstr;

constexpr std::chrono::milliseconds kShort(100);
constexpr std::chrono::milliseconds kLongEnoughToCount(300);
constexpr std::chrono::minutes kLong(1);

class FaultRecorderLockTest : public FaultRecorderTest
{
protected:
    FaultRecorderLockTest() { Waiters::watch(m_options); }

    /// Expects `call` to return HISTORY_BUSY, not before its timeout of `kShort`. The upper bound only detects a hang.
    template <class Call>
    void expectBusy(Call const& call)
    {
        auto const begin = std::chrono::steady_clock::now();
        EXPECT_EQ(call(), HISTORY_BUSY);
        auto const time = std::chrono::steady_clock::now() - begin;
        EXPECT_GE(time, kShort * 9 / 10);
        EXPECT_LT(time, std::chrono::seconds(20));
        EXPECT_THAT(recorder.lastProblem(), HasSubstr(path));
    }

    RecorderOptions m_options;
};

TEST_F(FaultRecorderLockTest, OpenWaitsForItsTimeout)
{
    createWithFacade();
    {
        LockingProcess const other(path);
        expectBusy([this] { return recorder.open(path, {}, kShort); });
    }
    EXPECT_EQ(recorder.open(path), HISTORY_OK) << recorder.lastProblem();
}

TEST_F(FaultRecorderLockTest, CallsWaitForTheirTimeoutAndWriteNothing)
{
    open();
    ASSERT_EQ(recorder.raise(eventOf(1)).result, HISTORY_OK);
    std::vector<unsigned long long> keys;
    std::vector<Receipt> receipts;
    LockingProcess other(path);
    expectBusy([this] { return recorder.record(eventOf(2), kShort).result; });
    expectBusy([this] { return recorder.raise(eventOf(2), kShort).result; });
    expectBusy([this] { return recorder.clear(eventOf(1), kShort).result; });
    expectBusy([&] { return recorder.clearCode(eventOf(1), keys, kShort); });
    expectBusy([&] { return recorder.recordAll({eventOf(2), eventOf(3)}, receipts, kShort); });
    expectBusy([this] { return recorder.endCycle(kShort); });
    other.release();
    EXPECT_EQ(value(kCountOfFaults), "1");
    EXPECT_EQ(recorder.counters().groups, 1U) << "a group that could not begin is not counted";
    EXPECT_EQ(recorder.counters().refused, 7U);
    EXPECT_EQ(recorder.clear(eventOf(1)).result, HISTORY_OK);
    EXPECT_EQ(recorder.raise(eventOf(2)).result, HISTORY_OK);
    EXPECT_EQ(value(kCountOfFaults), "3");
}

TEST_F(FaultRecorderLockTest, CommitWaitsForAReaderAndThenWritesNothing)
{
    open();
    ASSERT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK);
    RawDb reader(path);
    reader.exec("BEGIN");
    ASSERT_EQ(reader.value(kCountOfFaults), "1");
    expectBusy([this] { return recorder.raise(eventOf(2), kShort).result; });
    reader.exec("COMMIT");
    EXPECT_EQ(value(kCountOfFaults), "1");
    EXPECT_EQ(recorder.raise(eventOf(2)).result, HISTORY_OK) << "the state of the failed raise was not kept";
    EXPECT_EQ(statistic(2, "OccurenceCnt"), "1");
}

/// Number of calls of `isCancelled`, which a waiting call makes once for each try.
std::atomic<unsigned int> g_tries;

TEST_F(FaultRecorderLockTest, EventsOfAGroupThatAreWrittenAloneShareOneTimeout)
{
    m_options.isCancelled = []
    {
        ++g_tries;
        return false;
    };
    open(m_options);
    ASSERT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK);
    exec("CREATE TRIGGER onInsert BEFORE INSERT ON FdbFaultTbl WHEN new.ModuleName = 'bad' "
         "BEGIN SELECT RAISE(ABORT, 'no'); END");
    RawDb reader(path);
    reader.exec("BEGIN");
    ASSERT_EQ(reader.value(kCountOfFaults), "1");
    std::vector<FaultEvent> events(40, eventOf(2));
    events.front().module = "bad";
    std::vector<Receipt> receipts;
    g_tries = 0;
    EXPECT_EQ(recorder.recordAll(events, receipts, kLongEnoughToCount), HISTORY_REFUSED);
    EXPECT_EQ(receipts.back().result, HISTORY_BUSY);
    // The pause after a try takes 5 ms or longer, so slowness only makes fewer tries.
    std::size_t const triesInOneTimeout = kLongEnoughToCount / std::chrono::milliseconds(5);
    EXPECT_LT(g_tries.load(), 2 * (triesInOneTimeout + events.size())) << "each event has a timeout of its own";
    reader.exec("COMMIT");
    EXPECT_EQ(value(kCountOfFaults), "1");
}

TEST_F(FaultRecorderLockTest, CallThatWaitsBehindAnotherGivesUpAlone)
{
    open(m_options);
    LockingProcess other(path);
    Receipt first;
    std::thread leading([&] { first = recorder.record(eventOf(1), kLong); });
    Waiters::waitFor(1);
    expectBusy([this] { return recorder.record(eventOf(2), kShort).result; });
    other.release();
    leading.join();
    EXPECT_EQ(first.result, HISTORY_OK);
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1");
}

TEST_F(FaultRecorderLockTest, CallsThatWaitBehindOneThatGivesUpGoOn)
{
    open(m_options);
    LockingProcess other(path);
    Receipt first;
    Receipt second;
    std::thread leading([&] { first = recorder.record(eventOf(1), std::chrono::milliseconds(300)); });
    Waiters::waitFor(1);
    std::thread following([&] { second = recorder.record(eventOf(2), kLong); });
    leading.join();
    EXPECT_EQ(first.result, HISTORY_BUSY);
    Waiters::waitFor(2);
    other.release();
    following.join();
    EXPECT_EQ(second.result, HISTORY_OK);
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "2");
}

TEST_F(FaultRecorderLockTest, WaitingCallsEndWhenTheyAreCancelled)
{
    open(m_options);
    LockingProcess other(path);
    std::vector<int> results(3, HISTORY_OK);
    std::vector<std::thread> threads;
    for (int& result : results)
    {
        threads.emplace_back([this, &result] { result = recorder.record(eventOf(1), kLong).result; });
    }
    Waiters::waitFor(3);
    Waiters::cancel();
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_THAT(results, testing::Each(HISTORY_CANCELLED));
    other.release();
    EXPECT_EQ(value(kCountOfFaults), "0");
    Waiters::reset();
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK);
}

TEST_F(FaultRecorderLockTest, CommitThatWaitsForAReaderEndsWhenItIsCancelled)
{
    open(m_options);
    ASSERT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK);
    RawDb reader(path);
    reader.exec("BEGIN");
    ASSERT_EQ(reader.value(kCountOfFaults), "1");
    int result = HISTORY_OK;
    std::thread call([&] { result = recorder.record(eventOf(2), kLong).result; });
    Waiters::waitFor(1);
    Waiters::cancel();
    call.join();
    EXPECT_EQ(result, HISTORY_CANCELLED);
    reader.exec("COMMIT");
    EXPECT_EQ(value(kCountOfFaults), "1");
}

TEST_F(FaultRecorderLockTest, WaitingOpenEndsWhenItIsCancelled)
{
    createWithFacade();
    {
        LockingProcess const other(path);
        int result = HISTORY_OK;
        std::thread opening([&] { result = recorder.open(path, m_options, kLong); });
        Waiters::waitFor(1);
        Waiters::cancel();
        opening.join();
        EXPECT_EQ(result, HISTORY_CANCELLED);
    }
    Waiters::reset();
    EXPECT_EQ(recorder.open(path, m_options), HISTORY_OK);
}

TEST_F(FaultRecorderLockTest, CancellingDoesNotInterruptReadingOfManyRows)
{
    createWithFacade();
    exec("INSERT INTO FdbFaultTbl(FaultCode, Status) WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c "
         "WHERE x < 5000) SELECT x, 'ErrorActive' FROM c");
    open(m_options);
    Waiters::cancel();
    EXPECT_EQ(recorder.raise(eventOf(10000)).result, HISTORY_OK) << "the call does not wait for a lock";
    EXPECT_EQ(recorder.raise(eventOf(5000, "n/a", "n/a")).result, HISTORY_UNCHANGED);
    Waiters::reset();
}

TEST_F(FaultRecorderLockTest, ProcessesThatCreateAtOnceShareOneDatabase)
{
    for (int round = 0; round < 20; ++round)
    {
        SCOPED_TRACE(round);
        std::string const file = dir.file("new" + std::to_string(round));
        Signal ready;
        Signal begin;
        std::vector<pid_t> children;
        for (std::uint64_t code = 1; code <= 2; ++code)
        {
            children.push_back(startChild(
                [&]
                {
                    FaultRecorder own;
                    ready.give();
                    begin.wait();
                    EXPECT_EQ(own.open(file), HISTORY_OK) << own.lastProblem();
                    EXPECT_EQ(own.record(eventOf(code)).result, HISTORY_OK) << own.lastProblem();
                }));
        }
        ready.wait();
        ready.wait();
        begin.give();
        begin.give();
        for (pid_t const child : children)
        {
            expectSuccess(child);
        }
        RawDb raw(file);
        EXPECT_EQ(raw.value("SELECT count(*) FROM FdbVersionTbl"), "1");
        EXPECT_EQ(raw.value("SELECT count(*) FROM sqlite_master WHERE name LIKE 'Fdb%'"), "3");
        EXPECT_EQ(raw.value("SELECT count(DISTINCT FaultCode) FROM FdbFaultTbl"), "2");
    }
}

TEST_F(FaultRecorderLockTest, HalfWrittenTransactionOfAKilledWriterIsRolledBack)
{
    open();
    ASSERT_EQ(recorder.raise(eventOf(1)).result, HISTORY_OK);
    ASSERT_EQ(recorder.close(), HISTORY_OK);
    Rows const before = rows(kFaults);
    std::string const bytes = readFile(path);
    pid_t const child = fork();
    if (child == 0)
    {
        RawDb raw(path);
        raw.exec("PRAGMA cache_size = 1; BEGIN; UPDATE FdbFaultTbl SET Status = 'ErrorInactive'; "
                 "INSERT INTO FdbFaultTbl(Description) WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c "
                 "WHERE x < 100) SELECT hex(zeroblob(1000)) FROM c");
        kill(getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    ASSERT_FALSE(readFile(path) == bytes) << "the file was not written before the kill";
    open();
    EXPECT_EQ(recorder.raise(eventOf(1)).result, HISTORY_UNCHANGED);
    EXPECT_EQ(rows(kFaults), before);
    EXPECT_EQ(value("PRAGMA integrity_check"), "ok");
}

} // namespace
