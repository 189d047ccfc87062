#include <tool/values/Times.h>

#include <gtest/gtest.h>

using namespace tool;

TEST(ParseTime, ReadsIso8601AndReturnsThePeriodOfAText)
{
    struct
    {
        char const* text;
        std::int64_t begin;
        std::int64_t length;
    } const good[] = {
        {"1970-01-01", 0, 86400000},
        {"1970-01-01T00:01", 60000, 60000},
        {"1970-01-01T00:00:01", 1000, 1000},
        {"1970-01-01 00:00:01", 1000, 1000},
        {"1970-01-01T00:00:01Z", 1000, 1000},
        {"1970-01-01t00:00:01z", 1000, 1000},
        {"1970-01-01T00:00:01.5Z", 1500, 1},
        {"1970-01-01T00:00:01,25Z", 1250, 1},
        {"1970-01-01T00:00:01.123456789Z", 1123, 1},
        {"1970-01-01T01:00:00+01:00", 0, 1000},
        {"1970-01-01T01:00:00+0100", 0, 1000},
        {"1970-01-01T01:00:00+01", 0, 1000},
        {"1969-12-31T18:30:00-05:30", 0, 1000},
        {"2032-02-29", 1961625600000, 86400000},
        {"9999-12-31T23:59:59.999Z", 253402300799999, 1},
    };
    for (auto const& one : good)
    {
        auto const period = parseTime(one.text, {});
        ASSERT_TRUE(period) << one.text;
        EXPECT_EQ(period->begin, one.begin) << one.text;
        EXPECT_EQ(period->end - period->begin, one.length) << one.text;
    }
}

TEST(ParseTime, RefusesEverythingElse)
{
    for (char const* const bad : {"",
                                  "2031",
                                  "2031-05",
                                  "2031-5-4",
                                  "2031-13-01",
                                  "2031-00-01",
                                  "2031-02-29",
                                  "2031-04-31",
                                  "2031-05-04T",
                                  "2031-05-04T03",
                                  "2031-05-04T24:00",
                                  "2031-05-04T03:60",
                                  "2031-05-04T03:02:60",
                                  "2031-05-04T03:02:01.",
                                  "2031-05-04T03:02:01.x",
                                  "2031-05-04T03:02Zx",
                                  "2031-05-04T03:02+1",
                                  "2031-05-04T03:02+24:00",
                                  "2031-05-04T03:02+01:60",
                                  "2031-05-04T03:02+01:",
                                  "2031-05-04Z",
                                  "x2031-05-04",
                                  "2031-05-04 ",
                                  "-031-05-04",
                                  "+031-05-04",
                                  "2031/05/04"})
    {
        EXPECT_FALSE(parseTime(bad, {})) << bad;
    }
}

TEST(IsoText, IsReadBackByParseTime)
{
    for (std::int64_t const time : {0LL, 1LL, -1LL, 951782399999LL, 1935630121500LL, 253402300799999LL})
    {
        std::string const text = isoText(time, {});
        auto const period = parseTime(text, {});
        ASSERT_TRUE(period) << text;
        EXPECT_EQ(period->begin, time) << text;
    }
    EXPECT_EQ(isoText(-1, {}), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(isoText(253402300800000, {}), "253402300800000");
}

TEST(Stamps, HaveAUnitThatIsGuessedFromTheirSize)
{
    EXPECT_EQ(stampText(0, {}), "-");
    EXPECT_EQ(stampText(99999999999, {}), "5138-11-16T09:46:39.000Z");
    EXPECT_EQ(stampText(100000000000, {}), "1973-03-03T09:46:40.000Z");
    EXPECT_EQ(stampText(100000000000000, {}), "1973-03-03T09:46:40.000Z");
    EXPECT_EQ(stampText(100000000000000000, {}), "1973-03-03T09:46:40.000Z");
    EXPECT_EQ(stampText(18446744073709551615U, {}), "2554-07-21T23:34:33.709Z");
    EXPECT_EQ(stampText(18446744073709551615U, {TimeUnit::SECONDS, false}), "18446744073709551615");
}
