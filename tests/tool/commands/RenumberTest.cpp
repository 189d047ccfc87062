// firaim renumber, and the file's triggers, which it and firaim trim run.

#include "ChangingCommandFixture.h"

#include <gmock/gmock.h>

#include <filesystem>

#include <sys/stat.h>

namespace
{

using testing::HasSubstr;

using RenumberTest = ChangingCommandTest;
using TriggerTest = ChangingCommandTest;

} // namespace

TEST_F(TriggerTest, AnEndlessTriggerIsInterrupted)
{
    std::string const endless =
        " ON FdbFaultTbl BEGIN SELECT count(*) FROM (WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL "
        "SELECT x + 1 FROM c) SELECT x FROM c); END; ";
    RawDb(path).exec("UPDATE FdbFaultTbl SET Status = 'ErrorInactive'; CREATE TRIGGER endlessUpdate AFTER UPDATE" +
                     endless + "CREATE TRIGGER endlessDelete AFTER DELETE" + endless);
    std::string const before = readFile(path);
    std::vector<std::vector<std::string>> const commands = {{"renumber", path, "--from", "2", "--to", "3"},
                                                            {"trim", path, "--keep", "1"}};
    for (std::vector<std::string> const& command : commands)
    {
        Outcome const outcome = runTool(command);
        EXPECT_EQ(outcome.status, 3) << command[0];
        EXPECT_EQ(outcome.errors,
                  "firaim: " + path +
                      ": a statement that runs triggers of the file takes longer than 5 s; 'firaim check' lists the "
                      "triggers; nothing of it was stored\n");
        EXPECT_TRUE(readFile(path) == before) << command[0];
    }
}

TEST_F(TriggerTest, TriggersThatEndRun)
{
    RawDb(path).exec("CREATE TABLE log(key); CREATE TRIGGER noteUpdate AFTER UPDATE ON FdbFaultTbl BEGIN INSERT INTO "
                     "log VALUES(new.EntryId); END; CREATE TRIGGER noteDelete AFTER DELETE ON FdbFaultTbl BEGIN INSERT "
                     "INTO log VALUES(-old.EntryId); END; UPDATE FdbFaultTbl SET Status = 'ErrorInactive'; DELETE FROM "
                     "log");
    EXPECT_EQ(output({"renumber", path, "--from", "2", "--to", "3"}),
              "moved 2 faults and 2 statistics from start-up id 2 to 3\n");
    EXPECT_EQ(output({"trim", path, "--keep", "2"}), "removed 1 fault\n");
    EXPECT_EQ(value("SELECT group_concat(key) FROM log"), "2,3,-1");
}

TEST_F(RenumberTest, MovesFaultsAndStatistics)
{
    Outcome const outcome = runTool({"renumber", path, "--from", "2", "--to", "4294967295"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "moved 2 faults and 2 statistics from start-up id 2 to 4294967295\n");
    EXPECT_EQ(value("SELECT group_concat(RdbStartupId) FROM FdbFaultTbl"), "1,4294967295,4294967295");
    EXPECT_EQ(value("SELECT group_concat(RdbStartupId) FROM FdbFaultStatisticTbl"), "4294967295,4294967295");
}

TEST_F(RenumberTest, MovesRowsWithQuotes)
{
    insertFault("RdbStartupId,Description,ModuleName", "2,'it''s','o''clock'");
    RawDb(path).exec("UPDATE FdbFaultStatisticTbl SET TimeZoneLastOccurred = '''' WHERE EntryId = 2");
    EXPECT_EQ(output({"renumber", path, "--from", "2", "--to", "3"}),
              "moved 3 faults and 2 statistics from start-up id 2 to 3\n");
    EXPECT_EQ(value("SELECT RdbStartupId || Description || ModuleName FROM FdbFaultTbl WHERE EntryId = 4"),
              "3it'so'clock");
    EXPECT_EQ(value("SELECT RdbStartupId || TimeZoneLastOccurred FROM FdbFaultStatisticTbl WHERE EntryId = 2"), "3'");
}

TEST_F(RenumberTest, ExitsWithStatus1WhenNoRowHasTheId)
{
    Outcome const outcome = runTool({"renumber", path, "--from", "9", "--to", "3"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("no fault or statistic has the start-up id 9"));
}

TEST_F(RenumberTest, MovesOneOfTheStatisticsThatShareACode)
{
    RawDb(path).exec("UPDATE FdbFaultStatisticTbl SET FaultCode = 1025, RdbStartupId = EntryId");
    std::string const others = value("SELECT group_concat(OccurenceCnt || FaultEntryId) FROM FdbFaultStatisticTbl");
    EXPECT_EQ(output({"renumber", path, "--from", "2", "--to", "3"}),
              "moved 2 faults and 1 statistic from start-up id 2 to 3\n");
    EXPECT_EQ(value("SELECT group_concat(RdbStartupId) FROM FdbFaultStatisticTbl"), "1,3");
    EXPECT_EQ(value("SELECT group_concat(OccurenceCnt || FaultEntryId) FROM FdbFaultStatisticTbl"), others);
}

TEST_F(RenumberTest, MovesAllOrNothingWhereTheStorageIsFull)
{
    RawDb(path).exec(
        "DELETE FROM FdbFaultTbl; WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < "
        "3000) INSERT INTO FdbFaultTbl SELECT NULL, '', 1, 'a', 'b', 'c', 1, '', 'ErrorActive', 'd', '', 1, "
        "1, '', 2, '' FROM n");
    Setting setting;
    setting.longestFile = 60000; // Enough for the journal of some rows, but not of all.
    Outcome const outcome = runTool({"renumber", path, "--from", "2", "--to", "3"}, setting);
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("nothing of it was stored"));
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl WHERE RdbStartupId = 2"), "3000");
    EXPECT_EQ(value("PRAGMA integrity_check"), "ok");
}

TEST_F(RenumberTest, WaitsForAReaderOnceAndNotForEachRow)
{
    RawDb(path).exec(
        "DELETE FROM FdbFaultTbl; WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < "
        "30000) INSERT INTO FdbFaultTbl SELECT NULL, '', 1, 'a', 'b', 'c', 1, '', 'ErrorActive', 'some text "
        "of some length, so that there are more pages than fit into the memory of SQLite', '', 1, 1, '', 2, "
        "'' FROM n");
    RawDb reader(path);
    reader.exec("BEGIN; SELECT count(*) FROM FdbFaultTbl");
    Outcome const outcome = runTool({"renumber", path, "--from", "2", "--to", "3"});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("database is locked"));
    reader.exec("ROLLBACK");
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl WHERE RdbStartupId = 2"), "30000");
}

TEST_F(RenumberTest, MovesRowsWithDamagedCellsAndLeavesTheseAsTheyAre)
{
    insertFault("RdbStartupId,TimeStampUTC,Description", "2,1e19,x'00ff'");
    EXPECT_EQ(output({"renumber", path, "--from", "2", "--to", "3"}),
              "moved 3 faults and 2 statistics from start-up id 2 to 3\n");
    EXPECT_EQ(value("SELECT RdbStartupId || ' ' || TimeStampUTC || ' ' || hex(Description) FROM FdbFaultTbl WHERE "
                    "EntryId = 4"),
              "3 1.0e+19 00FF");
}

TEST_F(RenumberTest, ReportsTheChangeWhenOnlyTheOutputCouldNotBeWritten)
{
    EXPECT_EQ(runWithFullOutput("renumber '" + path + "' --from 2 --to 3"), 3);
    EXPECT_THAT(readFile(dir.file("err")), HasSubstr("this was done all the same: moved 2 faults and 2 statistics"));
    EXPECT_EQ(value("SELECT group_concat(RdbStartupId) FROM FdbFaultTbl"), "1,3,3");
}
