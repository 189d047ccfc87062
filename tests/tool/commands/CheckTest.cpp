// firaim check: each of its findings.

#include "ToolProcess.h"

#include <gmock/gmock.h>

namespace
{

using testing::HasSubstr;

class CheckTest : public ToolTest
{
protected:
    CheckTest() { createSample(); }

    /// Expects one finding, whose text contains `what`.
    void expectFinding(std::string const& what)
    {
        std::string const before = readFile(path);
        Outcome const outcome = runTool({"check", path});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.errors, "");
        EXPECT_THAT(outcome.output, HasSubstr(what));
        EXPECT_THAT(outcome.output, HasSubstr("\nwhat to do ("));
        EXPECT_THAT(outcome.output, HasSubstr(path + ": 1 finding\n"));
        EXPECT_EQ(readFile(path), before);
    }
    void expectFinding(std::string const& sql, std::string const& what)
    {
        RawDb(path).exec(sql);
        expectFinding(what);
    }
    /// Expects no finding; `known` is other text that is printed first.
    void expectNothing(std::string const& known = "")
    {
        Outcome const outcome = runTool({"check", path});
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.output, known + path + ": nothing is wrong\n");
        EXPECT_EQ(outcome.errors, "");
    }

    /// The finding about a statistic whose fault was removed.
    static std::string removed(std::string const& reference)
    {
        return "removed: FdbFaultStatisticTbl row 2 (FaultCode " + reference +
               ", which is missing\nwhat to do (removed): nothing: 'firaim trim' removes the faults of inactive "
               "statistics, whose counts stay right\n";
    }
};

} // namespace

TEST_F(CheckTest, FindsACountBelowTheNumberOfFaults)
{
    expectFinding("UPDATE FdbFaultStatisticTbl SET OccurenceCnt = 1 WHERE EntryId = 1",
                  "count: FdbFaultStatisticTbl row 1 (FaultCode 1025) counts 1, but 2 faults of the code were recorded "
                  "as active\n");
}

TEST_F(CheckTest, FindsACodeWithoutAStatistic)
{
    expectFinding("DELETE FROM FdbFaultStatisticTbl WHERE EntryId = 1",
                  "count: FaultCode 1025 has no statistic, but 2 faults of the code were recorded as active\n");
}

TEST_F(CheckTest, FindsNothingWrongWithLargerCountsAndAFileWithoutStatistics)
{
    RawDb(path).exec("UPDATE FdbFaultStatisticTbl SET OccurenceCnt = 65535");
    expectNothing();
    RawDb(path).exec("DELETE FROM FdbFaultStatisticTbl");
    expectNothing();
}

TEST_F(CheckTest, FindsNothingWrongWithASoundFile)
{
    expectNothing();
}

TEST_F(CheckTest, FindsATableThatIsMissing)
{
    expectFinding("DROP TABLE FdbFaultStatisticTbl", "schema: table FdbFaultStatisticTbl is missing\n");
}

TEST_F(CheckTest, FindsAColumnThatIsMissing)
{
    expectFinding("ALTER TABLE FdbFaultTbl DROP COLUMN SystemDateTimeString",
                  "schema: FdbFaultTbl has no column 'SystemDateTimeString'\n");
}

TEST_F(CheckTest, FindsAColumnThatWasRenamed)
{
    RawDb(path).exec("ALTER TABLE FdbFaultTbl RENAME COLUMN ModuleName TO Module");
    Outcome const outcome = runTool({"check", path});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output,
                testing::StartsWith("schema: FdbFaultTbl has a column 'Module', which does not belong there\n"
                                    "schema: FdbFaultTbl has no column 'ModuleName'\nwhat to do (schema): "));
    // The rest can be exported, as the finding advises.
    EXPECT_THAT(output({"export", path, "--format", "csv"}), HasSubstr("1025,FC_BUS_OFF,,p1,1935630121000"));
}

TEST_F(CheckTest, ReportsAMissingColumnThatItNeedsAndContinues)
{
    RawDb(path).exec(
        "ALTER TABLE FdbFaultStatisticTbl DROP COLUMN FaultActive; UPDATE FdbVersionTbl SET Version = 'x'");
    Outcome const outcome = runTool({"check", path});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output, HasSubstr("schema: FdbFaultStatisticTbl has no column 'FaultActive'\n"));
    EXPECT_THAT(outcome.output, HasSubstr("version: format version is 'x'"));
    EXPECT_THAT(outcome.output, testing::Not(HasSubstr("integrity")));
}

TEST_F(CheckTest, FindsColumnsInAnotherOrder)
{
    RawDb(path).exec("DROP TABLE FdbVersionTbl; CREATE TABLE FdbVersionTbl (VersionEntryId INTEGER PRIMARY KEY "
                     "AUTOINCREMENT NOT NULL, Version VARCHAR, Component VARCHAR); INSERT INTO FdbVersionTbl VALUES(1, "
                     "'1.0.0', 'FormatVersion')");
    EXPECT_THAT(runTool({"check", path}).output,
                testing::StartsWith("schema: FdbVersionTbl has the column 'Component' in another place\n"
                                    "schema: FdbVersionTbl has the column 'Version' in another place\n"));
}

TEST_F(CheckTest, FindsAColumnThatDoesNotBelongThere)
{
    expectFinding("ALTER TABLE FdbVersionTbl ADD COLUMN Extra",
                  "schema: FdbVersionTbl has a column 'Extra', which does not belong there\n");
}

TEST_F(CheckTest, FindsAColumnOfAnotherType)
{
    expectFinding("DROP TABLE FdbVersionTbl; CREATE TABLE FdbVersionTbl (VersionEntryId INTEGER PRIMARY KEY "
                  "AUTOINCREMENT NOT NULL, Component VARCHAR, Version TEXT); INSERT INTO FdbVersionTbl VALUES(1, "
                  "'FormatVersion', '1.0.0')",
                  "schema: FdbVersionTbl column 'Version' is of type 'TEXT' instead of 'VARCHAR'\n");
}

TEST_F(CheckTest, FindsAKeyColumnThatIsNotTheKey)
{
    expectFinding("DROP TABLE FdbVersionTbl; CREATE TABLE FdbVersionTbl (VersionEntryId INTEGER, Component VARCHAR, "
                  "Version VARCHAR); INSERT INTO FdbVersionTbl VALUES(1, 'FormatVersion', '1.0.0')",
                  "schema: FdbVersionTbl column 'VersionEntryId' must be the primary key and NOT NULL\n");
}

TEST_F(CheckTest, FindsAnotherStatementForTheSameColumns)
{
    expectFinding("DROP TABLE FdbVersionTbl; CREATE TABLE FdbVersionTbl (VersionEntryId INTEGER PRIMARY KEY NOT NULL, "
                  "Component VARCHAR, Version VARCHAR); INSERT INTO FdbVersionTbl VALUES(1, 'FormatVersion', '1.0.0')",
                  "schema: FdbVersionTbl was created by another statement: CREATE TABLE FdbVersionTbl (VersionEntryId "
                  "INTEGER PRIMARY KEY NOT NULL, ");
}

TEST_F(CheckTest, FindsSchemaObjectsThatAreNotPartOfTheFormat)
{
    expectFinding("CREATE TRIGGER t AFTER INSERT ON FdbFaultTbl BEGIN DELETE FROM FdbFaultTbl; END",
                  "schema: trigger 't' is not part of the file format\n");
}

TEST_F(CheckTest, TellsOfDoubtfulRowsOfARescuedFileButNotAsAnError)
{
    RawDb(path).exec(
        "CREATE TABLE RescuedDoubtfulTbl (Reason TEXT); INSERT INTO RescuedDoubtfulTbl VALUES('1'), ('2')");
    expectNothing("doubtful: RescuedDoubtfulTbl has 2 rows of a damaged file that may be wrong\n"
                  "what to do (doubtful): look at the rows with SQLite's shell; the library and the other commands do "
                  "not read that table\n");
}

TEST_F(CheckTest, FindsAnotherFormatVersion)
{
    expectFinding("UPDATE FdbVersionTbl SET Version = '1.0.1'",
                  "version: format version is '1.0.1' instead of '1.0.0'\n");
}

TEST_F(CheckTest, FindsAFormatVersionThatIsMissingOrNotTheOnlyOne)
{
    expectFinding("INSERT INTO FdbVersionTbl VALUES(2, 'formatversion', '1.0.0')",
                  "version: FdbVersionTbl has 2 rows of ");
    expectFinding("DELETE FROM FdbVersionTbl", "version: FdbVersionTbl has 0 rows of ");
}

TEST_F(CheckTest, FindsAStatisticWhoseFaultIsMissing)
{
    expectFinding("UPDATE FdbFaultStatisticTbl SET FaultEntryId = 99 WHERE EntryId = 2",
                  "reference: FdbFaultStatisticTbl row 2 (FaultCode 1285) refers to fault 99, which is missing\n");
}

TEST_F(CheckTest, ReportsAFaultThatTrimHasRemovedButNotAsAnError)
{
    output({"trim", path, "--keep", "1"});
    EXPECT_EQ(value("SELECT group_concat(EntryId) FROM FdbFaultTbl"), "1,3");
    expectNothing(removed("1285) refers to fault 2"));
}

TEST_F(CheckTest, FindsNothingWrongWhereTrimHasKeptOlderFaultsOfActiveStatistics)
{
    output({"create", path, "--force"});
    output({"record", path, "--code", "FC_BUS_OFF"});
    output({"record", path, "--code", "FC_CLOCK_JUMP"});
    output({"clear", path, "--code", "FC_CLOCK_JUMP"});
    output({"record", path, "--code", "FC_STORAGE_FULL"});
    output({"trim", path, "--keep", "1"});
    EXPECT_EQ(value("SELECT group_concat(EntryId) FROM FdbFaultTbl"), "1,4");
    expectNothing(removed("769) refers to fault 3"));
}

TEST_F(CheckTest, FindsTheMissingFaultOfAnActiveStatisticHoweverOld)
{
    expectFinding("DELETE FROM FdbFaultTbl WHERE EntryId = 1; UPDATE FdbFaultStatisticTbl SET FaultEntryId = 1 WHERE "
                  "EntryId = 1",
                  "refers to fault 1, which is missing\n");
}

TEST_F(CheckTest, FindsTwoStatisticsOfOneCode)
{
    expectFinding(
        "UPDATE FdbFaultStatisticTbl SET FaultCode = 1025",
        "statistic: FaultCode 1025 has 2 rows in FdbFaultStatisticTbl\n"
        "what to do (statistic): there should be one row for each code: the recorder updates only the first, and "
        "FaultDb::update overwrites all of them\n");
}

TEST_F(CheckTest, FindsEachKindOfDamagedCell)
{
    std::vector<std::pair<std::string, std::string>> const damages = {
        {"FaultCode = '42abc'", "FaultCode holds '42abc', which is not a whole number"},
        {"FaultCode = 1.5", "FaultCode holds '1.5', which is not a whole number"},
        {"FaultCode = -1", "FaultCode holds -1, which is not an unsigned number of 32 bits"},
        {"FaultCode = 4294967296", "FaultCode holds 4294967296, which is not an unsigned number of 32 bits"},
        {"TimeStampUTC = NULL", "TimeStampUTC is NULL"},
        {"TimeStampUTC = 9223372036854775808",
         "TimeStampUTC holds '9.22337203685478e+18', which is not a whole number"},
        {"Description = NULL", "Description is NULL"},
        {"Description = x'00'", "Description holds a blob"},
        {"Description = CAST(x'610062' AS TEXT)", "Description holds a text with a zero byte"},
        {"Status = 'active'", "Status holds 'active', which is not a status"},
        {"Status = ''", "Status holds '', which is not a status"},
    };
    for (auto const& [damage, finding] : damages)
    {
        expectFinding("UPDATE FdbFaultTbl SET " + damage + " WHERE EntryId = 2", "cell: FdbFaultTbl row 2: " + finding);
        RawDb(path).exec(
            "UPDATE FdbFaultTbl SET (FaultCode, TimeStampUTC, Description, Status) = (1285, 1935630122000, "
            "'', 'ErrorInactive') WHERE EntryId = 2");
    }
    expectFinding(
        "UPDATE FdbFaultStatisticTbl SET OccurenceCnt = 65536 WHERE EntryId = 1",
        "cell: FdbFaultStatisticTbl row 1: OccurenceCnt holds 65536, which is not an unsigned number of 16 bits");
}

TEST_F(CheckTest, FindsDamagedPages)
{
    RawDb(path).exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 500) INSERT INTO "
                     "FdbFaultTbl(Description) SELECT 'x' FROM n");
    std::string bytes = readFile(path);
    ASSERT_GT(bytes.size(), 24576u);
    bytes.replace(20480, 4096, std::string(4096, '\x55'));
    writeFile(path, bytes);
    Outcome const outcome = runTool({"check", path});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output, HasSubstr("integrity: "));
    EXPECT_THAT(outcome.output, HasSubstr("what to do (integrity): "));
    EXPECT_EQ(readFile(path), bytes);
}

TEST_F(CheckTest, NamesALimitedNumberOfEachKindAndCountsTheRest)
{
    RawDb(path).exec(
        "DELETE FROM FdbFaultStatisticTbl; DELETE FROM FdbFaultTbl; WITH RECURSIVE n(i) AS (SELECT 1 UNION "
        "ALL SELECT i + 1 FROM n WHERE i < 30) INSERT INTO FdbFaultStatisticTbl SELECT NULL, i, '', 0, 0, '', '', 0, "
        "'x', 0, 0, 0 "
        "FROM n");
    Outcome const outcome = runTool({"check", path});
    EXPECT_THAT(outcome.output, HasSubstr("row 22: "));
    EXPECT_THAT(outcome.output, testing::Not(HasSubstr("row 23: ")));
    EXPECT_THAT(outcome.output, HasSubstr("\ncell: and 10 more\n"));
    EXPECT_THAT(outcome.output, HasSubstr(": 30 findings\n"));
}

TEST_F(CheckTest, PrintsFindingsAsJson)
{
    EXPECT_EQ(output({"check", path, "--json"}), "[]\n");
    RawDb(path).exec("UPDATE FdbVersionTbl SET Version = '1.0.1'");
    Outcome const outcome = runTool({"check", path, "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output,
                testing::StartsWith("[\n{\"Kind\":\"version\",\"Problem\":true,\"Finding\":\"format version is '1.0.1' "
                                    "instead of '1.0.0'\",\"Advice\":\""));
}
