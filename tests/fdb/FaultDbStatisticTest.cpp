#include "Fixtures.h"

#include <gmock/gmock.h>

using testing::ElementsAre;

namespace
{

class RecordingStatistics : public FaultDbTest
{
protected:
    RecordingStatistics() { createAndOpen(); }

    FaultStatistic statistic = makeStatistic();
};

constexpr char kRows[] = "SELECT * FROM FdbFaultStatisticTbl ORDER BY EntryId";

} // namespace

TEST_F(FaultDbTest, StatisticsAreNotRecordedWithoutAnOpenDatabase)
{
    db.setDbgLevel(2);
    EXPECT_EQ(db.insert(makeStatistic()), -1);
    EXPECT_EQ(db.update(makeStatistic()), -1);
    EXPECT_EQ(console.take(), "");
}

TEST_F(RecordingStatistics, InsertStoresEveryMemberInItsColumn)
{
    EXPECT_EQ(db.insert(statistic), 0);
    EXPECT_THAT(RawDb(path).rows(kRows),
                ElementsAre(RawDb::Row{"1", "1001", "code name 1", "1772366400000001", "1772366500000001", "UTC+1 1",
                                       "UTC+2 1", "11", "active", "101", "5001", "4001"}));
}

TEST_F(RecordingStatistics, StoredRowReadsBackEqual)
{
    statistic.OccurenceCnt = 65535;
    statistic.FaultActiveCycleCnt = 65535;
    EXPECT_EQ(db.insert(statistic), 0);
    FaultStatistic read;
    ASSERT_EQ(db.getFaultStatisticForFC(read, statistic.FaultCode), 0);
    statistic.EntryId = 1;
    EXPECT_EQ(members(read), members(statistic));
}

TEST_F(RecordingStatistics, SecondInsertOfACodeStoresASecondRowAndUpdateRewritesBoth)
{
    ASSERT_EQ(db.insert(statistic), 0);
    ASSERT_EQ(db.insert(statistic), 0);
    statistic.OccurenceCnt = 99;
    EXPECT_EQ(db.update(statistic), 0);
    EXPECT_THAT(RawDb(path).rows("SELECT EntryId,OccurenceCnt FROM FdbFaultStatisticTbl ORDER BY EntryId"),
                ElementsAre(RawDb::Row{"1", "99"}, RawDb::Row{"2", "99"}));
}

TEST_F(RecordingStatistics, UpdateSelectsByFaultCodeAndNotByKey)
{
    ASSERT_EQ(db.insert(makeStatistic(1)), 0);
    ASSERT_EQ(db.insert(makeStatistic(2)), 0);
    statistic.EntryId = 2;
    statistic.OccurenceCnt = 99;
    EXPECT_EQ(db.update(statistic), 0);
    EXPECT_THAT(RawDb(path).rows("SELECT EntryId,FaultCode,OccurenceCnt FROM FdbFaultStatisticTbl ORDER BY EntryId"),
                ElementsAre(RawDb::Row{"1", "1001", "99"}, RawDb::Row{"2", "1002", "12"}));
}

TEST_F(RecordingStatistics, UpdateOfAnUnknownCodeSucceedsAndChangesNothing)
{
    ASSERT_EQ(db.insert(statistic), 0);
    auto const before = RawDb(path).rows(kRows);
    EXPECT_EQ(db.update(makeStatistic(2)), 0);
    EXPECT_EQ(RawDb(path).rows(kRows), before);
}

TEST_F(RecordingStatistics, UpdateRewritesEveryColumnButTheKey)
{
    ASSERT_EQ(db.insert(statistic), 0);
    FaultStatistic changed = makeStatistic(2);
    changed.FaultCode = statistic.FaultCode;
    changed.FaultActive = FAULT_INACTIVE;
    EXPECT_EQ(db.update(changed), 0);
    FaultStatistic read;
    ASSERT_EQ(db.getFaultStatisticForFC(read, statistic.FaultCode), 0);
    changed.EntryId = 1;
    EXPECT_EQ(members(read), members(changed));
}

TEST_F(RecordingStatistics, WritesAreSilentAtDebugLevelZero)
{
    EXPECT_EQ(db.insert(statistic), 0);
    EXPECT_EQ(db.update(statistic), 0);
    EXPECT_EQ(console.take(), "");
}

TEST_F(RecordingStatistics, InsertLogsTheRecordAndAtLevelTwoItsStatement)
{
    FaultStatistic const empty;
    std::string const form = "[DEBUG] FDB::insert() Insert:" + textOf(empty);
    db.setDbgLevel(1);
    EXPECT_EQ(db.insert(empty), 0);
    EXPECT_THAT(console.takeLines(), ElementsAre(form));
    db.setDbgLevel(2);
    EXPECT_EQ(db.insert(empty), 0);
    EXPECT_THAT(console.takeLines(),
                ElementsAre(form, "[DEBUG] FDB::insert() SqlCmd: INSERT INTO FdbFaultStatisticTbl('EntryId',"
                                  "'FaultCode','FaultCodeName','TimeFirstOccurredUTC','TimeLastOccurredUTC',"
                                  "'TimeZoneFirstOccurred','TimeZoneLastOccurred','OccurenceCnt','FaultActive',"
                                  "'FaultActiveCycleCnt','FaultEntryId','RdbStartupId') "
                                  "VALUES(null,0,'',0,0,'','',0,'inactive',0,0,0)"));
}

TEST_F(RecordingStatistics, UpdateLogsTheRecordAndAtLevelTwoItsStatementWithoutTheWhereClause)
{
    FaultStatistic const empty;
    std::string const form = "[DEBUG] FDB::update() Update:" + textOf(empty);
    db.setDbgLevel(1);
    EXPECT_EQ(db.update(empty), 0);
    EXPECT_THAT(console.takeLines(), ElementsAre(form));
    db.setDbgLevel(2);
    EXPECT_EQ(db.update(empty), 0);
    EXPECT_THAT(console.takeLines(),
                ElementsAre(form, "[DEBUG] FDB::update() SqlCmd: UPDATE FdbFaultStatisticTbl SET 'FaultCode'=0,"
                                  "'FaultCodeName'='','TimeFirstOccurredUTC'=0,'TimeLastOccurredUTC'=0,"
                                  "'TimeZoneFirstOccurred'='','TimeZoneLastOccurred'='','OccurenceCnt'=0,"
                                  "'FaultActive'='inactive','FaultActiveCycleCnt'=0,'FaultEntryId'=0,"
                                  "'RdbStartupId'=0"));
}

TEST_F(RecordingStatistics, FailedWritesGiveTheirCodeWithoutALineOfTheirOwn)
{
    RawDb(path).exec("DROP TABLE FdbFaultStatisticTbl");
    std::string const line = "[ERROR] SQL3::execute() Sql Execute failed: no such table: FdbFaultStatisticTbl Err=1\n";
    EXPECT_EQ(db.insert(statistic), -2);
    EXPECT_EQ(console.take(), line);
    EXPECT_EQ(db.update(statistic), -2);
    EXPECT_EQ(console.take(), line);
}

TEST_F(RecordingStatistics, UnnamedActivityIsStoredAsAnEmptyTextAndReadAsInactive)
{
    statistic.FaultActive = static_cast<faultStatus_t>(2);
    ASSERT_EQ(db.insert(statistic), 0);
    EXPECT_EQ(RawDb(path).value("SELECT FaultActive FROM FdbFaultStatisticTbl"), "");
    FaultStatistic read;
    ASSERT_EQ(db.getFaultStatisticForFC(read, statistic.FaultCode), 0);
    EXPECT_EQ(read.FaultActive, FAULT_INACTIVE);
}
