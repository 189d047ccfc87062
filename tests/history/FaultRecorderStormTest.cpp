// Storms: events that a recorder counts instead of writing a row for each.

#include "RecorderFixtures.h"
#include "Waiters.h"

#include <thread>

namespace
{

using namespace firaim;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

constexpr unsigned int kBurst = 3;

class FaultRecorderStormTest : public FaultRecorderTest
{
protected:
    /// Opens a recorder whose limit allows a triple no further row during the test.
    void openLimited() { open(limited()); }
    static RecorderOptions limited()
    {
        RecorderOptions options;
        options.stormBurst = kBurst;
        options.stormRowsPerMinute = 1;
        return options;
    }

    void exhaust(FaultEvent const& event)
    {
        for (unsigned int i = 0; i < kBurst; ++i)
        {
            ASSERT_EQ(recorder.record(event).result, HISTORY_OK);
        }
    }

    void flush()
    {
        std::uint64_t left = 1;
        EXPECT_EQ(recorder.flush(left), HISTORY_OK) << recorder.lastProblem();
        EXPECT_EQ(left, 0U);
    }

    std::string newest(std::string const& column) const
    {
        return value("SELECT " + column + " FROM FdbFaultTbl ORDER BY EntryId DESC LIMIT 1");
    }
};

TEST_F(FaultRecorderStormTest, WithoutTheOptionEveryEventGetsARow)
{
    open();
    std::vector<Receipt> receipts;
    EXPECT_EQ(recorder.recordAll(std::vector<FaultEvent>(2000, eventOf(1)), receipts), HISTORY_OK);
    EXPECT_EQ(value(kCountOfFaults), "2000");
    EXPECT_EQ(recorder.counters().counted, 0U);
}

TEST_F(FaultRecorderStormTest, EventsBeyondTheBurstAreCountedAndTheFlushWritesOneRow)
{
    openLimited();
    exhaust(eventOf(1));
    for (int i = 0; i < 100; ++i)
    {
        Receipt const receipt = recorder.record(eventOf(1));
        ASSERT_EQ(receipt.result, HISTORY_COUNTED);
        ASSERT_EQ(receipt.key, 0U);
    }
    EXPECT_EQ(recorder.counters().counted, 100U);
    flush();
    EXPECT_EQ(value(kCountOfFaults), "4");
    EXPECT_EQ(statistic(1, "OccurenceCnt"), "103");
    EXPECT_EQ(statistic(1, "FaultActiveCycleCnt"), "103");
    EXPECT_EQ(statistic(1, "FaultEntryId"), "4");
    EXPECT_THAT(newest("Description"), AllOf(StartsWith("100 more from 20"), HasSubstr("Z to 20")));
    EXPECT_EQ(newest("FaultCode || ModuleName || Parameter || Status"), "1moduleparameterErrorActive");
    flush();
    EXPECT_EQ(value(kCountOfFaults), "4") << "no further event was counted";
    EXPECT_EQ(statistic(1, "OccurenceCnt"), "103");
}

TEST_F(FaultRecorderStormTest, CloseWritesTheRowOfTheStorm)
{
    openLimited();
    exhaust(eventOf(1));
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_COUNTED);
    EXPECT_EQ(recorder.close(), HISTORY_OK);
    EXPECT_EQ(value(kCountOfFaults), "4");
    EXPECT_EQ(statistic(1, "OccurenceCnt"), "4");
    EXPECT_THAT(newest("Description"), StartsWith("1 more from "));
}

TEST_F(FaultRecorderStormTest, CountIsOnTheStorageWithinASecondWithoutARow)
{
    openLimited();
    exhaust(eventOf(1));
    for (int i = 0; i < 50; ++i)
    {
        EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_COUNTED);
    }
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(30); // Enough for a busy machine.
    while (statistic(1, "OccurenceCnt") != "53" && std::chrono::steady_clock::now() < end)
    {
        std::this_thread::yield();
    }
    EXPECT_EQ(statistic(1, "OccurenceCnt"), "53");
    EXPECT_EQ(value(kCountOfFaults), "3") << "the storm is not over";
}

TEST_F(FaultRecorderStormTest, EdgesTakeNoTokensAndAreAlwaysStored)
{
    openLimited();
    exhaust(eventOf(1));
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_COUNTED);
    for (int i = 0; i < 20; ++i)
    {
        EXPECT_EQ(recorder.clear(eventOf(1)).result, HISTORY_OK);
        EXPECT_EQ(recorder.raise(eventOf(1)).result, HISTORY_OK);
    }
    EXPECT_EQ(value(kCountOfFaults), "43");
    for (int i = 0; i < 20; ++i)
    {
        EXPECT_EQ(recorder.raise(eventOf(2)).result, HISTORY_OK);
        EXPECT_EQ(recorder.clear(eventOf(2)).result, HISTORY_OK);
    }
    exhaust(eventOf(2));
}

TEST_F(FaultRecorderStormTest, RowOfTheStormDoesNotOverrideALaterEdge)
{
    openLimited();
    exhaust(eventOf(1));
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_COUNTED);
    EXPECT_EQ(recorder.clear(eventOf(1)).result, HISTORY_OK);
    flush();
    EXPECT_EQ(newest("Status"), "ErrorInactive");
    EXPECT_EQ(statistic(1, "FaultActive"), value("SELECT FaultActive FROM FdbFaultStatisticTbl"));
    EXPECT_EQ(recorder.clear(eventOf(1)).result, HISTORY_UNCHANGED);
    EXPECT_EQ(recorder.raise(eventOf(1)).result, HISTORY_OK);
}

TEST_F(FaultRecorderStormTest, RowOfTheStormDoesNotOverrideAnEdgeThatIsBeingStored)
{
    createWithFacade();
    RecorderOptions options = limited();
    Waiters::watch(options);
    open(options);
    exhaust(eventOf(1));
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_COUNTED);
    Waiters::reset();
    std::thread clearing;
    std::thread flushing;
    {
        LockingProcess const other(path);
        clearing = std::thread([this] { EXPECT_EQ(recorder.clear(eventOf(1)).result, HISTORY_OK); });
        Waiters::waitFor(1);
        flushing = std::thread([this] { flush(); });
        Waiters::waitFor(2); // The recorder's thread waits behind the edge, to write the row of the storm.
    }
    clearing.join();
    flushing.join();
    EXPECT_EQ(value("SELECT group_concat(Status) FROM (SELECT Status FROM FdbFaultTbl ORDER BY EntryId)"),
              "ErrorActive,ErrorActive,ErrorActive,ErrorInactive,ErrorInactive");
    EXPECT_EQ(recorder.clear(eventOf(1)).result, HISTORY_UNCHANGED);
}

TEST_F(FaultRecorderStormTest, RowOfTheStormDoesNotReactivateACodeThatWasClearedLater)
{
    openLimited();
    for (char const* const module : {"a", "b"})
    {
        exhaust(eventOf(1, module));
        EXPECT_EQ(recorder.record(eventOf(1, module)).result, HISTORY_COUNTED);
    }
    std::vector<unsigned long long> keys;
    EXPECT_EQ(recorder.clearCode(eventOf(1), keys), HISTORY_OK);
    EXPECT_EQ(keys.size(), 2U);
    flush();
    EXPECT_EQ(value(kCountOfFaults), "10");
    EXPECT_EQ(recorder.clearCode(eventOf(1), keys), HISTORY_UNCHANGED);
}

TEST_F(FaultRecorderStormTest, RowOfTheStormSetsTheStatusThatWasCountedLast)
{
    openLimited();
    exhaust(eventOf(1));
    FaultEvent inactive = eventOf(1);
    inactive.status = FAULT_INACTIVE;
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_COUNTED);
    EXPECT_EQ(recorder.record(inactive).result, HISTORY_COUNTED);
    flush();
    EXPECT_EQ(newest("Status"), "ErrorInactive");
    EXPECT_EQ(statistic(1, "OccurenceCnt"), "4") << "an inactive event is not an occurrence";
    EXPECT_EQ(recorder.clear(eventOf(1)).result, HISTORY_UNCHANGED);
}

TEST_F(FaultRecorderStormTest, EdgesConsiderCountedEvents)
{
    openLimited();
    FaultEvent const active = eventOf(1);
    FaultEvent inactive = active;
    inactive.status = FAULT_INACTIVE;
    exhaust(active);
    EXPECT_EQ(recorder.record(inactive).result, HISTORY_COUNTED);
    EXPECT_EQ(recorder.raise(active).result, HISTORY_OK) << "the triple was inactive";
    EXPECT_EQ(recorder.raise(active).result, HISTORY_UNCHANGED);
    EXPECT_EQ(statistic(1, "OccurenceCnt"), "4");
    EXPECT_EQ(recorder.clear(active).result, HISTORY_OK);
    EXPECT_EQ(recorder.record(active).result, HISTORY_COUNTED);
    EXPECT_EQ(recorder.clear(active).result, HISTORY_OK) << "the triple was active";
    EXPECT_EQ(recorder.clear(active).result, HISTORY_UNCHANGED);
    flush();
    EXPECT_EQ(newest("Status"), "ErrorInactive");
    EXPECT_EQ(statistic(1, "FaultActive || OccurenceCnt"), "inactive5");
}

TEST_F(FaultRecorderStormTest, EventThatWasNotStoredDoesNotChangeTheStatusOfTheStorm)
{
    RecorderOptions options = limited();
    options.queueLimit = 1;
    createWithFacade();
    open(options);
    FaultEvent inactive = eventOf(1);
    inactive.status = FAULT_INACTIVE;
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK);
    {
        LockingProcess const other(path);
        EXPECT_EQ(recorder.post(eventOf(2)), HISTORY_QUEUED);
        EXPECT_EQ(recorder.record(inactive, std::chrono::milliseconds(0)).result, HISTORY_BUSY);
        EXPECT_EQ(recorder.post(inactive), HISTORY_QUEUE_FULL);
        EXPECT_EQ(recorder.record(eventOf(1), std::chrono::milliseconds(0)).result, HISTORY_COUNTED);
        EXPECT_EQ(recorder.record(inactive, std::chrono::milliseconds(0)).result, HISTORY_COUNTED);
        EXPECT_EQ(recorder.record(eventOf(1), std::chrono::milliseconds(0)).result, HISTORY_COUNTED);
    }
    flush();
    EXPECT_EQ(value("SELECT group_concat(Status) FROM (SELECT Status FROM FdbFaultTbl WHERE FaultCode = 1 "
                    "ORDER BY EntryId)"),
              "ErrorActive,ErrorActive");
    EXPECT_EQ(statistic(1, "FaultActive || OccurenceCnt"), "active3");
}

TEST_F(FaultRecorderStormTest, EndOfACycleIncludesCountedAndPostedEvents)
{
    openLimited();
    exhaust(eventOf(1));
    EXPECT_EQ(recorder.endCycle(), HISTORY_OK);
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_COUNTED);
    EXPECT_EQ(recorder.post(eventOf(2)), HISTORY_QUEUED);
    EXPECT_EQ(recorder.endCycle(), HISTORY_OK);
    EXPECT_EQ(statistic(1, "OccurenceCnt || ' ' || FaultActiveCycleCnt"), "4 4");
    EXPECT_EQ(statistic(2, "OccurenceCnt || ' ' || FaultActiveCycleCnt"), "1 1");
    EXPECT_EQ(value(kCountOfFaults), "4") << "the storm is not over";
    EXPECT_EQ(recorder.endCycle(), HISTORY_OK);
    flush();
    EXPECT_EQ(statistic(1, "OccurenceCnt || ' ' || FaultActiveCycleCnt"), "4 5");
    EXPECT_EQ(statistic(2, "OccurenceCnt || ' ' || FaultActiveCycleCnt"), "1 2");
}

TEST_F(FaultRecorderStormTest, CountDoesNotChangeTheLastOccurrenceOfALaterRow)
{
    openLimited();
    FaultEvent event = eventOf(1);
    exhaust(event);
    *event.time += 1;
    EXPECT_EQ(recorder.record(event).result, HISTORY_COUNTED);
    EXPECT_EQ(recorder.clear(event).result, HISTORY_OK);
    *event.time += 1;
    EXPECT_EQ(recorder.raise(event).result, HISTORY_OK);
    flush();
    EXPECT_EQ(statistic(1, "TimeLastOccurredUTC"), std::to_string(*event.time));
    *event.time += 1;
    EXPECT_EQ(recorder.record(event).result, HISTORY_COUNTED);
    flush();
    EXPECT_EQ(statistic(1, "TimeLastOccurredUTC"), std::to_string(*event.time));
}

TEST_F(FaultRecorderStormTest, CountsThatCannotBeStoredAtCloseAreReportedAsLost)
{
    createWithFacade();
    RecorderOptions options = limited();
    std::uint64_t lost = 0;
    options.onLost = [&lost](std::uint64_t count) { lost += count; };
    open(options);
    exhaust(eventOf(1));
    exec("CREATE TRIGGER refuse BEFORE UPDATE ON FdbFaultStatisticTbl BEGIN SELECT RAISE(ABORT, 'no'); END");
    for (int i = 0; i < 100; ++i)
    {
        EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_COUNTED);
    }
    EXPECT_EQ(recorder.close(), HISTORY_FAILED);
    EXPECT_EQ(lost, 100U);
}

TEST_F(FaultRecorderStormTest, EventsOfOneCallAndPostedOnesAreLimitedTogether)
{
    openLimited();
    std::vector<Receipt> receipts;
    EXPECT_EQ(recorder.recordAll({eventOf(1), eventOf(2), eventOf(1), eventOf(1), eventOf(1)}, receipts),
              HISTORY_COUNTED);
    ASSERT_EQ(receipts.size(), 5U);
    EXPECT_EQ(receipts[3].result, HISTORY_OK);
    EXPECT_EQ(receipts[4].result, HISTORY_COUNTED);
    EXPECT_EQ(recorder.post(eventOf(1)), HISTORY_COUNTED);
    EXPECT_EQ(recorder.post(eventOf(2)), HISTORY_QUEUED);
    flush();
    EXPECT_EQ(statistic(1, "OccurenceCnt"), "5");
    EXPECT_EQ(statistic(2, "OccurenceCnt"), "2");
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl WHERE FaultCode = 1"), "4");
}

TEST_F(FaultRecorderStormTest, CountsWaitForALockedFileAndNoneIsLost)
{
    openLimited();
    exhaust(eventOf(1));
    {
        LockingProcess const other(path);
        for (int i = 0; i < 1000; ++i)
        {
            ASSERT_EQ(recorder.record(eventOf(1), std::chrono::milliseconds(0)).result, HISTORY_COUNTED);
        }
        std::uint64_t left = 1;
        EXPECT_EQ(recorder.flush(left, std::chrono::milliseconds(50)), HISTORY_BUSY);
        EXPECT_EQ(left, 0U) << "nothing was posted";
        EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_COUNTED);
    }
    flush();
    EXPECT_EQ(statistic(1, "OccurenceCnt"), "1004");
    EXPECT_EQ(value("SELECT sum(CAST(Description AS INTEGER)) FROM FdbFaultTbl WHERE Description LIKE '% more from %'"),
              "1001")
        << "the rows report each event once";
}

TEST_F(FaultRecorderStormTest, CounterOfALongStormStaysAtItsLargest)
{
    openLimited();
    exhaust(eventOf(1));
    for (int i = 0; i < 70000; ++i)
    {
        ASSERT_EQ(recorder.record(eventOf(1)).result, HISTORY_COUNTED);
    }
    flush();
    EXPECT_EQ(statistic(1, "OccurenceCnt"), "65535");
    EXPECT_THAT(newest("Description"), StartsWith("70000 more from "));
}

TEST_F(FaultRecorderStormTest, ManyThreadsLoseNoCount)
{
    openLimited();
    constexpr unsigned int kThreads = 4;
    constexpr unsigned int kEvents = 2000;
    std::vector<std::thread> threads;
    for (unsigned int thread = 0; thread < kThreads; ++thread)
    {
        threads.emplace_back(
            [this]
            {
                for (unsigned int i = 0; i < kEvents; ++i)
                {
                    EXPECT_GE(recorder.record(eventOf(1)).result, HISTORY_OK);
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(recorder.counters().counted, kThreads * kEvents - kBurst);
    EXPECT_EQ(recorder.close(), HISTORY_OK);
    EXPECT_EQ(statistic(1, "OccurenceCnt"), std::to_string(kThreads * kEvents));
    EXPECT_LT(recorder.counters().groups, 130U);
}

} // namespace
