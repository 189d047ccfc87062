// firaim trim: the faults that it removes, and those that it must keep.

#include "ChangingCommandFixture.h"

#include <gmock/gmock.h>

#include <filesystem>

#include <sys/stat.h>

namespace
{

using testing::HasSubstr;

/// Only the last of the three faults is active.
class TrimTest : public ChangingCommandTest
{
protected:
    TrimTest() { RawDb(path).exec("UPDATE FdbFaultTbl SET Status = 'ErrorInactive' WHERE EntryId = 1"); }
};

} // namespace

TEST_F(TrimTest, KeepsTheNewest)
{
    EXPECT_EQ(output({"trim", path, "--keep", "2"}), "removed 1 fault\n");
    EXPECT_EQ(faults(), "2,3");
    EXPECT_EQ(output({"trim", path, "--keep", "2"}), "removed 0 faults\n");
    EXPECT_EQ(output({"trim", path, "--keep", "4294967295"}), "removed 0 faults\n");
}

TEST_F(TrimTest, ReportsTheChangeWhenOnlyTheOutputCouldNotBeWritten)
{
    EXPECT_EQ(runWithFullOutput("trim '" + path + "' --keep 2"), 3);
    EXPECT_THAT(readFile(dir.file("err")), HasSubstr("this was done all the same: removed 1 fault"));
    EXPECT_EQ(faults(), "2,3");
}

TEST_F(TrimTest, NeverRemovesAFaultThatAnActiveStatisticRefersTo)
{
    RawDb(path).exec("UPDATE FdbFaultTbl SET Status = 'ErrorInactive'; UPDATE FdbFaultStatisticTbl SET FaultEntryId = "
                     "1 WHERE EntryId = 1; INSERT INTO FdbFaultStatisticTbl(FaultActive) VALUES('active')");
    EXPECT_EQ(output({"trim", path, "--keep", "0"}),
              "removed 2 faults; 1 old fault stays: it tells what is active, or an active statistic refers to it\n");
    EXPECT_EQ(faults(), "1");
    RawDb(path).exec("UPDATE FdbFaultStatisticTbl SET FaultActive = 'inactive'");
    EXPECT_EQ(output({"trim", path, "--keep", "0"}), "removed 1 fault\n");
}

TEST_F(TrimTest, ActiveFaultsStayActiveWhicheverRowTheirStatisticRefersTo)
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

TEST_F(TrimTest, KeepsOnlyTheNewestRowOfAnActiveFaultWhateverItsCells)
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

TEST_F(TrimTest, InactiveFaultsStayInactiveWhenTheClockWasSetBack)
{
    output({"record", path, "--code", "7", "--time", "2031-06-01"});
    output({"record", path, "--code", "7", "--time", "2031-01-01", "--inactive"});
    output({"record", path, "--code", "8", "--time", "2031-01-01"});
    output({"record", path, "--code", "8", "--time", "2031-01-01", "--inactive"});
    EXPECT_EQ(output({"trim", path, "--before", "2031-02-01"}),
              "removed 2 faults; 1 old fault stays: it tells what is active, or an active statistic refers to it\n");
    EXPECT_EQ(runTool({"clear", path, "--code", "7"}).status, 1);
}

TEST_F(TrimTest, RemovesFaultsBeforeATimeButNoneWithoutATime)
{
    insertFault("TimeStampUTC", "0");
    insertFault("TimeStampUTC", "1935630121");
    insertFault("TimeStampUTC", "'x'");
    EXPECT_EQ(output({"trim", path, "--before", "2031-05-05"}), "removed 3 faults\n");
    EXPECT_EQ(faults(), "3,4,6");
}

TEST_F(TrimTest, NeverUsesAKeyAgain)
{
    output({"trim", path, "--keep", "1", "--vacuum"});
    RawDb(path).exec("UPDATE FdbFaultTbl SET Status = 'ErrorInactive'; UPDATE FdbFaultStatisticTbl SET FaultActive = "
                     "'inactive'");
    output({"trim", path, "--keep", "0", "--vacuum"});
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl"), "0");
    EXPECT_EQ(output({"record", path, "--code", "FC_BUS_OFF"}), "4\n");
}

TEST_F(TrimTest, ADryRunChangesNothing)
{
    std::string const before = readFile(path);
    EXPECT_EQ(output({"trim", path, "--keep", "1", "--dry-run", "--vacuum"}), "would remove 2 faults\n");
    EXPECT_EQ(readFile(path), before);
}

TEST_F(TrimTest, VacuumsAlsoWhenTheReportCannotBeWritten)
{
    RawDb(path).exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000) INSERT INTO "
                     "FdbFaultTbl(Description) SELECT 'some text' FROM n");
    auto const before = std::filesystem::file_size(path);
    EXPECT_EQ(runWithFullOutput("trim '" + path + "' --keep 10 --vacuum"), 3);
    EXPECT_LT(std::filesystem::file_size(path), before / 4);
    EXPECT_THAT(readFile(dir.file("err")),
                HasSubstr("this was done all the same: removed 4,992 faults; 1 old fault stays"));
}

TEST_F(TrimTest, ReportsTheRemovedFaultsWhenOnlyTheVacuumFails)
{
    RawDb(path).exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 20000) INSERT INTO "
                     "FdbFaultTbl(Description) SELECT hex(zeroblob(200)) FROM n");
    Setting setting;
    setting.longestFile = static_cast<unsigned long>(std::filesystem::file_size(path)); // VACUUM needs more.
    Outcome const outcome = runTool({"trim", path, "--keep", "20001", "--vacuum"}, setting);
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("this was done all the same: removed 2 faults\n"));
    EXPECT_EQ(faults().substr(0, 4), "3,4,");
}

TEST_F(TrimTest, VacuumGivesTheSpaceBack)
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
