// Times, texts and periods, by tables of good and bad input.

#include <tool/terminal/SafeText.h>
#include <tool/values/Text.h>
#include <tool/values/Timeline.h>
#include <tool/values/Times.h>

#include <gtest/gtest.h>

#include <cstdlib>

using namespace tool;

TEST(ParseTime, ReadsIso8601AndTellsHowMuchATextNames)
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
        std::optional<Period> const period = parseTime(one.text, {});
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

TEST(IsoText, IsWhatParseTimeReads)
{
    for (std::int64_t const time : {0LL, 1LL, -1LL, 951782399999LL, 1935630121500LL, 253402300799999LL})
    {
        std::string const text = isoText(time, {});
        std::optional<Period> const period = parseTime(text, {});
        ASSERT_TRUE(period) << text;
        EXPECT_EQ(period->begin, time) << text;
    }
    EXPECT_EQ(isoText(-1, {}), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(isoText(253402300800000, {}), "253402300800000");
}

TEST(Stamps, TellTheirUnitByTheirSize)
{
    EXPECT_EQ(stampText(0, {}), "-");
    EXPECT_EQ(stampText(99999999999, {}), "5138-11-16T09:46:39.000Z");
    EXPECT_EQ(stampText(100000000000, {}), "1973-03-03T09:46:40.000Z");
    EXPECT_EQ(stampText(100000000000000, {}), "1973-03-03T09:46:40.000Z");
    EXPECT_EQ(stampText(100000000000000000, {}), "1973-03-03T09:46:40.000Z");
    EXPECT_EQ(stampText(18446744073709551615U, {}), "2554-07-21T23:34:33.709Z");
    EXPECT_EQ(stampText(18446744073709551615U, {timeUnit_t::SECONDS, false}), "18446744073709551615");
}

TEST(Escape, ShowsWhatWouldAct)
{
    std::pair<std::string, std::string> const texts[] = {
        {"", ""},
        {"plain \\ text", "plain \\ text"},
        {"\u00e4\u6e29\U0001f600", "\u00e4\u6e29\U0001f600"},
        {"\n\r\t", "\\n\\r\\t"},
        {std::string("\0\x1b\x7f", 3), "\\x00\\x1b\\x7f"},
        {"\u0085\u009b", "\\u0085\\u009b"},
        {"\u202e\u2066\u200b\u2028\ufeff", "\\u202e\\u2066\\u200b\\u2028\\ufeff"},
        {"\U000e0001", "\\U000e0001"},
        {"a\xffz", "a\\xffz"},
        {"\xc0\xaf", "\\xc0\\xaf"},
        {"\xed\xa0\x80", "\\xed\\xa0\\x80"},
        {"\xe6\xb8", "\\xe6\\xb8"},
    };
    for (auto const& [text, shown] : texts)
    {
        EXPECT_EQ(escape(text), shown);
    }
}

TEST(Shortened, CutsBetweenCharactersAndKeepsToTheWidth)
{
    EXPECT_EQ(shortened("abcdef", 6, "~"), "abcdef");
    EXPECT_EQ(shortened("abcdef", 5, "~"), "abcd~");
    EXPECT_EQ(shortened("\u6e29\u5ea6\u8a08", 6, "~"), "\u6e29\u5ea6\u8a08");
    EXPECT_EQ(shortened("\u6e29\u5ea6\u8a08", 5, "~"), "\u6e29\u5ea6~");
    EXPECT_EQ(shortened("\u6e29\u5ea6\u8a08", 4, "~"), "\u6e29~");
    EXPECT_EQ(shortened("e\u0301e\u0301e\u0301", 2, "~"), "e\u0301~");
}

TEST(Grouped, SeparatesThousands)
{
    EXPECT_EQ(grouped(0), "0");
    EXPECT_EQ(grouped(999), "999");
    EXPECT_EQ(grouped(1000), "1,000");
    EXPECT_EQ(grouped(1234567), "1,234,567");
}

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
    for (Timeline::Bin const& period : timeline.periods(most))
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
    for (Timeline::Bin const& period : timeline.periods(12))
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

TEST(Hexadecimal, HasAsManyDigitsAsAskedForOrNeeded)
{
    EXPECT_EQ(hexadecimal(0, 4), "0000");
    EXPECT_EQ(hexadecimal(0x401, 4), "0401");
    EXPECT_EQ(hexadecimal(0x12345, 4), "12345");
    EXPECT_EQ(hexadecimal(0xffffffff, 4), "ffffffff");
}
