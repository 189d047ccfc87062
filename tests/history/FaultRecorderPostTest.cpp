// Posted events: the queue, the thread behind it, and what becomes of them when the file cannot be written.

#include "RecorderFixtures.h"
#include "Waiters.h"

#include <atomic>
#include <csignal>
#include <optional>
#include <thread>

#include <sys/resource.h>

namespace
{

using namespace firaim;
using namespace std::chrono_literals;
using testing::HasSubstr;

class FaultRecorderPostTest : public FaultRecorderTest
{
protected:
    int flush(FaultRecorder::patience_t patience = FaultRecorder::kPatience) { return recorder.flush(left, patience); }

    void post(std::uint64_t count, std::string const& description = {})
    {
        for (std::uint64_t i = 0; i < count; ++i)
        {
            FaultEvent event = eventOf(1 + i);
            event.description = description;
            ASSERT_EQ(recorder.post(event), HISTORY_QUEUED) << recorder.lastProblem();
        }
    }

    /// Rows of that module fail by a rule of the file.
    void refuseModule(std::string const& module) const
    {
        exec("CREATE TRIGGER refuse BEFORE INSERT ON FdbFaultTbl WHEN new.ModuleName = '" + module +
             "' BEGIN SELECT RAISE(ABORT, 'not this one'); END");
    }

    std::uint64_t left = 99;
    std::vector<std::uint64_t> told; ///< to the handler of lost events
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
    rows_t const found = rows("SELECT ModuleName FROM FdbFaultTbl ORDER BY EntryId");
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
    std::optional<LockingProcess> other;
    other.emplace(path);
    post(1);
    FaultEvent const early = eventOf(2);
    EXPECT_EQ(recorder.post(early), HISTORY_QUEUED);
    EXPECT_EQ(flush(50ms), HISTORY_BUSY);
    EXPECT_EQ(left, 2U);
    EXPECT_THAT(recorder.lastProblem(), HasSubstr(path));
    EXPECT_EQ(recorder.counters().queued, 2U);
    other.reset();
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

TEST_F(FaultRecorderPostTest, QueueHoldsAThousandAnd24ByDefault)
{
    open();
    LockingProcess const other(path);
    post(1024);
    EXPECT_EQ(recorder.post(eventOf(1)), HISTORY_QUEUE_FULL);
}

TEST_F(FaultRecorderPostTest, ByOptionPostWaitsForRoom)
{
    RecorderOptions options;
    options.queueLimit = 2;
    options.doesPostWait = true;
    open(options);
    std::optional<LockingProcess> other;
    other.emplace(path);
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
    other.reset();
    posting.join();
    EXPECT_EQ(flush(), HISTORY_OK);
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1,2,3");
}

TEST_F(FaultRecorderPostTest, EventThatCannotBeWhatIsMeantIsNotTaken)
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

TEST_F(FaultRecorderPostTest, EventThatTheFileRefusesIsLostAndThoseBesideItAreNot)
{
    RecorderOptions options;
    options.onLost = [this](std::uint64_t count) { told.push_back(count); };
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
    EXPECT_EQ(flush(), HISTORY_OK) << "it has been told";
    EXPECT_EQ(recorder.counters().queued, 0U);
    EXPECT_EQ(recorder.close(), HISTORY_FAILED);
    EXPECT_EQ(told, std::vector<std::uint64_t>{1});
}

TEST_F(FaultRecorderPostTest, EventsThatARuleOfTheFileForbidsAreLostThoughNothingElseIsStoredBesideThem)
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

TEST_F(FaultRecorderPostTest, EventThatWasLostBeforeTheFlushIsToldByIt)
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
            limit.rlim_cur = 1'700'000; // Of 2.4 MB, which take three commits of up to 1 MB.
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
            EXPECT_EQ(own.flush(left, 1500ms), HISTORY_FAILED);
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

TEST_F(FaultRecorderPostTest, CloseTellsTheHandlerWhatIsLostAndTheHandlerMayCallTheRecorder)
{
    createWithFacade();
    RecorderOptions options;
    options.onLost = [this](std::uint64_t count)
    {
        told.push_back(count);
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
    EXPECT_GE(time, 4900ms);
    EXPECT_LT(time, 9s);
    EXPECT_EQ(told, std::vector<std::uint64_t>{7});
}

TEST_F(FaultRecorderPostTest, WaitingPostsEndWhenTheRecorderIsClosed)
{
    RecorderOptions options;
    options.queueLimit = 1;
    options.doesPostWait = true;
    open(options);
    std::optional<LockingProcess> other;
    other.emplace(path);
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
    other.reset();
    closing.join();
    EXPECT_EQ(value(kCountOfFaults), "1");
}

TEST_F(FaultRecorderPostTest, FlushTellsOfWhatAnotherThreadLosesByClosing)
{
    Waiters::reset();
    RecorderOptions options;
    options.isCancelled = Waiters::isCancelled;
    open(options);
    LockingProcess const other(path);
    post(2);
    int result = HISTORY_OK;
    std::thread flusher([&] { result = flush(1min); });
    Waiters::waitFor(2); // This one and the recorder's own thread.
    EXPECT_EQ(recorder.close(0ms), HISTORY_FAILED);
    flusher.join();
    EXPECT_LT(result, 0);
    EXPECT_EQ(left, 2U);
}

TEST_F(FaultRecorderPostTest, FlushThatOutlivesClosingAndOpeningAgainFails)
{
    Waiters::reset();
    RecorderOptions options;
    options.isCancelled = Waiters::isCancelled;
    open(options);
    std::optional<LockingProcess> other;
    other.emplace(path);
    post(3);
    int result = HISTORY_OK;
    std::thread flusher([&] { result = flush(1min); });
    Waiters::waitFor(2); // This one and the recorder's own thread.
    EXPECT_EQ(recorder.close(0ms), HISTORY_FAILED);
    other.reset();
    open(options);
    flusher.join();
    EXPECT_LT(result, 0);
    EXPECT_LE(left, 3U);
}

TEST_F(FaultRecorderPostTest, ClosingRefusesCallsWhileItRecordsWhatWasPosted)
{
    open();
    std::optional<LockingProcess> other;
    other.emplace(path);
    post(1);
    std::thread closer([&] { EXPECT_EQ(recorder.close(1min), HISTORY_OK) << recorder.lastProblem(); });
    while (recorder.record(eventOf(2), 0ms).result != HISTORY_INVALID_STATE)
    {
        std::this_thread::yield();
    }
    EXPECT_EQ(recorder.endCycle(0ms), HISTORY_INVALID_STATE);
    other.reset();
    closer.join();
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1");
}

TEST_F(FaultRecorderPostTest, CloseWithoutPatienceTellsWhatTheFileHolds)
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

TEST_F(FaultRecorderPostTest, OneOfSeveralThreadsCloses)
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

TEST_F(FaultRecorderPostTest, WaitingForRoomAndClosingTakeAsLongAsTheirPatienceSays)
{
    createWithFacade();
    RecorderOptions options;
    options.queueLimit = 1;
    options.doesPostWait = true;
    std::uint64_t lost = 0;
    options.onLost = [&lost](std::uint64_t count) { lost += count; };
    open(options);
    LockingProcess const other(path);
    EXPECT_EQ(recorder.post(eventOf(1)), HISTORY_QUEUED);
    EXPECT_EQ(recorder.post(eventOf(2), std::chrono::milliseconds(20)), HISTORY_QUEUE_FULL);
    EXPECT_EQ(recorder.close(std::chrono::milliseconds(20)), HISTORY_FAILED);
    EXPECT_EQ(lost, 1U);
}

TEST_F(FaultRecorderPostTest, CancellingEndsWaitsForTheQueueAndLosesNothing)
{
    createWithFacade();
    Waiters::reset();
    RecorderOptions options;
    options.isCancelled = Waiters::isCancelled;
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
