// Posted events at the exit of a process, in a forked child, and together with the application's signals.

#include "RecorderFixtures.h"

#include <csignal>
#include <new>
#include <thread>

namespace
{

using namespace firaim;
using namespace std::chrono_literals;

class FaultRecorderExitTest : public FaultRecorderTest
{
protected:
    /// Runs `body` in a child process that exits like a return from `main`, with the destructors of static objects.
    template <class Body>
    static void runToExit(Body const& body)
    {
        std::fflush(nullptr);
        pid_t const child = fork();
        if (child == 0)
        {
            body();
            std::exit(testing::Test::HasFailure() ? 1 : 0);
        }
        expectSuccess(child);
    }

    static void post(FaultRecorder& to, int count)
    {
        for (int i = 0; i < count; ++i)
        {
            EXPECT_EQ(to.post(eventOf(1)), HISTORY_QUEUED);
        }
    }
};

TEST_F(FaultRecorderExitTest, DestructorRecordsPostedEvents)
{
    {
        FaultRecorder own;
        ASSERT_EQ(own.open(path), HISTORY_OK);
        post(own, 1000);
    }
    EXPECT_EQ(value(kCountOfFaults), "1000");
}

TEST_F(FaultRecorderExitTest, StaticRecorderRecordsEventsPostedBeforeExit)
{
    createWithFacade();
    runToExit(
        [this]
        {
            static FaultRecorder own;
            ASSERT_EQ(own.open(path), HISTORY_OK);
            post(own, 1000);
        });
    EXPECT_EQ(value(kCountOfFaults), "1000");
}

TEST_F(FaultRecorderExitTest, StaticRecorderOutlivesObjectsThatItsFirstCallsCreate)
{
    createWithFacade();
    runToExit(
        [this]
        {
            static FaultRecorder own; // Its destructor runs after those of all static objects constructed later.
            RecorderOptions options;
            options.keepNewest = 5;
            options.stormBurst = 3;
            ASSERT_EQ(own.open(path, options), HISTORY_OK);
            for (int i = 0; i < 10; ++i)
            {
                EXPECT_GE(own.post(eventOf(1)), HISTORY_OK);
                EXPECT_EQ(own.post(eventOf(1'000'000 + static_cast<std::uint64_t>(i))), HISTORY_QUEUED);
            }
        });
    EXPECT_EQ(value("SELECT max(EntryId) FROM FdbFaultTbl"), "14");
    EXPECT_EQ(statistic(1, "OccurenceCnt"), "10");
}

TEST_F(FaultRecorderExitTest, StaticRecorderReportsLostEventsToItsHandlerAtExit)
{
    createWithFacade();
    Signal lost;
    runToExit(
        [&]
        {
            static FaultRecorder own;
            RecorderOptions options;
            options.onLost = [&lost](std::uint64_t count) { lost.give(static_cast<char>('0' + count)); };
            ASSERT_EQ(own.open(path, options), HISTORY_OK);
            exec("CREATE TRIGGER refuse BEFORE INSERT ON FdbFaultTbl BEGIN SELECT RAISE(ABORT, 'no'); END");
            post(own, 4);
        });
    EXPECT_EQ(lost.wait(), '4');
}

TEST_F(FaultRecorderExitTest, ForkedChildCannotUseTheRecorder)
{
    open();
    post(recorder, 3);
    ASSERT_EQ(recorder.record(eventOf(2)).result, HISTORY_OK);
    expectSuccess(startChild(
        [this]
        {
            std::uint64_t left = 0;
            std::vector<Receipt> receipts;
            std::vector<unsigned long long> keys;
            EXPECT_EQ(recorder.post(eventOf(3)), HISTORY_INVALID_STATE);
            EXPECT_EQ(recorder.flush(left), HISTORY_INVALID_STATE);
            EXPECT_EQ(recorder.record(eventOf(3)).result, HISTORY_INVALID_STATE);
            EXPECT_EQ(recorder.raise(eventOf(3)).result, HISTORY_INVALID_STATE);
            EXPECT_EQ(recorder.clear(eventOf(2)).result, HISTORY_INVALID_STATE);
            EXPECT_EQ(recorder.recordAll({eventOf(3)}, receipts), HISTORY_INVALID_STATE);
            EXPECT_EQ(recorder.clearCode(eventOf(2), keys), HISTORY_INVALID_STATE);
            EXPECT_EQ(recorder.endCycle(), HISTORY_INVALID_STATE);
            EXPECT_EQ(recorder.open(path), HISTORY_INVALID_STATE);
            EXPECT_EQ(recorder.close(), HISTORY_INVALID_STATE);
            EXPECT_EQ(recorder.startupId(), 0U);
            EXPECT_EQ(recorder.counters().recorded, 0U);
            EXPECT_EQ(recorder.lastProblem(), "");
        }));
    EXPECT_EQ(recorder.close(), HISTORY_OK);
    EXPECT_EQ(value(kCountOfFaults), "4");
}

TEST_F(FaultRecorderExitTest, ForkedChildNeitherWaitsForTheParentsLocksNorTouchesItsConnection)
{
    bool isReported = false;
    pid_t child = -1;
    {
        FaultRecorder own;
        RecorderOptions options;
        options.onLost = [&](std::uint64_t) { isReported = true; };
        ASSERT_EQ(own.open(path, options), HISTORY_OK);
        std::thread busy;
        {
            LockingProcess const other(path);
            post(own, 100);
            busy = std::thread([&] { EXPECT_EQ(own.record(eventOf(2), 1min).result, HISTORY_OK); });
            child = startChild(
                [&]
                {
                    alarm(30); // In the child, a mutex that the parent had locked would never be released.
                    EXPECT_EQ(own.post(eventOf(3)), HISTORY_INVALID_STATE);
                    own.~FaultRecorder();
                    EXPECT_FALSE(isReported);
                    new (&own) FaultRecorder; // A valid object again, should the scope's destructors run.
                });
            expectSuccess(child);
        }
        busy.join();
        EXPECT_EQ(own.close(), HISTORY_OK);
    }
    EXPECT_FALSE(isReported);
    EXPECT_EQ(value(kCountOfFaults), "101");
}

TEST_F(FaultRecorderExitTest, ForkedChildOpensARecorderOfItsOwn)
{
    open();
    post(recorder, 10);
    std::uint64_t left = 0;
    ASSERT_EQ(recorder.flush(left), HISTORY_OK); // Now the recorder's thread exists and is idle.
    pid_t const child = startChild(
        [this]
        {
            FaultRecorder own;
            EXPECT_EQ(own.open(path), HISTORY_OK);
            post(own, 10);
        });
    expectSuccess(child);
    EXPECT_EQ(recorder.close(), HISTORY_OK);
    EXPECT_EQ(value(kCountOfFaults), "20");
}

TEST_F(FaultRecorderExitTest, SignalsGoToTheApplicationsOwnThreads)
{
    createWithFacade();
    expectSuccess(startChild(
        [this]
        {
            static pthread_t taker;
            static volatile std::sig_atomic_t taken = 0;
            struct sigaction action = {};
            action.sa_handler = [](int)
            {
                taker = pthread_self();
                taken = 1;
            };
            ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
            FaultRecorder own;
            ASSERT_EQ(own.open(path), HISTORY_OK);
            post(own, 1);
            std::uint64_t left = 0;
            ASSERT_EQ(own.flush(left), HISTORY_OK); // Now the recorder's thread exists.
            sigset_t blocked;
            sigset_t before;
            sigemptyset(&blocked);
            sigaddset(&blocked, SIGUSR1);
            ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &blocked, &before), 0);
            EXPECT_FALSE(sigismember(&before, SIGUSR1)) << "the mask of the posting thread has changed";
            ASSERT_EQ(kill(getpid(), SIGUSR1), 0);
            // If another thread did not block the signal, it would handle it while this one waits for a commit.
            EXPECT_EQ(own.record(eventOf(2)).result, HISTORY_OK);
            EXPECT_EQ(taken, 0);
            ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
            EXPECT_EQ(taken, 1);
            EXPECT_TRUE(pthread_equal(taker, pthread_self()));
        }));
}

} // namespace
