// Closing a recorder with posted events, and calls during that.

#include "PostFixture.h"
#include "Waiters.h"

#include <atomic>
#include <thread>

namespace
{

using namespace firaim;
using namespace std::chrono_literals;

using FaultRecorderPostCloseTest = PostTest;

TEST_F(FaultRecorderPostCloseTest, CloseReportsLostEventsToTheHandlerWhichMayCallTheRecorder)
{
    createWithFacade();
    RecorderOptions options;
    options.onLost = [this](std::uint64_t count)
    {
        lost.push_back(count);
        EXPECT_EQ(recorder.post(eventOf(1)), HISTORY_INVALID_STATE);
        std::uint64_t none = 0;
        EXPECT_EQ(recorder.flush(none), HISTORY_INVALID_STATE);
        EXPECT_EQ(recorder.close(), HISTORY_INVALID_STATE);
        EXPECT_EQ(recorder.open(path), HISTORY_INVALID_STATE);
        EXPECT_EQ(recorder.counters().queued, 0U);
        EXPECT_NE(recorder.lastProblem(), "");
        EXPECT_LT(recorder.record(eventOf(1), 0ms).result, 0);
    };
    open(options);
    LockingProcess const other(path);
    post(7);
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_EQ(recorder.close(), HISTORY_FAILED);
    auto const time = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(time, 4900ms); // The default timeout is 5 s; an attempt under way gets half a second more.
    EXPECT_LT(time, 9s);
    EXPECT_EQ(lost, std::vector<std::uint64_t>{7});
}

TEST_F(FaultRecorderPostCloseTest, WaitingPostsEndWhenTheRecorderIsClosed)
{
    RecorderOptions options;
    options.queueLimit = 1;
    options.doesPostWait = true;
    open(options);
    LockingProcess other(path);
    post(1);
    std::vector<int> results(4, HISTORY_OK);
    std::vector<std::thread> threads;
    for (int& result : results)
    {
        threads.emplace_back([this, &result] { result = recorder.post(eventOf(2)); });
    }
    std::thread closing([this] { EXPECT_EQ(recorder.close(), HISTORY_OK); });
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_THAT(results, testing::Each(HISTORY_INVALID_STATE));
    other.release();
    closing.join();
    EXPECT_EQ(value(kCountOfFaults), "1");
}

TEST_F(FaultRecorderPostCloseTest, FlushReportsEventsThatAnotherThreadLosesByClosing)
{
    RecorderOptions options;
    Waiters::watch(options);
    open(options);
    LockingProcess const other(path);
    post(2);
    int result = HISTORY_OK;
    std::thread flusher([&] { result = flush(1min); });
    Waiters::waitFor(2); // The flushing thread and the recorder's thread.
    EXPECT_EQ(recorder.close(0ms), HISTORY_FAILED);
    flusher.join();
    EXPECT_LT(result, 0);
    EXPECT_EQ(left, 2U);
}

TEST_F(FaultRecorderPostCloseTest, FlushFailsWhenTheRecorderIsClosedAndOpenedAgainMeanwhile)
{
    RecorderOptions options;
    Waiters::watch(options);
    open(options);
    LockingProcess other(path);
    post(3);
    int result = HISTORY_OK;
    std::thread flusher([&] { result = flush(1min); });
    Waiters::waitFor(2); // The flushing thread and the recorder's thread.
    EXPECT_EQ(recorder.close(0ms), HISTORY_FAILED);
    other.release();
    open(options);
    flusher.join();
    EXPECT_LT(result, 0);
    EXPECT_LE(left, 3U);
}

TEST_F(FaultRecorderPostCloseTest, CallsAreRefusedWhileCloseRecordsPostedEvents)
{
    open();
    LockingProcess other(path);
    post(1);
    std::thread closer([&] { EXPECT_EQ(recorder.close(1min), HISTORY_OK) << recorder.lastProblem(); });
    while (recorder.record(eventOf(2), 0ms).result != HISTORY_INVALID_STATE)
    {
        std::this_thread::yield();
    }
    EXPECT_EQ(recorder.endCycle(0ms), HISTORY_INVALID_STATE);
    other.release();
    closer.join();
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1");
}

TEST_F(FaultRecorderPostCloseTest, ResultOfCloseWithoutTimeoutAgreesWithTheFile)
{
    for (int round = 0; round < 20; ++round)
    {
        open();
        post(1);
        int const result = recorder.close(0ms);
        bool const isStored = std::stoi(value(kCountOfFaults)) > round;
        EXPECT_EQ(result == HISTORY_OK, isStored);
        if (!isStored)
        {
            exec("INSERT INTO FdbFaultTbl(FaultCode) VALUES(1)");
        }
    }
}

TEST_F(FaultRecorderPostCloseTest, OnlyOneOfSeveralThreadsCloses)
{
    for (int round = 0; round < 50; ++round)
    {
        open();
        post(3);
        std::atomic<int> closed(0);
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
        {
            threads.emplace_back([&] { closed += recorder.close() == HISTORY_OK ? 1 : 0; });
        }
        for (std::thread& thread : threads)
        {
            thread.join();
        }
        ASSERT_EQ(closed, 1);
    }
    EXPECT_EQ(value(kCountOfFaults), "150");
}

TEST_F(FaultRecorderPostCloseTest, PostAndCloseGiveUpAfterTheirTimeouts)
{
    createWithFacade();
    RecorderOptions options;
    options.queueLimit = 1;
    options.doesPostWait = true;
    options.onLost = [this](std::uint64_t count) { lost.push_back(count); };
    open(options);
    LockingProcess const other(path);
    EXPECT_EQ(recorder.post(eventOf(1)), HISTORY_QUEUED);
    EXPECT_EQ(recorder.post(eventOf(2), std::chrono::milliseconds(20)), HISTORY_QUEUE_FULL);
    EXPECT_EQ(recorder.close(std::chrono::milliseconds(20)), HISTORY_FAILED);
    EXPECT_EQ(lost, std::vector<std::uint64_t>{1});
}

} // namespace
