#include "Fixtures.h"

#include <gmock/gmock.h>

using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

/// Three faults and two statistics.
class Reading : public FaultDbTest
{
protected:
    Reading()
    {
        createAndOpen();
        for (unsigned int seed : {1U, 2U, 3U})
        {
            stored.push_back(makeFault(seed));
            db.insert(stored.back());
        }
        active = makeStatistic(1);
        inactive = makeStatistic(2);
        inactive.FaultActive = FAULT_INACTIVE;
        db.insert(active);
        db.insert(inactive);
        active.EntryId = 1;
        inactive.EntryId = 2;
    }

    std::vector<Fault> stored;
    FaultStatistic active;
    FaultStatistic inactive;
    FaultTbl faults;
    FaultStatisticTbl statistics;
};

} // namespace

TEST_F(FaultDbTest, ReadsOnAClosedDatabaseFailSilentlyAndLeaveTheirArguments)
{
    db.setDbgLevel(2);
    FaultTbl faults;
    faults.resize(1);
    FaultStatisticTbl statistics;
    statistics.resize(1);
    Fault fault = makeFault();
    FaultStatistic statistic = makeStatistic();
    EXPECT_EQ(db.getFaultTbl(faults), -1);
    EXPECT_EQ(db.getFaultTbl("SELECT 1", faults), -1);
    EXPECT_EQ(db.getFaultStatisticTbl(statistics), -1);
    EXPECT_EQ(db.getFaultStatisticTbl("SELECT 1", statistics), -1);
    EXPECT_EQ(db.getFaultStatisticTblErrorActive(statistics), -1);
    EXPECT_EQ(db.getFaultById(fault, 1), -2);
    EXPECT_EQ(db.getFaultStatisticForFC(statistic, 1), -2);
    EXPECT_THAT(faults, SizeIs(1));
    EXPECT_THAT(statistics, SizeIs(1));
    EXPECT_EQ(members(fault), members(makeFault()));
    EXPECT_EQ(members(statistic), members(makeStatistic()));
    EXPECT_EQ(console.take(), "");
}

TEST_F(Reading, WritesNoLineAtAnyLevel)
{
    db.setDbgLevel(2);
    Fault fault;
    FaultStatistic statistic;
    db.getFaultTbl(faults);
    db.getFaultStatisticTbl(statistics);
    db.getFaultStatisticTblErrorActive(statistics);
    db.getFaultById(fault, 1);
    db.getFaultStatisticForFC(statistic, 1001);
    EXPECT_EQ(console.take(), "");
}

TEST_F(Reading, SendsItsExactStatements)
{
    StatementTrace const trace(*sqlite->findOpen(db.m_dbHandle));
    Fault fault;
    FaultStatistic statistic;
    db.getFaultTbl(faults);
    db.getFaultTbl("SELECT  *  FROM FdbFaultTbl LIMIT 1", faults);
    db.getFaultStatisticTbl(statistics);
    db.getFaultStatisticTbl("SELECT * FROM FdbFaultStatisticTbl  LIMIT 1", statistics);
    db.getFaultStatisticTblErrorActive(statistics);
    db.getFaultById(fault, 18446744073709551615ULL);
    db.getFaultStatisticForFC(statistic, 4294967295U);
    EXPECT_THAT(trace.statements,
                ElementsAre("SELECT * FROM \"FdbFaultTbl\"", "SELECT  *  FROM FdbFaultTbl LIMIT 1",
                            "SELECT * FROM \"FdbFaultStatisticTbl\"", "SELECT * FROM FdbFaultStatisticTbl  LIMIT 1",
                            "SELECT * FROM FdbFaultStatisticTbl WHERE FaultActive LIKE 'active'",
                            "SELECT * FROM \"FdbFaultTbl\" WHERE EntryId=18446744073709551615",
                            "SELECT * FROM \"FdbFaultStatisticTbl\" WHERE FaultCode=4294967295"));
}

TEST_F(Reading, WritesSendTheirExactStatements)
{
    StatementTrace const trace(*sqlite->findOpen(db.m_dbHandle));
    Fault fault;
    db.insert(fault);
    fault.EntryId = 18446744073709551615ULL;
    db.update(fault);
    FaultStatistic statistic;
    statistic.FaultCode = static_cast<faultCode_t>(4294967295U);
    db.update(statistic);
    ASSERT_THAT(trace.statements, SizeIs(4));
    EXPECT_EQ(trace.statements[1], "SELECT * FROM FdbFaultTbl WHERE EntryId=(select max(EntryId) from FdbFaultTbl)");
    EXPECT_THAT(trace.statements[2], EndsWith("'SystemDateTimeString'='' WHERE EntryId = 18446744073709551615"));
    EXPECT_THAT(trace.statements[3], EndsWith("'RdbStartupId'=0 WHERE FaultCode = 4294967295"));
}

TEST_F(Reading, StatementsNameAMissingColumnNotFound)
{
    db.m_faultTbl.m_columns.erase(0);
    db.m_faultTbl.m_columns.erase(14);
    db.m_faultStatisticTbl.m_columns.erase(1);
    db.m_faultStatisticTbl.m_columns.erase(8);
    db.m_faultStatisticTbl.m_columns.erase(11);
    db.m_versionTbl.m_columns.erase(1);
    Fault fault;
    FaultStatistic statistic;
    FdbVersion version;
    EXPECT_EQ(db.update(fault), -2);
    EXPECT_EQ(db.update(statistic), -2);
    EXPECT_EQ(db.getFaultById(fault, 1), -2);
    EXPECT_EQ(db.getFaultStatisticForFC(statistic, 1), -2);
    EXPECT_EQ(db.getFaultStatisticTblErrorActive(statistics), -2);
    EXPECT_EQ(db.getFormatVersion(version), -2);
    std::vector<std::string> const lines = console.takeLines();
    EXPECT_THAT(lines, SizeIs(6));
    EXPECT_THAT(lines, Each(EndsWith("failed: no such column: NotFound Err=1")));
    EXPECT_EQ(db.updateRdbStartup(7, 6), 0);
    EXPECT_THAT(console.takeLines(),
                ElementsAre("[INFO] FDB::updateRdbStartup() new ID=7old ID=6",
                            "[ERROR] SQL3::getTbl() Sql Query failed: no such column: NotFound Err=1",
                            "[ERROR] SQL3::getTbl() Sql Query failed: no such column: NotFound Err=1"));
}

TEST_F(Reading, NameOfTheActiveColumnIsLookedUpForEachRead)
{
    ASSERT_EQ(db.getFaultStatisticTblErrorActive(statistics), 1);
    db.m_faultStatisticTbl.m_columns.at(8).name = "Missing";
    EXPECT_EQ(db.getFaultStatisticTblErrorActive(statistics), -2);
}

TEST_F(Reading, WholeFaultTableComesInOrder)
{
    EXPECT_EQ(db.getFaultTbl(faults), 3);
    ASSERT_THAT(faults, SizeIs(3));
    for (std::size_t i = 0; i < 3; ++i)
    {
        EXPECT_EQ(members(faults[i]), members(stored[i]));
    }
}

TEST_F(Reading, WholeStatisticTableComesInOrder)
{
    EXPECT_EQ(db.getFaultStatisticTbl(statistics), 2);
    ASSERT_THAT(statistics, SizeIs(2));
    EXPECT_EQ(members(statistics[0]), members(active));
    EXPECT_EQ(members(statistics[1]), members(inactive));
}

TEST_F(Reading, CallersQueryDecidesWhichRowsComeInWhichOrder)
{
    EXPECT_EQ(db.getFaultTbl("SELECT * FROM FdbFaultTbl WHERE EntryId<3 ORDER BY EntryId DESC", faults), 2);
    ASSERT_THAT(faults, SizeIs(2));
    EXPECT_EQ(faults[0].EntryId, 2U);
}

TEST_F(Reading, RowsOfAnotherTableAreDecodedByPosition)
{
    EXPECT_EQ(db.getFaultTbl("SELECT * FROM FdbVersionTbl", faults), 1);
    ASSERT_THAT(faults, SizeIs(1));
    EXPECT_EQ(faults[0].EntryId, 1U);
    EXPECT_EQ(faults[0].DateTimeString, "FormatVersion");
    EXPECT_EQ(faults[0].FaultCode, 1U) << "from the text 1.0.0";
    EXPECT_EQ(faults[0].FaultCodeName, "n/a") << "the row lacks this cell";
}

TEST_F(Reading, FailedQueryLeavesTheContainer)
{
    faults.resize(5);
    statistics.resize(5);
    EXPECT_EQ(db.getFaultTbl("nonsense", faults), -2);
    EXPECT_EQ(db.getFaultStatisticTbl("nonsense", statistics), -2);
    EXPECT_THAT(faults, SizeIs(5));
    EXPECT_THAT(statistics, SizeIs(5));
}

TEST_F(Reading, QueryWithoutAMatchEmptiesTheContainer)
{
    faults.resize(5);
    EXPECT_EQ(db.getFaultTbl("SELECT * FROM FdbFaultTbl WHERE 0", faults), 0);
    EXPECT_THAT(faults, IsEmpty());
}

TEST_F(Reading, ActiveStatisticsAreThoseWithTheWord)
{
    EXPECT_EQ(db.getFaultStatisticTblErrorActive(statistics), 1);
    ASSERT_THAT(statistics, SizeIs(1));
    EXPECT_EQ(members(statistics[0]), members(active));
}

TEST_F(Reading, ActiveStatisticsAreFoundWithoutRegardToCase)
{
    RawDb(path).exec("UPDATE FdbFaultStatisticTbl SET FaultActive='ACTIVE' WHERE EntryId=2");
    EXPECT_EQ(db.getFaultStatisticTblErrorActive(statistics), 2);
    EXPECT_EQ(statistics[1].FaultActive, FAULT_INACTIVE) << "decoding is stricter than the query";
}

TEST_F(Reading, NoActiveStatisticEmptiesTheContainer)
{
    RawDb(path).exec("UPDATE FdbFaultStatisticTbl SET FaultActive='inactive'");
    statistics.resize(5);
    EXPECT_EQ(db.getFaultStatisticTblErrorActive(statistics), 0);
    EXPECT_THAT(statistics, IsEmpty());
}

TEST_F(Reading, FaultIsFoundByItsKey)
{
    Fault fault;
    EXPECT_EQ(db.getFaultById(fault, 2), 0);
    EXPECT_EQ(members(fault), members(stored[1]));
}

TEST_F(Reading, UnknownKeysAreNotFoundAndLeaveTheRecord)
{
    for (unsigned long long id : {0ULL, 4ULL, 18446744073709551615ULL})
    {
        Fault fault = makeFault(9);
        EXPECT_EQ(db.getFaultById(fault, id), -2) << id;
        EXPECT_EQ(members(fault), members(makeFault(9))) << id;
    }
}

TEST_F(Reading, StatisticIsFoundByItsFaultCode)
{
    FaultStatistic statistic;
    EXPECT_EQ(db.getFaultStatisticForFC(statistic, 1002), 0);
    EXPECT_EQ(members(statistic), members(inactive));
}

TEST_F(Reading, FirstOfSeveralStatisticsOfACodeIsTaken)
{
    FaultStatistic second = makeStatistic(3);
    second.FaultCode = active.FaultCode;
    ASSERT_EQ(db.insert(second), 0);
    FaultStatistic statistic;
    EXPECT_EQ(db.getFaultStatisticForFC(statistic, active.FaultCode), 0);
    EXPECT_EQ(members(statistic), members(active));
}

TEST_F(Reading, UnknownFaultCodeIsNotFoundAndLeavesTheRecord)
{
    FaultStatistic statistic = makeStatistic(9);
    EXPECT_EQ(db.getFaultStatisticForFC(statistic, 5), -2);
    EXPECT_EQ(members(statistic), members(makeStatistic(9)));
}

TEST_F(Reading, FailedQueryOfASingleRecordIsReportedAsNotFound)
{
    RawDb(path).exec("DROP TABLE FdbFaultTbl; DROP TABLE FdbFaultStatisticTbl");
    Fault fault = makeFault(9);
    FaultStatistic statistic = makeStatistic(9);
    EXPECT_EQ(db.getFaultById(fault, 1), -2);
    EXPECT_EQ(db.getFaultStatisticForFC(statistic, 1001), -2);
    EXPECT_EQ(members(fault), members(makeFault(9)));
    EXPECT_EQ(members(statistic), members(makeStatistic(9)));
}

TEST_F(Reading, DamagedCellsAreDecodedToTheirFallbacks)
{
    RawDb(path).exec("UPDATE FdbFaultTbl SET DateTimeString=NULL, FaultCode='x', TimeStampUTC=NULL, "
                     "LoggerUpTime=4294967296, Status='erroractive' WHERE EntryId=1");
    Fault fault;
    EXPECT_EQ(db.getFaultById(fault, 1), 0);
    EXPECT_EQ(fault.DateTimeString, "n/a");
    EXPECT_EQ(fault.FaultCode, 0U);
    EXPECT_EQ(fault.TimeStampUTC, 0U);
    EXPECT_EQ(fault.LoggerUpTime, 0U);
    EXPECT_EQ(fault.Status, FAULT_INACTIVE);
    EXPECT_THAT(console.takeLines(), ElementsAre("[ERROR] Casting value x", "[ERROR] Casting value 4294967296"));
}

TEST_F(Reading, NullStatusKeepsThatOfTheRowBefore)
{
    RawDb(path).exec("UPDATE FdbFaultTbl SET Status=NULL WHERE EntryId=2");
    EXPECT_EQ(db.getFaultTbl(faults), 3);
    EXPECT_EQ(faults[1].Status, FAULT_ACTIVE);
    EXPECT_EQ(console.take(), "[WARNING] Unknown type!!!!!\n");
}
