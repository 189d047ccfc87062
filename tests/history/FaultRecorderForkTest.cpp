// A recorder in a process that forks.

#include "RecorderFixtures.h"
#include "Waiters.h"

#include <new>
#include <thread>

namespace
{

using namespace firaim;

class FaultRecorderForkTest : public FaultRecorderTest
{
};

TEST_F(FaultRecorderForkTest, ForkedChildCannotUseTheRecorderAndLeavesItToTheParent)
{
    open();
    ASSERT_EQ(recorder.raise(eventOf(1)).result, HISTORY_OK);
    pid_t const child = startChild(
        [this]
        {
            FaultRecorder inherited;
            std::vector<unsigned long long> keys;
            std::vector<Receipt> receipts;
            EXPECT_EQ(recorder.open(path), HISTORY_INVALID_STATE);
            EXPECT_EQ(recorder.record(eventOf(2)).result, HISTORY_INVALID_STATE);
            EXPECT_EQ(recorder.clear(eventOf(1)).result, HISTORY_INVALID_STATE);
            EXPECT_EQ(recorder.clearCode(eventOf(1), keys), HISTORY_INVALID_STATE);
            EXPECT_EQ(recorder.recordAll({eventOf(1), eventOf(2)}, receipts), HISTORY_INVALID_STATE);
            EXPECT_EQ(recorder.endCycle(), HISTORY_INVALID_STATE);
            std::uint64_t left = 99;
            EXPECT_EQ(recorder.flush(left), HISTORY_INVALID_STATE);
            EXPECT_EQ(left, 0U);
            EXPECT_EQ(recorder.close(), HISTORY_INVALID_STATE);
            EXPECT_EQ(recorder.startupId(), 0U);
            recorder.~FaultRecorder();
            new (&recorder) FaultRecorder;
            EXPECT_EQ(recorder.open(path), HISTORY_OK) << recorder.lastProblem();
            EXPECT_EQ(recorder.raise(eventOf(1)).result, HISTORY_UNCHANGED);
            EXPECT_EQ(recorder.record(eventOf(3)).result, HISTORY_OK);
        });
    expectSuccess(child);
    EXPECT_EQ(recorder.clear(eventOf(1)).result, HISTORY_OK) << recorder.lastProblem();
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1,3,1");
    EXPECT_EQ(value("PRAGMA integrity_check"), "ok");
}

TEST_F(FaultRecorderForkTest, ReceiptsOfAChildSayThatNothingWasRecorded)
{
    open();
    expectSuccess(startChild(
        [this]
        {
            std::vector<Receipt> receipts(7);
            EXPECT_EQ(recorder.recordAll({eventOf(1), eventOf(2)}, receipts), HISTORY_INVALID_STATE);
            EXPECT_EQ(receipts.size(), 2U) << "one for each event";
        }));
}

TEST_F(FaultRecorderForkTest, ChildOfAProcessThatIsRecordingTakesNoLock)
{
    RecorderOptions options;
    Waiters::watch(options);
    open(options);
    LockingProcess other(path);
    Receipt receipt;
    std::thread recording([&] { receipt = recorder.record(eventOf(1), std::chrono::minutes(1)); });
    Waiters::waitFor(1);
    pid_t const child = startChild(
        [this]
        {
            EXPECT_EQ(recorder.record(eventOf(2)).result, HISTORY_INVALID_STATE);
            EXPECT_EQ(recorder.counters().recorded, 0U);
            EXPECT_EQ(recorder.lastProblem(), "");
            recorder.~FaultRecorder();
            new (&recorder) FaultRecorder;
        });
    expectSuccess(child);
    other.release();
    recording.join();
    EXPECT_EQ(receipt.result, HISTORY_OK);
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1");
}

} // namespace
