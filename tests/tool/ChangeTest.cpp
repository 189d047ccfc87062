// Renumbering, trimming, copying: what changes, and above all what does not.

#include "ToolProcess.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>

#include <sys/stat.h>

namespace
{

using testing::HasSubstr;

class Changing : public ToolTest
{
protected:
    Changing() { createSample(); }

    /// Runs the program with nowhere to print to, and returns its exit status.
    int runWithFullOutput(std::string const& arguments)
    {
        int const status =
            std::system(("'" FIRAIM_TEST_TOOL "' " + arguments + " >/dev/full 2>'" + dir.file("err") + "'").c_str());
        return WEXITSTATUS(status);
    }

    std::string faults() { return value("SELECT group_concat(EntryId) FROM FdbFaultTbl"); }
};

using Renumbering = Changing;
/// All but the last of the three faults are over.
class Trimming : public Changing
{
protected:
    Trimming() { RawDb(path).exec("UPDATE FdbFaultTbl SET Status = 'ErrorInactive' WHERE EntryId = 1"); }
};

using CopyingAFile = Changing;

} // namespace

TEST_F(Changing, ATriggerThatDoesNotEndIsEnded)
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
        outcome_t const outcome = runTool(command);
        EXPECT_EQ(outcome.status, 3) << command[0];
        EXPECT_EQ(outcome.errors,
                  "firaim: " + path + ": a trigger in the file takes too long; nothing of it was stored\n");
        EXPECT_TRUE(readFile(path) == before) << command[0];
    }
}

TEST_F(Changing, TriggersThatEndRun)
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

TEST_F(Renumbering, MovesFaultsAndStatistics)
{
    outcome_t const outcome = runTool({"renumber", path, "--from", "2", "--to", "4294967295"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "moved 2 faults and 2 statistics from start-up id 2 to 4294967295\n");
    EXPECT_EQ(value("SELECT group_concat(RdbStartupId) FROM FdbFaultTbl"), "1,4294967295,4294967295");
    EXPECT_EQ(value("SELECT group_concat(RdbStartupId) FROM FdbFaultStatisticTbl"), "4294967295,4294967295");
}

TEST_F(Renumbering, MovesRowsWithQuotes)
{
    insertFault("RdbStartupId,Description,ModuleName", "2,'it''s','o''clock'");
    RawDb(path).exec("UPDATE FdbFaultStatisticTbl SET TimeZoneLastOccurred = '''' WHERE EntryId = 2");
    EXPECT_EQ(output({"renumber", path, "--from", "2", "--to", "3"}),
              "moved 3 faults and 2 statistics from start-up id 2 to 3\n");
    EXPECT_EQ(value("SELECT RdbStartupId || Description || ModuleName FROM FdbFaultTbl WHERE EntryId = 4"),
              "3it'so'clock");
    EXPECT_EQ(value("SELECT RdbStartupId || TimeZoneLastOccurred FROM FdbFaultStatisticTbl WHERE EntryId = 2"), "3'");
}

TEST_F(Renumbering, AnswersNoWhenNothingHasTheId)
{
    outcome_t const outcome = runTool({"renumber", path, "--from", "9", "--to", "3"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("nothing has the start-up id 9"));
}

TEST_F(Renumbering, MovesOneOfTheStatisticsThatShareACode)
{
    RawDb(path).exec("UPDATE FdbFaultStatisticTbl SET FaultCode = 1025, RdbStartupId = EntryId");
    std::string const others = value("SELECT group_concat(OccurenceCnt || FaultEntryId) FROM FdbFaultStatisticTbl");
    EXPECT_EQ(output({"renumber", path, "--from", "2", "--to", "3"}),
              "moved 2 faults and 1 statistic from start-up id 2 to 3\n");
    EXPECT_EQ(value("SELECT group_concat(RdbStartupId) FROM FdbFaultStatisticTbl"), "1,3");
    EXPECT_EQ(value("SELECT group_concat(OccurenceCnt || FaultEntryId) FROM FdbFaultStatisticTbl"), others);
}

TEST_F(Renumbering, MovesAllOrNothingWhereTheStorageIsFull)
{
    RawDb(path).exec(
        "DELETE FROM FdbFaultTbl; WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < "
        "3000) INSERT INTO FdbFaultTbl SELECT NULL, '', 1, 'a', 'b', 'c', 1, '', 'ErrorActive', 'd', '', 1, "
        "1, '', 2, '' FROM n");
    setting_t setting;
    setting.longestFile = 60000; // The journal of some rows fits, that of all of them does not.
    outcome_t const outcome = runTool({"renumber", path, "--from", "2", "--to", "3"}, setting);
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("nothing of it was stored"));
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl WHERE RdbStartupId = 2"), "3000");
    EXPECT_EQ(value("PRAGMA integrity_check"), "ok");
}

TEST_F(Renumbering, WaitsForAReaderOnceAndNotForEachRow)
{
    RawDb(path).exec(
        "DELETE FROM FdbFaultTbl; WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < "
        "30000) INSERT INTO FdbFaultTbl SELECT NULL, '', 1, 'a', 'b', 'c', 1, '', 'ErrorActive', 'some text "
        "of some length, so that there are more pages than fit into the memory of SQLite', '', 1, 1, '', 2, "
        "'' FROM n");
    RawDb reader(path);
    reader.exec("BEGIN; SELECT count(*) FROM FdbFaultTbl");
    outcome_t const outcome = runTool({"renumber", path, "--from", "2", "--to", "3"});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("database is locked"));
    reader.exec("ROLLBACK");
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl WHERE RdbStartupId = 2"), "30000");
}

TEST_F(Renumbering, MovesRowsWithDamagedCellsAndLeavesTheseAsTheyAre)
{
    insertFault("RdbStartupId,TimeStampUTC,Description", "2,1e19,x'00ff'");
    EXPECT_EQ(output({"renumber", path, "--from", "2", "--to", "3"}),
              "moved 3 faults and 2 statistics from start-up id 2 to 3\n");
    EXPECT_EQ(value("SELECT RdbStartupId || ' ' || TimeStampUTC || ' ' || hex(Description) FROM FdbFaultTbl WHERE "
                    "EntryId = 4"),
              "3 1.0e+19 00FF");
}

TEST_F(Renumbering, SaysWhatWasDoneWhenOnlyThatCouldNotBeWritten)
{
    EXPECT_EQ(runWithFullOutput("renumber '" + path + "' --from 2 --to 3"), 3);
    EXPECT_THAT(readFile(dir.file("err")), HasSubstr("this was done all the same: moved 2 faults and 2 statistics"));
    EXPECT_EQ(value("SELECT group_concat(RdbStartupId) FROM FdbFaultTbl"), "1,3,3");
}

TEST_F(Trimming, KeepsTheNewest)
{
    EXPECT_EQ(output({"trim", path, "--keep", "2"}), "removed 1 fault\n");
    EXPECT_EQ(faults(), "2,3");
    EXPECT_EQ(output({"trim", path, "--keep", "2"}), "removed 0 faults\n");
    EXPECT_EQ(output({"trim", path, "--keep", "4294967295"}), "removed 0 faults\n");
}

TEST_F(Trimming, SaysWhatWasDoneWhenOnlyThatCouldNotBeWritten)
{
    EXPECT_EQ(runWithFullOutput("trim '" + path + "' --keep 2"), 3);
    EXPECT_THAT(readFile(dir.file("err")), HasSubstr("this was done all the same: removed 1 fault"));
    EXPECT_EQ(faults(), "2,3");
}

TEST_F(Trimming, NeverRemovesAFaultThatAnActiveStatisticRefersTo)
{
    RawDb(path).exec("UPDATE FdbFaultTbl SET Status = 'ErrorInactive'; UPDATE FdbFaultStatisticTbl SET FaultEntryId = "
                     "1 WHERE EntryId = 1; INSERT INTO FdbFaultStatisticTbl(FaultActive) VALUES('active')");
    EXPECT_EQ(output({"trim", path, "--keep", "0"}),
              "removed 2 faults; 1 old fault stays: it tells what is active, or an active statistic refers to it\n");
    EXPECT_EQ(faults(), "1");
    RawDb(path).exec("UPDATE FdbFaultStatisticTbl SET FaultActive = 'inactive'");
    EXPECT_EQ(output({"trim", path, "--keep", "0"}), "removed 1 fault\n");
}

TEST_F(Trimming, WhatIsActiveStaysActiveWhicheverRowItsStatisticRefersTo)
{
    output({"record", path, "--code", "7", "--module", "ch1"});
    output({"record", path, "--code", "7", "--module", "ch1", "--param", "p"});
    output({"record", path, "--code", "7", "--module", "ch2"});
    output({"record", path, "--code", "7", "--module", "ch1", "--param", "p", "--inactive"});
    output({"record", path, "--code", "7", "--module", "ch2", "--inactive"});
    EXPECT_THAT(output({"trim", path, "--keep", "1"}), HasSubstr("removed 5 faults"));
    EXPECT_EQ(faults(), "3,4,8");
    EXPECT_EQ(output({"clear", path, "--code", "7", "--module", "ch1"}), "9\n");
    output({"trim", path, "--keep", "1"});
    EXPECT_EQ(faults(), "3,9") << "the first of these is of another code, which is active";
}

TEST_F(Trimming, SparesTheNewestRowOfAnActiveFaultOnlyAndThatOneWhateverItsCells)
{
    insertFault("ModuleName,Parameter", "NULL,'p'");
    insertFault("ModuleName,Parameter", "'n/a',CAST('p' AS BLOB)");
    insertFault("ModuleName,Status", "'it''s','ErrorActive'");
    insertFault("ModuleName,Status", "'it''s',NULL");
    insertFault("FaultCode", "1");
    EXPECT_EQ(output({"trim", path, "--keep", "1"}),
              "removed 5 faults; 2 old faults stay: they tell what is active, or active statistics refer to them\n");
    EXPECT_EQ(faults(), "3,5,8");
}

TEST_F(Trimming, WhatIsOverStaysOverWhenTheClockWentBack)
{
    output({"record", path, "--code", "7", "--time", "2031-06-01"});
    output({"record", path, "--code", "7", "--time", "2031-01-01", "--inactive"});
    output({"record", path, "--code", "8", "--time", "2031-01-01"});
    output({"record", path, "--code", "8", "--time", "2031-01-01", "--inactive"});
    EXPECT_EQ(output({"trim", path, "--before", "2031-02-01"}),
              "removed 2 faults; 1 old fault stays: it tells what is active, or an active statistic refers to it\n");
    EXPECT_EQ(runTool({"clear", path, "--code", "7"}).status, 1);
}

TEST_F(Trimming, RemovesThoseBeforeATimeButNoneWithoutOne)
{
    insertFault("TimeStampUTC", "0");
    insertFault("TimeStampUTC", "1935630121");
    insertFault("TimeStampUTC", "'x'");
    EXPECT_EQ(output({"trim", path, "--before", "2031-05-05"}), "removed 3 faults\n");
    EXPECT_EQ(faults(), "3,4,6");
}

TEST_F(Trimming, NeverUsesAKeyAgain)
{
    output({"trim", path, "--keep", "1", "--vacuum"});
    RawDb(path).exec("UPDATE FdbFaultTbl SET Status = 'ErrorInactive'; UPDATE FdbFaultStatisticTbl SET FaultActive = "
                     "'inactive'");
    output({"trim", path, "--keep", "0", "--vacuum"});
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl"), "0");
    EXPECT_EQ(output({"record", path, "--code", "FC_BUS_OFF"}), "4\n");
}

TEST_F(Trimming, ADryRunChangesNothing)
{
    std::string const before = readFile(path);
    EXPECT_EQ(output({"trim", path, "--keep", "1", "--dry-run", "--vacuum"}), "would remove 2 faults\n");
    EXPECT_EQ(readFile(path), before);
}

TEST_F(Trimming, VacuumsAlsoWhenTheReportCannotBeWritten)
{
    RawDb(path).exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000) INSERT INTO "
                     "FdbFaultTbl(Description) SELECT 'some text' FROM n");
    auto const before = std::filesystem::file_size(path);
    EXPECT_EQ(runWithFullOutput("trim '" + path + "' --keep 10 --vacuum"), 3);
    EXPECT_LT(std::filesystem::file_size(path), before / 4);
    EXPECT_THAT(readFile(dir.file("err")),
                HasSubstr("this was done all the same: removed 4,992 faults; 1 old fault stays"));
}

TEST_F(Trimming, SaysWhatWasRemovedWhenOnlyTheVacuumFails)
{
    RawDb(path).exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 20000) INSERT INTO "
                     "FdbFaultTbl(Description) SELECT hex(zeroblob(200)) FROM n");
    setting_t setting;
    setting.longestFile = static_cast<unsigned long>(std::filesystem::file_size(path)); // A vacuum's journal is larger.
    outcome_t const outcome = runTool({"trim", path, "--keep", "20001", "--vacuum"}, setting);
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("this was done all the same: removed 2 faults\n"));
    EXPECT_EQ(faults().substr(0, 4), "3,4,");
}

TEST_F(Trimming, VacuumGivesTheSpaceBack)
{
    RawDb(path).exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000) INSERT INTO "
                     "FdbFaultTbl(Description) SELECT 'some text' FROM n");
    auto const before = std::filesystem::file_size(path);
    EXPECT_THAT(output({"trim", path, "--keep", "10", "--vacuum"}),
                HasSubstr("removed 4,992 faults; 1 old fault stays"));
    EXPECT_LT(std::filesystem::file_size(path), before / 4);
    EXPECT_LE(std::filesystem::file_size(path + "-journal"), 65536u);
    EXPECT_EQ(value("PRAGMA integrity_check"), "ok");
}

TEST_F(CopyingAFile, MakesAWholeCopy)
{
    std::string const copy = dir.file("copy.db");
    EXPECT_EQ(output({"backup", path, copy}), "");
    EXPECT_EQ(output({"export", copy, "--format", "json"}), output({"export", path, "--format", "json"}));
    EXPECT_EQ(output({"check", copy}), copy + ": nothing is wrong\n");
    EXPECT_FALSE(exists(copy + "-journal"));
}

TEST_F(CopyingAFile, NeverReplacesAFileUnasked)
{
    std::string const copy = dir.file("copy.db");
    writeFile(copy, "precious");
    outcome_t const outcome = runTool({"backup", path, copy});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("exists already"));
    EXPECT_EQ(readFile(copy), "precious");
    output({"backup", path, copy, "--force"});
    EXPECT_EQ(output({"check", copy}), copy + ": nothing is wrong\n");
}

TEST_F(CopyingAFile, IsForThoseWhoMayReadTheFile)
{
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    output({"backup", path, dir.file("copy.db")});
    EXPECT_EQ(std::filesystem::status(dir.file("copy.db")).permissions(), std::filesystem::perms(0600));
}

TEST_F(CopyingAFile, NeverReplacesItself)
{
    EXPECT_EQ(runTool({"backup", path, path + "-wal"}).status, 2);
    EXPECT_EQ(runTool({"backup", path, path, "--force"}).status, 2);
    EXPECT_EQ(faults(), "1,2,3");
}

TEST_F(CopyingAFile, RefusesANameBesideWhichAnotherFilesJournalLies)
{
    std::string const copy = dir.file("copy.db");
    writeFile(copy + "-journal", "x");
    outcome_t const outcome = runTool({"backup", path, copy});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("copy.db-journal: belongs to another file"));
    EXPECT_FALSE(exists(copy));
}

TEST_F(CopyingAFile, NamesTheCopyWhenItsStorageFails)
{
    RawDb(path).exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000) INSERT INTO "
                     "FdbFaultTbl(Description) SELECT 'some text' FROM n");
    setting_t setting;
    setting.longestFile = 50000;
    std::string const copy = dir.file("copy.db");
    outcome_t const outcome = runTool({"backup", path, copy}, setting);
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, testing::StartsWith("firaim: " + copy + ": "));
    EXPECT_FALSE(exists(copy));
}

TEST_F(CopyingAFile, NamesTheFileWhenThatCannotBeRead)
{
    RawDb(path).exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000) INSERT INTO "
                     "FdbFaultTbl(Description) SELECT 'some text' FROM n");
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 4096);
    outcome_t const outcome = runTool({"backup", path, dir.file("copy.db")});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, testing::StartsWith("firaim: " + path + ": "));
}

TEST_F(CopyingAFile, LeavesNothingWhereItCannotBeDone)
{
    EXPECT_EQ(runTool({"backup", path, dir.file("no/copy.db")}).status, 3);
    EXPECT_EQ(faults(), "1,2,3");
}
