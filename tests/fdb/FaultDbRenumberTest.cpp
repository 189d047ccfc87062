#include "Fixtures.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::StartsWith;

namespace
{

constexpr unsigned int kOldId = 6;
constexpr unsigned int kNewId = 7;

class Renumbering : public FaultDbTest
{
protected:
    Renumbering() { createAndOpen(); }

    Fault addFault(unsigned int seed, unsigned int startupId)
    {
        Fault fault = makeFault(seed);
        fault.RdbStartupId = startupId;
        EXPECT_EQ(db.insert(fault), 0);
        return fault;
    }

    void addStatistic(unsigned int seed, unsigned int startupId)
    {
        FaultStatistic statistic = makeStatistic(seed);
        statistic.RdbStartupId = startupId;
        EXPECT_EQ(db.insert(statistic), 0);
    }

    std::string info(std::string const& message) const { return "[INFO] FDB::updateRdbStartup() " + message; }
    std::string debug(std::string const& message) const { return "[DEBUG] FDB::updateRdbStartup() " + message; }
};

} // namespace

TEST_F(FaultDbTest, StartupIdIsNotMovedOnAClosedDatabase)
{
    db.setDbgLevel(2);
    EXPECT_EQ(db.updateRdbStartup(kNewId, kOldId), -1);
    EXPECT_EQ(console.take(), "");
}

TEST_F(Renumbering, MovesFaultsAndStatisticsOfTheOldIdAndNoOthers)
{
    addFault(1, kOldId);
    addFault(2, 5);
    addFault(3, kOldId);
    addStatistic(1, kOldId);
    addStatistic(2, 5);
    EXPECT_EQ(db.updateRdbStartup(kNewId, kOldId), 0);
    EXPECT_THAT(RawDb(path).rows("SELECT RdbStartupId FROM FdbFaultTbl ORDER BY EntryId"),
                ElementsAre(RawDb::Row{"7"}, RawDb::Row{"5"}, RawDb::Row{"7"}));
    EXPECT_THAT(RawDb(path).rows("SELECT RdbStartupId FROM FdbFaultStatisticTbl ORDER BY EntryId"),
                ElementsAre(RawDb::Row{"7"}, RawDb::Row{"5"}));
}

TEST_F(Renumbering, ChangesNothingElseInAMovedRow)
{
    Fault expected = addFault(1, kOldId);
    ASSERT_EQ(db.updateRdbStartup(kNewId, kOldId), 0);
    expected.RdbStartupId = kNewId;
    Fault stored;
    ASSERT_EQ(db.getFaultById(stored, expected.EntryId), 0);
    EXPECT_EQ(members(stored), members(expected));
}

TEST_F(Renumbering, LogsTheMoveAndEachFaultButNoStatisticAtDebugLevelZero)
{
    addFault(1, kOldId);
    addFault(2, kOldId);
    addStatistic(1, kOldId);
    EXPECT_EQ(db.updateRdbStartup(kNewId, kOldId), 0);
    EXPECT_THAT(console.takeLines(), ElementsAre(info("new ID=7old ID=6"), info("Update fault FC=1001 EntryID=1"),
                                                 info("Update fault FC=1002 EntryID=2")));
}

TEST_F(Renumbering, LogsTheStatementsOfItsUpdatesAtDebugLevelTwo)
{
    addFault(1, kOldId);
    addStatistic(1, kOldId);
    db.setDbgLevel(2);
    EXPECT_EQ(db.updateRdbStartup(kNewId, kOldId), 0);
    std::vector<std::string> const lines = console.takeLines();
    ASSERT_EQ(lines.size(), 11U);
    EXPECT_EQ(lines[1], debug("SqlCmd: SELECT * FROM FdbFaultTbl WHERE RdbStartupId = 6"));
    EXPECT_EQ(lines[2], debug("No RDB id Fault itemNr=1"));
    EXPECT_THAT(lines[5], StartsWith("[DEBUG] FDB::update() SqlCmd: UPDATE FdbFaultTbl SET 'DateTimeString'="));
    EXPECT_EQ(lines[6], debug("SqlCmd: SELECT * FROM FdbFaultStatisticTbl WHERE RdbStartupId = 6"));
    EXPECT_EQ(lines[7], debug("No RDB id FaultStat itemNr=1"));
    EXPECT_THAT(lines[10], StartsWith("[DEBUG] FDB::update() SqlCmd: UPDATE FdbFaultStatisticTbl SET 'FaultCode'="));
}

TEST_F(Renumbering, LogsWholeFaultCodes)
{
    Fault fault;
    fault.FaultCode = static_cast<faultCode_t>(4294967295U);
    fault.RdbStartupId = kOldId;
    ASSERT_EQ(db.insert(fault), 0);
    EXPECT_EQ(db.updateRdbStartup(kNewId, kOldId), 0);
    EXPECT_THAT(console.takeLines(),
                ElementsAre(info("new ID=7old ID=6"), info("Update fault FC=4294967295 EntryID=1")));
}

TEST_F(Renumbering, LogsEveryStepAtDebugLevelOne)
{
    Fault fault = addFault(1, kOldId);
    fault.RdbStartupId = kNewId;
    addStatistic(1, kOldId);
    FaultStatistic statistic = makeStatistic(1);
    statistic.RdbStartupId = kNewId;
    db.setDbgLevel(1);
    EXPECT_EQ(db.updateRdbStartup(kNewId, kOldId), 0);
    EXPECT_THAT(console.takeLines(),
                ElementsAre(info("new ID=7old ID=6"), debug("SqlCmd: SELECT * FROM FdbFaultTbl WHERE RdbStartupId = 6"),
                            debug("No RDB id Fault itemNr=1"), info("Update fault FC=1001 EntryID=1"),
                            "[DEBUG] FDB::update() Update:" + textOf(fault),
                            debug("SqlCmd: SELECT * FROM FdbFaultStatisticTbl WHERE RdbStartupId = 6"),
                            debug("No RDB id FaultStat itemNr=1"), debug("Update Statistic FC=1001 EntryID=1"),
                            "[DEBUG] FDB::update() Update:" + textOf(statistic)));
}

TEST_F(Renumbering, WithoutAMatchOnlyTheMoveIsLogged)
{
    addFault(1, 5);
    auto const before = RawDb(path).rows("SELECT * FROM FdbFaultTbl");
    EXPECT_EQ(db.updateRdbStartup(kNewId, kOldId), 0);
    EXPECT_THAT(console.takeLines(), ElementsAre(info("new ID=7old ID=6")));
    EXPECT_EQ(RawDb(path).rows("SELECT * FROM FdbFaultTbl"), before);
}

TEST_F(Renumbering, ToTheSameIdRewritesTheRowsAsTheyAre)
{
    addFault(1, kOldId);
    auto const before = RawDb(path).rows("SELECT * FROM FdbFaultTbl");
    EXPECT_EQ(db.updateRdbStartup(kOldId, kOldId), 0);
    EXPECT_EQ(RawDb(path).rows("SELECT * FROM FdbFaultTbl"), before);
    EXPECT_THAT(console.takeLines(), ElementsAre(info("new ID=6old ID=6"), info("Update fault FC=1001 EntryID=1")));
}

TEST_F(Renumbering, StatisticsThatShareACodeAllGetTheMovedValues)
{
    addStatistic(1, kOldId);
    FaultStatistic sibling = makeStatistic(2);
    sibling.FaultCode = makeStatistic(1).FaultCode;
    sibling.RdbStartupId = 5;
    ASSERT_EQ(db.insert(sibling), 0);
    EXPECT_EQ(db.updateRdbStartup(kNewId, kOldId), 0);
    FaultStatisticTbl stored;
    ASSERT_EQ(db.getFaultStatisticTbl(stored), 2);
    EXPECT_EQ(stored[1].EntryId, 2U);
    stored[1].EntryId = stored[0].EntryId;
    EXPECT_EQ(members(stored[1]), members(stored[0]));
    EXPECT_EQ(stored[1].RdbStartupId, kNewId);
}

TEST_F(Renumbering, FaultThatWasRemovedBeforeItIsWrittenBackIsSkipped)
{
    addFault(1, kOldId);
    addFault(2, kOldId);
    RawDb(path).exec("CREATE TRIGGER gone AFTER UPDATE ON FdbFaultTbl WHEN old.EntryId=1 BEGIN "
                     "DELETE FROM FdbFaultTbl WHERE EntryId=1; DELETE FROM FdbFaultTbl WHERE EntryId=2; END");
    addFault(3, kOldId);
    EXPECT_EQ(db.updateRdbStartup(kNewId, kOldId), 0);
    EXPECT_THAT(RawDb(path).rows("SELECT EntryId,RdbStartupId FROM FdbFaultTbl"), ElementsAre(RawDb::Row{"3", "7"}));
}

TEST_F(Renumbering, RowsWhoseStoredTextHoldsAQuoteStayAndTheOthersMove)
{
    for (std::string const text : {"it''s", "''''", "plain"})
    {
        Fault fault = makeFault(1);
        fault.Description = text;
        fault.RdbStartupId = kOldId;
        ASSERT_EQ(db.insert(fault), 0);
    }
    EXPECT_EQ(db.updateRdbStartup(kNewId, kOldId), 0);
    EXPECT_THAT(RawDb(path).rows("SELECT Description,RdbStartupId FROM FdbFaultTbl ORDER BY EntryId"),
                ElementsAre(RawDb::Row{"it's", "6"}, RawDb::Row{"''", "6"}, RawDb::Row{"plain", "7"}));
    std::string const refusal = "[ERROR] SQL3::execute() Sql Execute failed: quote of a stored text cannot be written "
                                "back in column Description Err=1";
    EXPECT_THAT(console.takeLines(),
                ElementsAre(info("new ID=7old ID=6"), info("Update fault FC=1001 EntryID=1"), refusal,
                            info("Update fault FC=1001 EntryID=2"), refusal, info("Update fault FC=1001 EntryID=3")));
}

TEST_F(Renumbering, StatisticWhoseStoredTextHoldsAQuoteStaysAndTheOthersMove)
{
    FaultStatistic statistic = makeStatistic(1);
    statistic.FaultCodeName = "''";
    statistic.RdbStartupId = kOldId;
    ASSERT_EQ(db.insert(statistic), 0);
    addStatistic(2, kOldId);
    EXPECT_EQ(db.updateRdbStartup(kNewId, kOldId), 0);
    EXPECT_THAT(RawDb(path).rows("SELECT FaultCodeName,RdbStartupId FROM FdbFaultStatisticTbl ORDER BY EntryId"),
                ElementsAre(RawDb::Row{"'", "6"}, RawDb::Row{"code name 2", "7"}));
}

TEST_F(Renumbering, FailedUpdateOfARowLetsTheOthersMove)
{
    for (unsigned int seed : {1U, 2U})
    {
        addFault(seed, kOldId);
        addStatistic(seed, kOldId);
    }
    RawDb(path).exec("CREATE TRIGGER f BEFORE UPDATE ON FdbFaultTbl WHEN old.EntryId=1 BEGIN "
                     "SELECT RAISE(ABORT,'no'); END;"
                     "CREATE TRIGGER s BEFORE UPDATE ON FdbFaultStatisticTbl WHEN old.EntryId=1 BEGIN "
                     "SELECT RAISE(ABORT,'no'); END");
    EXPECT_EQ(db.updateRdbStartup(kNewId, kOldId), 0);
    EXPECT_THAT(RawDb(path).rows("SELECT f.RdbStartupId,s.RdbStartupId FROM FdbFaultTbl f JOIN FdbFaultStatisticTbl s "
                                 "USING(EntryId) ORDER BY EntryId"),
                ElementsAre(RawDb::Row{"6", "6"}, RawDb::Row{"7", "7"}));
}

TEST_F(Renumbering, FailedReadOfFaultsStillMovesTheStatistics)
{
    addStatistic(1, kOldId);
    RawDb(path).exec("DROP TABLE FdbFaultTbl");
    EXPECT_EQ(db.updateRdbStartup(kNewId, kOldId), 0);
    EXPECT_THAT(console.takeLines(),
                ElementsAre(info("new ID=7old ID=6"),
                            "[ERROR] SQL3::getTbl() Sql Query failed: no such table: FdbFaultTbl Err=1"));
    EXPECT_EQ(RawDb(path).value("SELECT RdbStartupId FROM FdbFaultStatisticTbl"), "7");
}

TEST_F(Renumbering, FailedReadOfStatisticsStillMovesTheFaults)
{
    addFault(1, kOldId);
    RawDb(path).exec("DROP TABLE FdbFaultStatisticTbl");
    EXPECT_EQ(db.updateRdbStartup(kNewId, kOldId), 0);
    EXPECT_EQ(RawDb(path).value("SELECT RdbStartupId FROM FdbFaultTbl"), "7");
}

TEST_F(Renumbering, WholeRangeOfIdsIsWrittenUnsigned)
{
    addFault(1, 4294967295U);
    EXPECT_EQ(db.updateRdbStartup(4294967294U, 4294967295U), 0);
    EXPECT_EQ(RawDb(path).value("SELECT RdbStartupId FROM FdbFaultTbl"), "4294967294");
    EXPECT_EQ(console.takeLines().front(), info("new ID=4294967294old ID=4294967295"));
}
