#include "Fixtures.h"

#include <gmock/gmock.h>

using testing::Contains;
using testing::ElementsAre;

namespace
{

class Counting : public FaultDbTest
{
protected:
    Counting() { createAndOpen(); }

    /// Adds statistics, the first `activeNr` of them active.
    void add(unsigned int number, unsigned int activeNr)
    {
        for (unsigned int seed = 0; seed < number; ++seed)
        {
            FaultStatistic statistic = makeStatistic(seed);
            statistic.FaultActive = seed < activeNr ? FAULT_ACTIVE : FAULT_INACTIVE;
            ASSERT_EQ(db.insert(statistic), 0);
        }
    }

    int callBack(int kind, char const* cell)
    {
        Sqlite3DbCallback::sqlite3DbCbCgf_t cfg{nullptr, &kind};
        char* cells[] = {const_cast<char*>(cell)};
        char* names[] = {nullptr};
        return db.dataBaseQueryCb(&cfg, 1, cells, names);
    }

    unsigned short count = 777;
};

} // namespace

TEST_F(FaultDbTest, CountsOnAClosedDatabaseFailSilently)
{
    db.setDbgLevel(2);
    unsigned short count = 777;
    EXPECT_EQ(db.getFaultStatisticTblErrorNr(count), -1);
    EXPECT_EQ(db.getFaultStatisticTblErrorActiveNr(count), -1);
    EXPECT_EQ(count, 777);
    EXPECT_EQ(console.take(), "");
}

TEST_F(Counting, EmptyTableCountsZero)
{
    EXPECT_EQ(db.getFaultStatisticTblErrorNr(count), 0);
    EXPECT_EQ(count, 0);
    count = 777;
    EXPECT_EQ(db.getFaultStatisticTblErrorActiveNr(count), 0);
    EXPECT_EQ(count, 0);
}

TEST_F(Counting, AllAndActiveStatisticsAreCounted)
{
    add(3, 1);
    EXPECT_EQ(db.getFaultStatisticTblErrorNr(count), 0);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(db.getFaultStatisticTblErrorActiveNr(count), 0);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(console.take(), "");
}

TEST_F(Counting, CountOfAllLogsItsStatementAndTheCallBack)
{
    add(3, 1);
    db.setDbgLevel(1);
    EXPECT_EQ(db.getFaultStatisticTblErrorNr(count), 0);
    EXPECT_THAT(console.takeLines(), ElementsAre("[DEBUG] FDB::getFaultStatisticTblErrorNr() Execute SqlCmd: "
                                                 "SELECT COUNT(*) FROM FdbFaultStatisticTbl",
                                                 "[DEBUG] FDB::dataBaseQueryCb() Process call back data...",
                                                 "[DEBUG] FDB::dataBaseQueryCb() Process call back data done"));
    db.setDbgLevel(2);
    EXPECT_EQ(db.getFaultStatisticTblErrorNr(count), 0);
    EXPECT_THAT(console.takeLines(), ElementsAre("[DEBUG] FDB::getFaultStatisticTblErrorNr() Execute SqlCmd: "
                                                 "SELECT COUNT(*) FROM FdbFaultStatisticTbl",
                                                 "[DEBUG] FDB::dataBaseQueryCb() Process call back data...",
                                                 "[DEBUG] FDB::dataBaseQueryCb() sqlCmdQueryCb=2",
                                                 "[DEBUG] FDB::dataBaseQueryCb() m_ErrorNr=3",
                                                 "[DEBUG] FDB::dataBaseQueryCb() Process call back data done"));
}

TEST_F(Counting, CountOfActiveLogsItsStatementAndTheCallBack)
{
    add(3, 1);
    db.setDbgLevel(1);
    EXPECT_EQ(db.getFaultStatisticTblErrorActiveNr(count), 0);
    EXPECT_THAT(console.takeLines(),
                ElementsAre("[DEBUG] FDB::getFaultStatisticTblErrorActiveNr() Execute SqlCmd: "
                            "SELECT COUNT() FROM FdbFaultStatisticTbl WHERE FaultActive LIKE 'active'",
                            "[DEBUG] FDB::dataBaseQueryCb() Process call back data...",
                            "[DEBUG] FDB::dataBaseQueryCb() Process call back data done"));
    db.setDbgLevel(2);
    EXPECT_EQ(db.getFaultStatisticTblErrorActiveNr(count), 0);
    EXPECT_THAT(console.takeLines(),
                ElementsAre("[DEBUG] FDB::getFaultStatisticTblErrorActiveNr() Execute SqlCmd: "
                            "SELECT COUNT() FROM FdbFaultStatisticTbl WHERE FaultActive LIKE 'active'",
                            "[DEBUG] FDB::dataBaseQueryCb() Process call back data...",
                            "[DEBUG] FDB::dataBaseQueryCb() sqlCmdQueryCb=1",
                            "[DEBUG] FDB::dataBaseQueryCb() m_ErrorActiveNr=1",
                            "[DEBUG] FDB::dataBaseQueryCb() Process call back data done"));
}

TEST_F(Counting, FailedCountsShareTheirMessageAndLeaveTheCount)
{
    RawDb(path).exec("DROP TABLE FdbFaultStatisticTbl");
    db.m_ErrorNr = 5;
    db.m_ErrorActiveNr = 6;
    std::string const sqlLine =
        "[ERROR] SQL3::execute() Sql Execute failed: no such table: FdbFaultStatisticTbl Err=1\n";
    EXPECT_EQ(db.getFaultStatisticTblErrorNr(count), -2);
    EXPECT_EQ(console.take(),
              sqlLine + "[ERROR] FDB::getFaultStatisticTblErrorNr() SQL for Get Error active nr failed:-2\n");
    EXPECT_EQ(db.getFaultStatisticTblErrorActiveNr(count), -2);
    EXPECT_EQ(console.take(),
              sqlLine + "[ERROR] FDB::getFaultStatisticTblErrorActiveNr() SQL for Get Error active nr failed:-2\n");
    EXPECT_EQ(count, 777);
    EXPECT_EQ(db.m_ErrorNr, 5);
    EXPECT_EQ(db.m_ErrorActiveNr, 6);
}

TEST_F(Counting, CountBeyondSixteenBitsIsReportedAndTheLastCountGivenAgain)
{
    add(3, 1);
    ASSERT_EQ(db.getFaultStatisticTblErrorNr(count), 0);
    RawDb(path).exec("INSERT INTO FdbFaultStatisticTbl(FaultCode) WITH RECURSIVE n(i) AS "
                     "(SELECT 1 UNION ALL SELECT i+1 FROM n LIMIT 65533) SELECT i FROM n");
    count = 777;
    EXPECT_EQ(db.getFaultStatisticTblErrorNr(count), 0);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(console.take(), "[ERROR] Casting value 65536\n");
}

TEST_F(Counting, NameOfTheActiveColumnIsFetchedOnce)
{
    ASSERT_EQ(db.getFaultStatisticTblErrorActiveNr(count), 0);
    db.m_faultStatisticTbl.m_columns.at(8).name = "Missing";
    EXPECT_EQ(db.getFaultStatisticTblErrorActiveNr(count), 0);
}

TEST_F(Counting, CallBackStoresTheCountByItsKind)
{
    EXPECT_EQ(callBack(1, "11"), 0);
    EXPECT_EQ(callBack(2, "22"), 0);
    EXPECT_EQ(db.m_ErrorActiveNr, 11);
    EXPECT_EQ(db.m_ErrorNr, 22);
}

TEST_F(Counting, CallBackKeepsTheCountForACellThatIsNoNumber)
{
    callBack(1, "11");
    callBack(2, "22");
    for (int const kind : {1, 2})
    {
        EXPECT_EQ(callBack(kind, nullptr), 0);
        EXPECT_EQ(console.take(), "");
        EXPECT_EQ(callBack(kind, "x"), 0);
        EXPECT_EQ(console.take(), "[ERROR] Casting value x\n");
    }
    EXPECT_EQ(db.m_ErrorActiveNr, 11);
    EXPECT_EQ(db.m_ErrorNr, 22);
}

TEST_F(Counting, CallBackReportsAnUnknownKindAtEveryLevelAndStoresNothing)
{
    callBack(1, "11");
    callBack(2, "22");
    std::string const line = "[ERROR] FDB::dataBaseQueryCb() Unknown sqlCmdQueryCb=3";
    EXPECT_EQ(callBack(3, "33"), 0);
    EXPECT_THAT(console.takeLines(), ElementsAre(line));
    for (int const level : {1, 2})
    {
        db.setDbgLevel(level);
        EXPECT_EQ(callBack(3, "33"), 0);
        EXPECT_THAT(console.takeLines(), Contains(line)) << level;
    }
    EXPECT_EQ(db.m_ErrorActiveNr, 11);
    EXPECT_EQ(db.m_ErrorNr, 22);
}

TEST_F(Counting, CallBackWithoutAConfigurationDoesNothing)
{
    callBack(1, "11");
    callBack(2, "22");
    EXPECT_EQ(db.dataBaseQueryCb(nullptr, 0, nullptr, nullptr), 0);
    EXPECT_EQ(console.take(), "");
    for (int const level : {1, 2})
    {
        db.setDbgLevel(level);
        EXPECT_EQ(db.dataBaseQueryCb(nullptr, 0, nullptr, nullptr), 0);
        EXPECT_THAT(console.takeLines(), ElementsAre("[DEBUG] FDB::dataBaseQueryCb() Process call back data...",
                                                     "[DEBUG] FDB::dataBaseQueryCb() Not handled because cfg is NULL",
                                                     "[DEBUG] FDB::dataBaseQueryCb() Process call back data done"))
            << level;
    }
    EXPECT_EQ(db.m_ErrorActiveNr, 11);
    EXPECT_EQ(db.m_ErrorNr, 22);
}
