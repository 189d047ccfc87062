// Posted events: the queue, its thread, and failures to write the file.

#include "PostFixture.h"
#include "Waiters.h"

#include <atomic>
#include <csignal>
#include <thread>

#include <sys/resource.h>

namespace
{

using namespace firaim;
using namespace std::chrono_literals;
using testing::HasSubstr;

class FaultRecorderPostTest : public PostTest
{
protected:
    /// Creates a trigger that refuses rows of this module.
    void refuseModule(std::string const& module) const
    {
        exec("CREATE TRIGGER refuse BEFORE INSERT ON FdbFaultTbl WHEN new.ModuleName = '" + module +
             "' BEGIN SELECT RAISE(ABORT, 'not this one'); END");
    }
};

TEST_F(FaultRecorderPostTest, PostedEventsAreRecordedInTheirOrderWithTheMomentOfPosting)
{
    open();
    for (std::uint64_t i = 0; i < 500; ++i)
    {
        ASSERT_EQ(recorder.post(eventOf(i % 7, std::to_string(i))), HISTORY_QUEUED);
    }
    EXPECT_EQ(flush(), HISTORY_OK);
    EXPECT_EQ(left, 0U);
    Rows const found = rows("SELECT ModuleName FROM FdbFaultTbl ORDER BY EntryId");
    ASSERT_EQ(found.size(), 500U);
    for (std::size_t i = 0; i < found.size(); ++i)
    {
        ASSERT_EQ(found[i][0], std::to_string(i));
    }
    EXPECT_EQ(value("SELECT sum(OccurenceCnt) FROM FdbFaultStatisticTbl"), "500");
    EXPECT_EQ(recorder.counters().recorded, 500U);
    EXPECT_EQ(recorder.counters().queued, 0U);
}

TEST_F(FaultRecorderPostTest, PostDoesNotWaitForALockedFile)
{
    open();
    LockingProcess other(path);
    post(1);
    FaultEvent const early = eventOf(2);
    EXPECT_EQ(recorder.post(early), HISTORY_QUEUED);
    EXPECT_EQ(flush(50ms), HISTORY_BUSY);
    EXPECT_EQ(left, 2U);
    EXPECT_THAT(recorder.lastProblem(), HasSubstr(path));
    EXPECT_EQ(recorder.counters().queued, 2U);
    other.release();
    EXPECT_EQ(flush(), HISTORY_OK);
    EXPECT_EQ(left, 0U);
    EXPECT_EQ(value(kCountOfFaults), "2");
}

TEST_F(FaultRecorderPostTest, FullQueueRefusesUntilThereIsRoom)
{
    RecorderOptions options;
    options.queueLimit = 3;
    open(options);
    {
        LockingProcess const other(path);
        post(3);
        EXPECT_EQ(recorder.post(eventOf(4)), HISTORY_QUEUE_FULL);
        EXPECT_THAT(recorder.lastProblem(), HasSubstr("full"));
        EXPECT_EQ(recorder.counters().queued, 3U);
    }
    EXPECT_EQ(flush(), HISTORY_OK);
    EXPECT_EQ(recorder.post(eventOf(5)), HISTORY_QUEUED);
    EXPECT_EQ(flush(), HISTORY_OK);
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1,2,3,5");
}

TEST_F(FaultRecorderPostTest, QueueHolds1024EventsByDefault)
{
    open();
    LockingProcess const other(path);
    post(1024);
    EXPECT_EQ(recorder.post(eventOf(1)), HISTORY_QUEUE_FULL);
}

TEST_F(FaultRecorderPostTest, PostWaitsForRoomWithTheOption)
{
    RecorderOptions options;
    options.queueLimit = 2;
    options.doesPostWait = true;
    open(options);
    LockingProcess other(path);
    post(2);
    std::atomic<bool> isPosted(false);
    std::thread posting(
        [&]
        {
            EXPECT_EQ(recorder.post(eventOf(3)), HISTORY_QUEUED);
            isPosted = true;
        });
    EXPECT_EQ(flush(300ms), HISTORY_BUSY);
    EXPECT_FALSE(isPosted);
    other.release();
    posting.join();
    EXPECT_EQ(flush(), HISTORY_OK);
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1,2,3");
}

TEST_F(FaultRecorderPostTest, InvalidEventIsNotQueued)
{
    open();
    EXPECT_EQ(recorder.post(eventOf(1ULL << 32U)), HISTORY_REFUSED);
    EXPECT_THAT(recorder.lastProblem(), HasSubstr("32 bits"));
    EXPECT_EQ(recorder.counters().queued, 0U);
}

TEST_F(FaultRecorderPostTest, NothingIsPostedOrFlushedWithoutAnOpenFile)
{
    EXPECT_EQ(recorder.post(eventOf(1)), HISTORY_INVALID_STATE);
    EXPECT_EQ(flush(), HISTORY_INVALID_STATE);
    open();
    EXPECT_EQ(recorder.close(), HISTORY_OK);
    EXPECT_EQ(recorder.post(eventOf(1)), HISTORY_INVALID_STATE);
    EXPECT_EQ(flush(), HISTORY_INVALID_STATE);
    EXPECT_THAT(recorder.lastProblem(), HasSubstr("not open"));
    EXPECT_EQ(value(kCountOfFaults), "0");
}

TEST_F(FaultRecorderPostTest, RecorderThatIsOpenedAgainPostsAgain)
{
    for (std::string const expected : {"1", "2", "3"})
    {
        open();
        post(1);
        EXPECT_EQ(recorder.close(), HISTORY_OK);
        EXPECT_EQ(value(kCountOfFaults), expected);
    }
}

TEST_F(FaultRecorderPostTest, OnlyTheEventThatTheFileRefusesIsLost)
{
    RecorderOptions options;
    options.onLost = [this](std::uint64_t count) { lost.push_back(count); };
    open(options);
    refuseModule("bad");
    {
        LockingProcess const other(path);
        post(2);
        EXPECT_EQ(recorder.post(eventOf(3, "bad")), HISTORY_QUEUED);
        EXPECT_EQ(recorder.post(eventOf(4)), HISTORY_QUEUED);
    }
    EXPECT_EQ(flush(), HISTORY_FAILED);
    EXPECT_EQ(left, 1U);
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1,2,4");
    EXPECT_EQ(flush(), HISTORY_OK) << "the loss was reported already";
    EXPECT_EQ(recorder.counters().queued, 0U);
    EXPECT_EQ(recorder.close(), HISTORY_FAILED);
    EXPECT_EQ(lost, std::vector<std::uint64_t>{1});
}

TEST_F(FaultRecorderPostTest, EventsThatATriggerRefusesAreLostEvenIfNoOtherEventIsStored)
{
    RecorderOptions options;
    options.queueLimit = 3;
    options.doesPostWait = true;
    open(options);
    refuseModule("bad");
    for (int i = 0; i < 10; ++i)
    {
        ASSERT_EQ(recorder.post(eventOf(1, "bad")), HISTORY_QUEUED) << recorder.lastProblem();
    }
    EXPECT_EQ(recorder.post(eventOf(1, "good")), HISTORY_QUEUED) << recorder.lastProblem();
    EXPECT_EQ(flush(), HISTORY_FAILED);
    EXPECT_EQ(left, 10U);
    EXPECT_EQ(value("SELECT group_concat(ModuleName) FROM FdbFaultTbl"), "good");
}

TEST_F(FaultRecorderPostTest, FlushReportsAnEventThatWasLostBefore)
{
    open();
    refuseModule("bad");
    {
        LockingProcess const other(path);
        post(1);
        EXPECT_EQ(recorder.post(eventOf(2, "bad")), HISTORY_QUEUED);
    }
    auto const end = std::chrono::steady_clock::now() + 30s;
    while (recorder.counters().queued > 0 && std::chrono::steady_clock::now() < end)
    {
        std::this_thread::yield();
    }
    EXPECT_EQ(flush(), HISTORY_FAILED);
    EXPECT_EQ(left, 1U);
}

TEST_F(FaultRecorderPostTest, StorageThatIsFullAfterTheFirstOfSeveralCommitsLosesNothing)
{
    createWithFacade();
    expectSuccess(startChild(
        [this]
        {
            std::signal(SIGXFSZ, SIG_IGN);
            RecorderOptions options;
            options.onLost = [](std::uint64_t count) { ADD_FAILURE() << count << " are lost"; };
            FaultRecorder own;
            ASSERT_EQ(own.open(path, options), HISTORY_OK);
            rlimit limit = {};
            ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
            limit.rlim_cur = 1'700'000; // The events need 2.4 MB, in three commits of up to 1 MB.
            ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
            FaultEvent event = eventOf(1);
            event.description.assign(8000, 'x');
            {
                LockingProcess const other(path);
                for (int i = 0; i < 300; ++i)
                {
                    ASSERT_EQ(own.post(event), HISTORY_QUEUED);
                }
            }
            int result = HISTORY_BUSY;
            while (result == HISTORY_BUSY) // The first commits have not ended yet.
            {
                result = own.flush(left, 500ms);
            }
            EXPECT_EQ(result, HISTORY_FAILED);
            EXPECT_GT(left, 0U);
            EXPECT_LT(left, 300U);
            EXPECT_EQ(std::to_string(300 - left), value(kCountOfFaults));
            limit.rlim_cur = limit.rlim_max;
            ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
            EXPECT_EQ(own.flush(left, 60s), HISTORY_OK);
            EXPECT_EQ(left, 0U);
            EXPECT_EQ(own.close(), HISTORY_OK);
        }));
    EXPECT_EQ(value(kCountOfFaults), "300");
    EXPECT_EQ(statistic(1, "OccurenceCnt"), "300");
}

TEST_F(FaultRecorderPostTest, CancellingEndsWaitsForTheQueueAndLosesNothing)
{
    createWithFacade();
    RecorderOptions options;
    Waiters::watch(options);
    options.queueLimit = 1;
    options.doesPostWait = true;
    open(options);
    {
        LockingProcess const other(path);
        EXPECT_EQ(recorder.post(eventOf(1)), HISTORY_QUEUED);
        Waiters::cancel();
        EXPECT_EQ(recorder.post(eventOf(2)), HISTORY_CANCELLED);
        EXPECT_THAT(recorder.lastProblem(), testing::HasSubstr("room"));
        EXPECT_EQ(recorder.flush(left, std::chrono::minutes(10)), HISTORY_CANCELLED);
        EXPECT_EQ(left, 1U);
    }
    EXPECT_EQ(recorder.close(), HISTORY_OK) << recorder.lastProblem();
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1");
    Waiters::reset();
}

} // namespace
