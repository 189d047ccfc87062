// The statistics that a recorder keeps for each fault code.

#include "RecorderFixtures.h"

namespace
{

using namespace firaim;

class FaultRecorderStatisticTest : public FaultRecorderTest
{
protected:
    std::string cycles(std::uint64_t code) const { return statistic(code, "FaultActiveCycleCnt"); }

    void record(std::uint64_t code, faultStatus_t status = FAULT_ACTIVE)
    {
        ASSERT_EQ(recorder.record(eventOf(code, "m", "p", status)).result, HISTORY_OK) << recorder.lastProblem();
    }

    void endCycle() { ASSERT_EQ(recorder.endCycle(), HISTORY_OK) << recorder.lastProblem(); }

    /// Inserts a fault without a statistic.
    void insertFault(std::uint64_t code, std::string const& name) const
    {
        exec("INSERT INTO FdbFaultTbl(FaultCode, FaultCodeName) VALUES(" + std::to_string(code) + ",'" + name + "')");
    }

    void insertStatistic(std::uint64_t code, std::string const& name, std::string const& active,
                         unsigned int occurrences, unsigned int activeCycles) const
    {
        exec("INSERT INTO FdbFaultStatisticTbl(FaultCode, FaultCodeName, TimeFirstOccurredUTC, TimeLastOccurredUTC, "
             "TimeZoneFirstOccurred, TimeZoneLastOccurred, OccurenceCnt, FaultActive, FaultActiveCycleCnt, "
             "FaultEntryId, RdbStartupId) VALUES(" +
             std::to_string(code) + ",'" + name + "',100,200,'first','last'," + std::to_string(occurrences) + ",'" +
             active + "'," + std::to_string(activeCycles) + ",0,1)");
    }
};

TEST_F(FaultRecorderStatisticTest, EveryActiveRowCountsItsOccurrence)
{
    open();
    record(1);
    record(1);
    record(1, FAULT_INACTIVE);
    record(1);
    EXPECT_EQ(statistic(1, "OccurenceCnt"), "3");
    EXPECT_EQ(cycles(1), "3");
}

TEST_F(FaultRecorderStatisticTest, InactiveRowOfANewCodeBeginsAStatisticWithoutAnOccurrence)
{
    open();
    record(1, FAULT_INACTIVE);
    EXPECT_EQ(statistic(1, "OccurenceCnt || FaultActive || FaultActiveCycleCnt || FaultEntryId"), "0inactive01");
    record(1);
    EXPECT_EQ(statistic(1, "TimeFirstOccurredUTC"), "1772366400000") << "the first occurrence is the first active one";
}

TEST_F(FaultRecorderStatisticTest, OneRowIsKeptForEachCode)
{
    open();
    for (std::uint64_t code = 1; code < 20; ++code)
    {
        record(code % 4 + 1);
    }
    EXPECT_EQ(rows("SELECT FaultCode, OccurenceCnt FROM FdbFaultStatisticTbl ORDER BY FaultCode"),
              (Rows{{"1", "4"}, {"2", "5"}, {"3", "5"}, {"4", "5"}}));
}

TEST_F(FaultRecorderStatisticTest, FirstAndLastFollowTheOrderOfRecordingEvenIfClocksRunBackwards)
{
    open();
    for (unsigned long long const time : {5000ULL, 9000ULL, 1000ULL})
    {
        FaultEvent event = eventOf(1);
        event.time = time;
        event.timeZone = "zone " + std::to_string(time);
        ASSERT_EQ(recorder.record(event).result, HISTORY_OK);
    }
    EXPECT_EQ(rows("SELECT TimeFirstOccurredUTC, TimeZoneFirstOccurred, TimeLastOccurredUTC, TimeZoneLastOccurred "
                   "FROM FdbFaultStatisticTbl"),
              (Rows{{"5000", "zone 5000", "1000", "zone 1000"}}));
}

TEST_F(FaultRecorderStatisticTest, EndOfACycleCountsActiveCodesThatWereNotRecordedInIt)
{
    open();
    record(1);
    record(2);
    record(3);
    record(3, FAULT_INACTIVE);
    endCycle();
    EXPECT_EQ(cycles(1), "1") << "the event counted this cycle already";
    endCycle();
    EXPECT_EQ(cycles(1), "2");
    record(2);
    EXPECT_EQ(cycles(2), "3");
    endCycle();
    EXPECT_EQ(cycles(1), "3");
    EXPECT_EQ(cycles(2), "3");
    EXPECT_EQ(cycles(3), "1") << "the code is not active";
}

TEST_F(FaultRecorderStatisticTest, EndOfTheFirstCycleCountsWhatWasActiveBefore)
{
    createWithFacade();
    insertStatistic(1, "one", "active", 4, 6);
    insertStatistic(2, "two", "inactive", 4, 6);
    open();
    endCycle();
    EXPECT_EQ(cycles(1), "7");
    EXPECT_EQ(cycles(2), "6");
}

TEST_F(FaultRecorderStatisticTest, RaiseOfAnActiveTripleCountsNoCycle)
{
    open();
    record(1);
    endCycle();
    EXPECT_EQ(recorder.raise(eventOf(1, "m", "p")).result, HISTORY_UNCHANGED);
    endCycle();
    EXPECT_EQ(cycles(1), "2") << "no active event was recorded since the last cycle";
}

TEST_F(FaultRecorderStatisticTest, EndOfACycleWritesNoRow)
{
    open();
    record(1);
    endCycle();
    endCycle();
    EXPECT_EQ(value(kCountOfFaults), "1");
    EXPECT_EQ(recorder.counters().recorded, 1U);
}

TEST_F(FaultRecorderStatisticTest, EndOfACycleLeavesOtherColumns)
{
    createWithFacade();
    insertStatistic(1, "it''s one", "active", 4, 6);
    Rows const before = rows(kStatistics);
    open();
    endCycle();
    exec("UPDATE FdbFaultStatisticTbl SET FaultActiveCycleCnt = 6");
    EXPECT_EQ(rows(kStatistics), before);
}

TEST_F(FaultRecorderStatisticTest, CountersStayAtTheLargestNumber)
{
    createWithFacade();
    insertStatistic(1, "one", "active", 65534, 65534);
    open();
    record(1);
    EXPECT_EQ(statistic(1, "OccurenceCnt || ' ' || FaultActiveCycleCnt"), "65535 65535");
    record(1);
    endCycle();
    endCycle();
    EXPECT_EQ(statistic(1, "OccurenceCnt || ' ' || FaultActiveCycleCnt"), "65535 65535");
}

TEST_F(FaultRecorderStatisticTest, CodeThatTheFileKnowsByANameKeepsIt)
{
    createWithFacade();
    insertStatistic(4000, "PUMP_STUCK", "inactive", 1, 1);
    open();
    record(4000);
    EXPECT_EQ(statistic(4000, "FaultCodeName"), "PUMP_STUCK");
    EXPECT_EQ(value("SELECT FaultCodeName FROM FdbFaultTbl"), "PUMP_STUCK");
}

TEST_F(FaultRecorderStatisticTest, UnknownNameIsReplacedByABuiltInOne)
{
    createWithFacade();
    insertStatistic(FC_SUPPLY_UNDERVOLTAGE, "UNKNOWN_FAULT_CODE(257)", "inactive", 1, 1);
    open();
    record(FC_SUPPLY_UNDERVOLTAGE);
    EXPECT_EQ(statistic(FC_SUPPLY_UNDERVOLTAGE, "FaultCodeName"), "FC_SUPPLY_UNDERVOLTAGE");
}

TEST_F(FaultRecorderStatisticTest, GivenNameIsThatOfTheRow)
{
    createWithFacade();
    insertStatistic(4000, "PUMP_STUCK", "inactive", 1, 1);
    open();
    FaultEvent event = eventOf(4000);
    event.codeName = "PUMP_SLOW";
    ASSERT_EQ(recorder.record(event).result, HISTORY_OK);
    EXPECT_EQ(value("SELECT FaultCodeName FROM FdbFaultTbl"), "PUMP_SLOW");
}

TEST_F(FaultRecorderStatisticTest, OnlyTheFirstOfSeveralRowsOfACodeIsUpdated)
{
    createWithFacade();
    insertStatistic(1, "one", "active", 4, 6);
    insertStatistic(1, "other", "active", 5, 7);
    insertStatistic(1, "another", "inactive", 6, 8);
    Rows const others = rows("SELECT * FROM FdbFaultStatisticTbl WHERE EntryId > 1");
    open();
    record(1);
    record(1, FAULT_INACTIVE);
    record(1);
    endCycle();
    endCycle();
    EXPECT_EQ(rows("SELECT * FROM FdbFaultStatisticTbl WHERE EntryId > 1"), others);
    EXPECT_EQ(rows("SELECT OccurenceCnt, FaultActiveCycleCnt FROM FdbFaultStatisticTbl WHERE EntryId = 1"),
              (Rows{{"6", "9"}}));
}

TEST_F(FaultRecorderStatisticTest, StatisticsOfOtherCodesAreLeft)
{
    createWithFacade();
    insertStatistic(7, "seven", "active", 4, 6);
    exec("UPDATE FdbFaultStatisticTbl SET FaultCodeName = NULL, OccurenceCnt = 'many'");
    Rows const before = rows(kStatistics);
    open();
    record(1);
    EXPECT_EQ(rows("SELECT * FROM FdbFaultStatisticTbl WHERE FaultCode = 7"), before);
}

TEST_F(FaultRecorderStatisticTest, CountingContinuesFromAStatisticOfTheFacade)
{
    open();
    record(1);
    FaultStatistic statistic = makeStatistic(1);
    statistic.FaultCode = static_cast<faultCode_t>(1);
    statistic.OccurenceCnt = 500;
    ASSERT_EQ(Facade(path)->update(statistic), RESULT_OK);
    record(1);
    EXPECT_EQ(this->statistic(1, "OccurenceCnt"), "501");
}

TEST_F(FaultRecorderStatisticTest, TwoRecordersCountTogether)
{
    open();
    FaultRecorder other;
    ASSERT_EQ(other.open(path), HISTORY_OK);
    for (int i = 0; i < 10; ++i)
    {
        record(1);
        ASSERT_EQ(other.record(eventOf(1)).result, HISTORY_OK);
    }
    EXPECT_EQ(statistic(1, "OccurenceCnt"), "20");
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultStatisticTbl"), "1");
    EXPECT_EQ(statistic(1, "FaultEntryId"), "20");
}

TEST_F(FaultRecorderStatisticTest, CodeWithoutAStatisticKeepsTheNameOfItsNewestRow)
{
    createWithFacade();
    insertFault(4711, "OLD_NAME");
    insertFault(4711, "PUMP_DRY");
    insertFault(4712, "OTHER");
    open();
    EXPECT_EQ(recorder.record(eventOf(4711)).result, HISTORY_OK);
    EXPECT_EQ(recorder.record(eventOf(4711)).result, HISTORY_OK);
    EXPECT_EQ(recorder.record(eventOf(4713)).result, HISTORY_OK);
    EXPECT_EQ(value("SELECT group_concat(FaultCodeName) FROM (SELECT FaultCodeName FROM FdbFaultTbl WHERE EntryId > 3 "
                    "ORDER BY EntryId)"),
              "PUMP_DRY,PUMP_DRY,UNKNOWN_FAULT_CODE(4713)");
    EXPECT_EQ(statistic(4711, "FaultCodeName"), "PUMP_DRY");
}

TEST_F(FaultRecorderStatisticTest, CodeIsNamedByItsRowsHoweverOldTheyAre)
{
    createWithFacade();
    insertFault(4711, "PUMP_DRY");
    exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 25000) INSERT INTO "
         "FdbFaultTbl(FaultCode, FaultCodeName) SELECT 1 + i % 2, 'OTHER' FROM n");
    open();
    EXPECT_EQ(recorder.record(eventOf(4711)).result, HISTORY_OK);
    EXPECT_EQ(statistic(4711, "FaultCodeName"), "PUMP_DRY");
    EXPECT_EQ(value("SELECT FaultCodeName FROM FdbFaultTbl ORDER BY EntryId DESC LIMIT 1"), "PUMP_DRY");
}

TEST_F(FaultRecorderStatisticTest, NameInTheRowsComesBeforeTheNumberInTheStatistic)
{
    createWithFacade();
    insertFault(4711, "PUMP_DRY");
    insertFault(4711, "UNKNOWN_FAULT_CODE(4711)");
    insertStatistic(4711, "UNKNOWN_FAULT_CODE(4711)", "inactive", 1, 1);
    open();
    EXPECT_EQ(recorder.record(eventOf(4711)).result, HISTORY_OK);
    EXPECT_EQ(statistic(4711, "FaultCodeName"), "PUMP_DRY");
}

TEST_F(FaultRecorderStatisticTest, NameOfAnEventIsKnownToTheLaterOnesOfTheSameRecorder)
{
    open();
    EXPECT_EQ(recorder.record(eventOf(4711)).result, HISTORY_OK);
    for (char const* const name : {"PUMP_DRY", "n/a"})
    {
        FaultEvent event = eventOf(4711);
        event.codeName = name;
        EXPECT_EQ(recorder.record(event).result, HISTORY_OK);
    }
    EXPECT_EQ(recorder.record(eventOf(4711)).result, HISTORY_OK);
    EXPECT_EQ(value("SELECT group_concat(FaultCodeName) FROM FdbFaultTbl"),
              "UNKNOWN_FAULT_CODE(4711),PUMP_DRY,n/a,PUMP_DRY");
}

TEST_F(FaultRecorderStatisticTest, NameThatWasRolledBackIsNotKnown)
{
    open();
    EXPECT_EQ(recorder.record(eventOf(4711)).result, HISTORY_OK);
    exec("CREATE TRIGGER refuse BEFORE UPDATE ON FdbFaultStatisticTbl WHEN new.FaultCodeName = 'PUMP_DRY' BEGIN SELECT "
         "RAISE(ABORT, 'no'); END");
    FaultEvent event = eventOf(4711);
    event.codeName = "PUMP_DRY";
    EXPECT_EQ(recorder.record(event).result, HISTORY_REFUSED);
    EXPECT_EQ(recorder.record(eventOf(4711)).result, HISTORY_OK) << recorder.lastProblem();
    EXPECT_EQ(value("SELECT group_concat(FaultCodeName) FROM FdbFaultTbl"),
              "UNKNOWN_FAULT_CODE(4711),UNKNOWN_FAULT_CODE(4711)");
}

TEST_F(FaultRecorderStatisticTest, ManyNewCodesWithoutANameShareOneCommit)
{
    createWithFacade();
    exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 10000) INSERT INTO "
         "FdbFaultTbl(FaultCode, FaultCodeName, Description) SELECT 1, 'OTHER', printf('%3000d', i) FROM n");
    open();
    std::vector<FaultEvent> events;
    for (unsigned int i = 0; i < 1000; ++i)
    {
        events.push_back(eventOf(50000 + i));
    }
    std::vector<Receipt> receipts;
    EXPECT_EQ(recorder.recordAll(events, receipts), HISTORY_OK);
    EXPECT_EQ(recorder.counters().groups, 1U);
}

} // namespace
