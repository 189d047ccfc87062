// The start-up id and the unit of the time stamps, which `open` chooses.

#include "RecorderFixtures.h"

namespace
{

using namespace firaim;

class FaultRecorderStartTest : public FaultRecorderTest
{
protected:
    /// Creates a file whose newest fault and whose statistics have these start-up ids.
    void createWithStartups(std::string const& newest, std::string const& inStatistic)
    {
        createWithFacade();
        exec("INSERT INTO FdbFaultTbl(FaultCode, RdbStartupId) VALUES(1, 100); "
             "INSERT INTO FdbFaultTbl(FaultCode, RdbStartupId) VALUES(1, " +
             newest + "); INSERT INTO FdbFaultStatisticTbl(FaultCode, RdbStartupId) VALUES(1, " + inStatistic +
             "); INSERT INTO FdbFaultStatisticTbl(FaultCode, RdbStartupId) VALUES(2, 1)");
    }

    /// Records an event and returns the start-up id of its row.
    std::string recordedStartup()
    {
        EXPECT_EQ(recorder.record(eventOf(5)).result, HISTORY_OK) << recorder.lastProblem();
        std::string id = value("SELECT RdbStartupId FROM FdbFaultTbl ORDER BY EntryId DESC LIMIT 1");
        EXPECT_EQ(id, std::to_string(recorder.startupId()));
        return id;
    }

    static RecorderOptions with(RecorderOptions::StartupMode startup, unsigned int id = 0)
    {
        RecorderOptions options;
        options.startup = startup;
        options.startupId = id;
        return options;
    }

    static RecorderOptions with(TimeUnit unit)
    {
        RecorderOptions options;
        options.timeUnit = unit;
        return options;
    }

    /// Records an event without a time and returns the time stamp and the date text of its row.
    RawDb::Row recordedTime()
    {
        FaultEvent event = eventOf(5);
        event.time.reset();
        EXPECT_EQ(recorder.record(event).result, HISTORY_OK) << recorder.lastProblem();
        return rows("SELECT TimeStampUTC, DateTimeString FROM FdbFaultTbl ORDER BY EntryId DESC LIMIT 1")[0];
    }

    /// Expects that an event without a time gets the present time, in a unit with `perSecond` units in a second.
    void expectNow(unsigned long long perSecond)
    {
        auto const before = static_cast<unsigned long long>(currentTime());
        RawDb::Row const row = recordedTime();
        auto const after = static_cast<unsigned long long>(currentTime());
        unsigned long long const stamp = std::stoull(row[0].value());
        unsigned long long const milliseconds = perSecond < 1000 ? stamp * 1000 : stamp / (perSecond / 1000);
        EXPECT_GE(milliseconds, before / 1000 * 1000);
        EXPECT_LE(milliseconds, after);
        EXPECT_GE(row[1].value(), utcText(static_cast<std::int64_t>(before / 1000 * 1000)));
        EXPECT_LE(row[1].value(), utcText(static_cast<std::int64_t>(after)));
    }
};

TEST_F(FaultRecorderStartTest, NextStartupInANewFileIsOne)
{
    open();
    EXPECT_EQ(recordedStartup(), "1");
}

TEST_F(FaultRecorderStartTest, SameStartupInANewFileIsZero)
{
    open(with(RecorderOptions::SAME_STARTUP));
    EXPECT_EQ(recordedStartup(), "0");
}

TEST_F(FaultRecorderStartTest, NextStartupFollowsTheNewestFault)
{
    createWithStartups("7", "6");
    open();
    EXPECT_EQ(recordedStartup(), "8") << "the larger id of an older fault does not count";
}

TEST_F(FaultRecorderStartTest, NextStartupFollowsALargerOneInTheStatistics)
{
    createWithStartups("7", "9");
    open();
    EXPECT_EQ(recordedStartup(), "10");
}

TEST_F(FaultRecorderStartTest, NextStartupFollowsEveryStatisticOfACode)
{
    createWithStartups("7", "3");
    exec("INSERT INTO FdbFaultStatisticTbl(FaultCode, RdbStartupId) SELECT FaultCode, 9 FROM FdbFaultStatisticTbl");
    open();
    EXPECT_EQ(recordedStartup(), "10");
}

TEST_F(FaultRecorderStartTest, ZeroByteInTheTimeZoneIsRefused)
{
    RecorderOptions options;
    options.timeZone = std::string("UTC\0x", 5);
    EXPECT_EQ(recorder.open(path, options), HISTORY_REFUSED);
    EXPECT_THAT(recorder.lastProblem(), testing::HasSubstr("zero byte"));
    EXPECT_NE(access(path.c_str(), F_OK), 0);
    open();
}

TEST_F(FaultRecorderStartTest, SameStartupIsTheLargestOne)
{
    createWithStartups("7", "9");
    open(with(RecorderOptions::SAME_STARTUP));
    EXPECT_EQ(recordedStartup(), "9");
}

TEST_F(FaultRecorderStartTest, GivenStartupIsUsedWhateverTheFileHolds)
{
    createWithStartups("7", "9");
    open(with(RecorderOptions::GIVEN_STARTUP, 3));
    EXPECT_EQ(recordedStartup(), "3");
}

TEST_F(FaultRecorderStartTest, LargestStartupIsNotExceeded)
{
    createWithStartups("4294967295", "9");
    open();
    EXPECT_EQ(recordedStartup(), "4294967295");
}

TEST_F(FaultRecorderStartTest, StartupIsKeptWhileTheRecorderIsOpen)
{
    open();
    EXPECT_EQ(recordedStartup(), "1");
    EXPECT_EQ(recordedStartup(), "1");
    ASSERT_EQ(recorder.close(), HISTORY_OK);
    EXPECT_EQ(recorder.startupId(), 0U);
    open();
    EXPECT_EQ(recordedStartup(), "2");
}

TEST_F(FaultRecorderStartTest, StartupOfAnEventIsItsOwn)
{
    open();
    FaultEvent event = eventOf(5);
    event.startupId = 77;
    ASSERT_EQ(recorder.record(event).result, HISTORY_OK);
    EXPECT_EQ(value("SELECT RdbStartupId FROM FdbFaultTbl"), "77");
    EXPECT_EQ(statistic(5, "RdbStartupId"), "77");
    EXPECT_EQ(recorder.startupId(), 1U);
}

TEST_F(FaultRecorderStartTest, NewFileUsesMilliseconds)
{
    open();
    expectNow(1000);
}

TEST_F(FaultRecorderStartTest, NewFileUsesMillisecondsWhateverItsFirstTime)
{
    open();
    FaultEvent event = eventOf(1);
    event.time = 2'000'000'000;
    ASSERT_EQ(recorder.record(event).result, HISTORY_OK);
    EXPECT_EQ(value("SELECT DateTimeString FROM FdbFaultTbl"), "1970-01-24T03:33:20.000Z");
}

TEST_F(FaultRecorderStartTest, GivenUnitIsUsed)
{
    unsigned long long perSecond = 1;
    for (TimeUnit const unit :
         {TimeUnit::SECONDS, TimeUnit::MILLISECONDS, TimeUnit::MICROSECONDS, TimeUnit::NANOSECONDS})
    {
        SCOPED_TRACE(perSecond);
        open(with(unit));
        expectNow(perSecond);
        ASSERT_EQ(recorder.close(), HISTORY_OK);
        perSecond *= 1000;
    }
}

TEST_F(FaultRecorderStartTest, UnitIsThatOfTheNewestFault)
{
    createWithFacade();
    unsigned long long perSecond = 1;
    for (std::string const newest : {"1772366400", "1772366400000", "1772366400000000", "1772366400000000000"})
    {
        SCOPED_TRACE(newest);
        exec("INSERT INTO FdbFaultTbl(FaultCode, TimeStampUTC) VALUES(1, " + newest + ")");
        open();
        expectNow(perSecond);
        ASSERT_EQ(recorder.close(), HISTORY_OK);
        perSecond *= 1000;
    }
}

TEST_F(FaultRecorderStartTest, NewestFaultWithoutATimeLeavesMilliseconds)
{
    createWithFacade();
    exec("INSERT INTO FdbFaultTbl(FaultCode, TimeStampUTC) VALUES(1, 1772366400)");
    exec("INSERT INTO FdbFaultTbl(FaultCode, TimeStampUTC) VALUES(1, 0)");
    open();
    expectNow(1000);
}

TEST_F(FaultRecorderStartTest, TextOfAGivenTimeIsInTheUnitOfTheFile)
{
    unsigned long long stamp = 1'772'366'400;
    for (TimeUnit const unit :
         {TimeUnit::SECONDS, TimeUnit::MILLISECONDS, TimeUnit::MICROSECONDS, TimeUnit::NANOSECONDS})
    {
        SCOPED_TRACE(stamp);
        open(with(unit));
        FaultEvent event = eventOf(5);
        event.time = stamp;
        ASSERT_EQ(recorder.record(event).result, HISTORY_OK);
        EXPECT_EQ(value("SELECT DateTimeString FROM FdbFaultTbl ORDER BY EntryId DESC LIMIT 1"),
                  "2026-03-01T12:00:00.000Z");
        ASSERT_EQ(recorder.close(), HISTORY_OK);
        stamp *= 1000;
    }
}

} // namespace
