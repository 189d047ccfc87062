// Counting events above the limit, with simulated time.

#include "history/RecorderFixtures.h"

#include <history/internal/Storms.h>

namespace
{

using namespace firaim;
using namespace std::chrono_literals;

constexpr unsigned int kBurst = 60;
constexpr unsigned int kPerMinute = 6;
constexpr std::int64_t kWallBegin = 1'772'366'400'000;

class StormsTest : public testing::Test
{
protected:
    Storms::TimePoint at(std::chrono::milliseconds time) const { return m_begin + time; }

    bool admits(FaultEvent const& event, std::chrono::milliseconds time)
    {
        return storms.admits(event, kWallBegin + time.count(), ++order, at(time));
    }

    /// Uses up the burst of the triple of `event`.
    void exhaust(FaultEvent const& event, std::chrono::milliseconds time)
    {
        for (unsigned int i = 0; i < kBurst; ++i)
        {
            ASSERT_TRUE(admits(event, time)) << i;
        }
    }

    std::vector<Storms::Report> take(std::chrono::milliseconds time, bool isEnding = false)
    {
        return storms.take(at(time), isEnding);
    }

    Storms::TimePoint const m_begin{std::chrono::hours(1000)};
    std::uint64_t order = 0;
    Storms storms{kBurst, kPerMinute};
};

TEST_F(StormsTest, BurstIsAdmittedAndThenTheRatePerMinute)
{
    exhaust(eventOf(1), 0s);
    EXPECT_FALSE(admits(eventOf(1), 0s));
    EXPECT_FALSE(admits(eventOf(1), 9990ms));
    EXPECT_TRUE(admits(eventOf(1), 10001ms));
    EXPECT_FALSE(admits(eventOf(1), 10002ms));
    EXPECT_TRUE(admits(eventOf(1), 20002ms));
    EXPECT_FALSE(admits(eventOf(1), 20003ms));
}

TEST_F(StormsTest, WithoutABurstEverythingIsAdmitted)
{
    Storms unlimited(0, kPerMinute);
    for (int i = 0; i < 100000; ++i)
    {
        ASSERT_TRUE(unlimited.admits(eventOf(1), kWallBegin, ++order, at(0s)));
    }
    EXPECT_FALSE(unlimited.deadline());
}

TEST_F(StormsTest, RateOfNoRowsIsTakenForOneAMinute)
{
    Storms slow(1, 0);
    EXPECT_TRUE(slow.admits(eventOf(1), kWallBegin, ++order, at(0s)));
    EXPECT_FALSE(slow.admits(eventOf(1), kWallBegin, ++order, at(59s)));
    EXPECT_TRUE(slow.admits(eventOf(1), kWallBegin, ++order, at(61s)));
}

TEST_F(StormsTest, ReportThatWasNotStoredKeepsItsEventEvenIfItsTripleWasForgotten)
{
    Storms small(1, kPerMinute);
    EXPECT_TRUE(small.admits(eventOf(7, "m", "p"), kWallBegin, ++order, at(0s)));
    EXPECT_FALSE(small.admits(eventOf(7, "m", "p"), kWallBegin, ++order, at(0s)));
    std::vector<Storms::Report> const first = small.take(at(1min), true);
    ASSERT_EQ(first.size(), 1U);
    for (std::uint64_t code = 100; code < 20100; ++code)
    {
        ASSERT_TRUE(small.admits(eventOf(code), kWallBegin, ++order, at(1min)));
    }
    small.putBack(first[0], at(1min));
    std::vector<Storms::Report> const again = small.take(at(1min), true);
    ASSERT_EQ(again.size(), 1U);
    EXPECT_EQ(again[0].event.code, 7U);
    EXPECT_EQ(again[0].event.module, "m");
    EXPECT_EQ(again[0].total.events, 1U);
}

TEST_F(StormsTest, LongPauseGivesNoMoreThanTheBurst)
{
    exhaust(eventOf(1), 0s);
    std::chrono::milliseconds const later = 24h * 365;
    exhaust(eventOf(1), later);
    EXPECT_FALSE(admits(eventOf(1), later));
}

TEST_F(StormsTest, EachTripleHasALimitOfItsOwn)
{
    exhaust(eventOf(1, "a", "b"), 0s);
    for (FaultEvent const& other :
         {eventOf(2, "a", "b"), eventOf(1, "c", "b"), eventOf(1, "a", "c"), eventOf(1, "ab", ""), eventOf(1, "", "ab")})
    {
        SCOPED_TRACE(std::to_string(other.code) + other.module + ',' + other.parameter);
        exhaust(other, 0s);
        EXPECT_FALSE(admits(other, 0s));
    }
    FaultEvent inactive = eventOf(1, "a", "b");
    inactive.status = FAULT_INACTIVE;
    EXPECT_FALSE(admits(inactive, 0s)) << "the status is not part of the triple";
}

TEST_F(StormsTest, HourOfEventsAdmitsExactlyTheRate)
{
    struct
    {
        std::chrono::milliseconds interval;
        std::uint64_t admitted;
    } const cases[] = {{1ms, 60 + 360}, {7ms, 60 + 360}, {100ms, 60 + 360}, {9s, 60 + 340}, {10s, 360}};
    FaultEvent const event = eventOf(1);
    for (auto const& c : cases)
    {
        SCOPED_TRACE(c.interval.count());
        Storms one(kBurst, kPerMinute);
        std::uint64_t admitted = 0;
        std::uint64_t refused = 0;
        for (std::chrono::milliseconds time = 0s; time < 1h; time += c.interval)
        {
            bool const isAdmitted = one.admits(event, kWallBegin, ++order, at(time));
            ++(isAdmitted ? admitted : refused);
        }
        EXPECT_LE(admitted, c.admitted);
        EXPECT_GE(admitted + 1, c.admitted);
        std::vector<Storms::Report> const reports = one.take(at(1h), true);
        EXPECT_EQ(reports.empty() ? 0 : reports.front().total.events, refused);
    }
}

TEST_F(StormsTest, ReportCountsAllAndTheActiveOnesFromFirstToLast)
{
    exhaust(eventOf(1), 0s);
    FaultEvent event = eventOf(1);
    for (int i = 0; i < 10; ++i)
    {
        event.status = i % 3 == 0 ? FAULT_ACTIVE : FAULT_INACTIVE;
        event.description = std::to_string(i);
        EXPECT_FALSE(admits(event, std::chrono::milliseconds(10 + i)));
    }
    auto const reports = take(100ms);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].event.description, "9");
    EXPECT_EQ(reports[0].uncounted.events, 10U);
    EXPECT_EQ(reports[0].uncounted.actives, 4U);
    EXPECT_EQ(reports[0].uncounted.firstTime, kWallBegin + 10);
    EXPECT_EQ(reports[0].uncounted.lastTime, kWallBegin + 19);
    EXPECT_FALSE(reports[0].isOver);
}

TEST_F(StormsTest, NothingIsReportedTwice)
{
    exhaust(eventOf(1), 0s);
    EXPECT_FALSE(admits(eventOf(1), 1ms));
    EXPECT_EQ(take(2ms).size(), 1U);
    EXPECT_EQ(take(3ms).size(), 0U);
    EXPECT_FALSE(admits(eventOf(1), 4ms));
    auto const ended = take(5ms, true);
    ASSERT_EQ(ended.size(), 1U);
    EXPECT_EQ(ended[0].uncounted.events, 1U);
    EXPECT_EQ(ended[0].total.events, 2U);
    EXPECT_TRUE(ended[0].isOver);
    EXPECT_EQ(take(6ms, true).size(), 0U);
    EXPECT_EQ(take(1h).size(), 0U);
    EXPECT_FALSE(storms.deadline());
}

TEST_F(StormsTest, CountsAreDueWithinASecond)
{
    EXPECT_FALSE(storms.deadline());
    exhaust(eventOf(1), 0s);
    EXPECT_FALSE(storms.deadline()) << "no event was counted";
    for (std::chrono::milliseconds time = 1s; time < 3s; time += 1ms)
    {
        EXPECT_FALSE(admits(eventOf(1), time));
        ASSERT_TRUE(storms.deadline());
        ASSERT_GT(*storms.deadline(), at(1s));
        ASSERT_LT(*storms.deadline(), at(2s));
    }
}

TEST_F(StormsTest, StormIsOverWhenNothingWasCountedForTheTimeOfOneRow)
{
    exhaust(eventOf(1), 0s);
    EXPECT_FALSE(admits(eventOf(1), 1s));
    EXPECT_FALSE(take(2s).at(0).isOver);
    EXPECT_EQ(storms.deadline(), at(11s));
    EXPECT_FALSE(admits(eventOf(1), 3s));
    EXPECT_FALSE(take(4s).at(0).isOver);
    EXPECT_EQ(storms.deadline(), at(13s));
    EXPECT_EQ(take(12999ms).size(), 0U);
    auto const reports = take(13s);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_TRUE(reports[0].isOver);
    EXPECT_EQ(reports[0].uncounted.events, 0U);
    EXPECT_EQ(reports[0].total.events, 2U);
    EXPECT_FALSE(storms.deadline());
}

TEST_F(StormsTest, ReportThatCouldNotBeStoredIsRepeatedWithLaterEvents)
{
    exhaust(eventOf(1), 0s);
    EXPECT_FALSE(admits(eventOf(1), 1ms));
    auto const first = take(2ms, true);
    EXPECT_FALSE(admits(eventOf(1), 3ms));
    ASSERT_EQ(first.size(), 1U);
    storms.putBack(first[0], at(4ms));
    ASSERT_TRUE(storms.deadline());
    EXPECT_LT(*storms.deadline(), at(1004ms));
    auto const again = take(5ms, true);
    ASSERT_EQ(again.size(), 1U);
    EXPECT_EQ(again[0].uncounted.events, 2U);
    EXPECT_EQ(again[0].uncounted.actives, 2U);
    EXPECT_EQ(again[0].total.events, 2U);
    EXPECT_EQ(again[0].total.firstTime, kWallBegin + 1);
    EXPECT_EQ(again[0].total.lastTime, kWallBegin + 3);
    EXPECT_EQ(take(6ms, true).size(), 0U);
}

TEST_F(StormsTest, ReportThatCouldNotBeStoredIsRepeatedWithoutLaterEvents)
{
    exhaust(eventOf(1), 0s);
    FaultEvent event = eventOf(1);
    event.description = "last";
    EXPECT_FALSE(admits(event, 1ms));
    for (bool const isEnding : {false, true})
    {
        auto const reports = take(2ms, isEnding);
        ASSERT_EQ(reports.size(), 1U);
        storms.putBack(reports[0], at(3ms));
    }
    auto const again = take(1h);
    ASSERT_EQ(again.size(), 1U);
    EXPECT_EQ(again[0].event.description, "last");
    EXPECT_EQ(again[0].uncounted.events, 1U);
    EXPECT_EQ(again[0].total.events, 1U) << "an event that was restored twice was counted once";
    EXPECT_TRUE(again[0].isOver);
}

TEST_F(StormsTest, RowOfAStormHasTheStatusThatWasSetLast)
{
    exhaust(eventOf(1), 0s);
    EXPECT_FALSE(admits(eventOf(1), 1ms));
    storms.stateSet(eventOf(1), FAULT_INACTIVE, ++order);
    EXPECT_EQ(take(2ms, true).at(0).event.status, FAULT_INACTIVE) << "the edge is newer than the count";

    EXPECT_FALSE(admits(eventOf(1), 3ms));
    EXPECT_EQ(take(4ms, true).at(0).event.status, FAULT_ACTIVE) << "the count is newer than the edge";

    EXPECT_FALSE(admits(eventOf(1), 5ms));
    FaultEvent inactive = eventOf(1);
    inactive.status = FAULT_INACTIVE;
    EXPECT_TRUE(admits(inactive, 11s));
    EXPECT_EQ(storms.statusOf(eventOf(1)), FAULT_ACTIVE) << "storing the row may still fail";
    storms.stateSet(inactive, FAULT_INACTIVE, order);
    EXPECT_EQ(take(12s, true).at(0).event.status, FAULT_INACTIVE) << "the row is newer than the count";
}

TEST_F(StormsTest, RowThatWasRequestedBeforeTheLastCountDoesNotChangeItsStatus)
{
    exhaust(eventOf(1), 0s);
    std::uint64_t const before = ++order;
    EXPECT_FALSE(admits(eventOf(1), 1ms));
    storms.stateSet(eventOf(1), FAULT_INACTIVE, before);
    EXPECT_EQ(storms.countedStatusOf(eventOf(1)), FAULT_ACTIVE);
    EXPECT_EQ(take(2ms, true).at(0).event.status, FAULT_ACTIVE);
    EXPECT_EQ(storms.countedStatusOf(eventOf(1)), std::nullopt) << "the storm's row was stored";
}

TEST_F(StormsTest, ClearingACodeAffectsOnlyItsTriples)
{
    for (FaultEvent const& event : {eventOf(1, "a"), eventOf(2, ""), eventOf(2, "b"), eventOf(3, "c")})
    {
        exhaust(event, 0s);
        EXPECT_FALSE(admits(event, 1ms));
    }
    storms.codeCleared(2, ++order);
    for (auto const& report : take(2ms, true))
    {
        EXPECT_EQ(report.event.status, report.event.code == 2 ? FAULT_INACTIVE : FAULT_ACTIVE) << report.event.code;
    }
}

TEST_F(StormsTest, TriplesWithNothingToReportAreForgotten)
{
    for (std::uint64_t code = 0; code < 200000; ++code)
    {
        ASSERT_TRUE(admits(eventOf(code), std::chrono::milliseconds(10 * code)));
    }
    EXPECT_LE(storms.m_buckets.size(), 20001U);
}

TEST_F(StormsTest, CountsOfManyTriplesSurviveForgetting)
{
    constexpr std::uint64_t kTriples = 30000;
    Storms one(1, kPerMinute);
    for (std::uint64_t code = 0; code < kTriples; ++code)
    {
        ASSERT_TRUE(one.admits(eventOf(code), kWallBegin, ++order, at(0s)));
        ASSERT_FALSE(one.admits(eventOf(code), kWallBegin, ++order, at(0s)));
    }
    std::vector<Storms::Report> const reports = one.take(at(1h), true);
    EXPECT_EQ(reports.size(), kTriples);
}

/// 10,000 events a second for a minute; counts are stored as soon as they are due.
TEST_F(StormsTest, MinuteOfTenThousandEventsASecondTakesAtMost130Commits)
{
    constexpr std::uint64_t kEvents = 600'000;
    std::uint64_t commits = 0;
    std::uint64_t rows = 0;
    std::uint64_t counted = 0;
    std::uint64_t toldAtEnd = 0;
    auto const store = [&](Storms::TimePoint now, bool isEnding)
    {
        ++commits;
        for (auto const& report : storms.take(now, isEnding))
        {
            counted += report.uncounted.events;
            toldAtEnd += report.isOver ? report.total.events : 0;
        }
    };
    Storms::TimePoint now = m_begin;
    for (std::uint64_t i = 0; i < kEvents; ++i)
    {
        now = m_begin + i * 100us;
        if (storms.deadline() && *storms.deadline() <= now)
        {
            store(now, false);
        }
        bool const isRow = storms.admits(eventOf(1), kWallBegin, ++order, now);
        rows += isRow ? 1 : 0;
        commits += isRow ? 1 : 0;
    }
    store(now, true);
    EXPECT_LE(commits, 130U);
    EXPECT_EQ(rows + counted, kEvents);
    EXPECT_EQ(toldAtEnd, counted);
}

} // namespace
