#include <tool/values/Timeline.h>

#include <gtest/gtest.h>

using namespace tool;

namespace
{

std::string shownPeriods(std::initializer_list<char const*> times, std::size_t most)
{
    Timeline timeline;
    for (char const* const time : times)
    {
        timeline.add(parseTime(time, {})->begin);
    }
    std::string text;
    for (auto const& period : timeline.periods(most))
    {
        text += periodText(period, {}) + "=" + std::to_string(period.count) + " ";
    }
    return text;
}

} // namespace

TEST(TimelinePeriods, AreRoundAndAsFewAsAskedFor)
{
    EXPECT_EQ(shownPeriods({}, 4), "");
    EXPECT_EQ(shownPeriods({"2031-05-04T03:02:01.7Z"}, 4), "2031-05-04T03:02:01=1 ");
    EXPECT_EQ(shownPeriods({"2031-05-04T03:02:01Z", "2031-05-04T03:02:09Z"}, 4),
              "2031-05-04T03:02:00=1 2031-05-04T03:02:05=1 ");
    EXPECT_EQ(shownPeriods({"2031-05-04T23:59Z", "2031-05-05T00:00Z"}, 2), "2031-05-04T23:59=1 2031-05-05T00:00=1 ");
    EXPECT_EQ(shownPeriods({"2031-05-05", "2031-05-11T23:59Z", "2031-05-12"}, 3), "2031-05-05=2 2031-05-12=1 ");
    EXPECT_EQ(shownPeriods({"2031-01-31", "2031-04-01"}, 4), "2031-01-01=1 2031-02-01=0 2031-03-01=0 2031-04-01=1 ");
    EXPECT_EQ(shownPeriods({"1969-12-31", "2031-04-01"}, 9),
              "1960-01-01=1 1970-01-01=0 1980-01-01=0 1990-01-01=0 2000-01-01=0 2010-01-01=0 2020-01-01=0 "
              "2030-01-01=1 ");
}

TEST(TimelinePeriods, CountEveryMomentOnceHoweverMany)
{
    Timeline timeline;
    for (std::int64_t i = 0; i < 100000; ++i)
    {
        timeline.add(1900000000000 + i * i % 1000003 * 60000);
    }
    unsigned long long count = 0;
    for (auto const& period : timeline.periods(12))
    {
        count += period.count;
    }
    EXPECT_EQ(count, 100000u);
}

TEST(DurationText, HasTwoUnitsAtMost)
{
    EXPECT_EQ(durationText(0), "less than 1 s");
    EXPECT_EQ(durationText(59999), "59 s");
    EXPECT_EQ(durationText(60000), "1 min");
    EXPECT_EQ(durationText(3661000), "1 h 1 min");
    EXPECT_EQ(durationText(90000000), "1 d 1 h");
}
