// firaim record: the rows that a fault writes, and refused faults.

#include "RecordFixture.h"

#include <gmock/gmock.h>

#include <memory>
#include <sstream>

#include <sys/stat.h>

namespace
{

using testing::HasSubstr;

} // namespace

TEST_F(RecordTest, StoresEveryFieldAndPrintsTheKey)
{
    EXPECT_EQ(
        output({"record",          path,    "--code",        "FC_BUS_OFF", "--module",       "can0",
                "--param",         "p",     "--description", "d",          "--time",         "2031-05-04T03:02:01.5Z",
                "--startup",       "7",     "--time-zone",   "CET",        "--signals-file", "s.dump",
                "--config-backup", "c.bak", "--up-time",     "11",         "--life-time",    "12"}),
        "1\n");
    auto const rows = RawDb(path).rows("SELECT * FROM FdbFaultTbl");
    ASSERT_EQ(rows.size(), 1u);
    RawDb::Row const expected = {"1",
                                 "2031-05-04T03:02:01.500Z",
                                 "1025",
                                 "FC_BUS_OFF",
                                 "can0",
                                 "p",
                                 "1935630121500",
                                 "CET",
                                 "ErrorActive",
                                 "d",
                                 "s.dump",
                                 "11",
                                 "12",
                                 "c.bak",
                                 "7"};
    EXPECT_EQ(RawDb::Row(rows[0].begin(), rows[0].end() - 1), expected);
    EXPECT_EQ(rows[0].back()->size(), std::string("2031-05-04T03:02:01.500Z").size());
}

TEST_F(RecordTest, CountsLaterOccurrencesInTheStatisticOfTheFirst)
{
    output({"record", path, "--code", "FC_BUS_OFF", "--time", "2031-05-04T03:00Z", "--startup", "1"});
    output({"record", path, "--code", "0x401", "--time", "2031-05-04T04:00Z", "--startup", "2"});
    EXPECT_EQ(output({"record", path, "--code", "1025", "--time", "2031-05-04T05:00Z"}), "3\n");
    EXPECT_EQ(statistic("count(*)"), "1");
    EXPECT_EQ(
        statistic("OccurenceCnt || ' ' || FaultActive || ' ' || FaultActiveCycleCnt || ' ' || FaultEntryId || ' ' "
                  "|| RdbStartupId || ' ' || TimeFirstOccurredUTC || ' ' || TimeLastOccurredUTC"),
        "3 active 3 3 2 1935630000000 1935637200000");
}

TEST_F(RecordTest, StaysAt65535Occurrences)
{
    output({"record", path, "--code", "FC_BUS_OFF"});
    RawDb(path).exec("UPDATE FdbFaultStatisticTbl SET OccurenceCnt = 65534, FaultActiveCycleCnt = 65535");
    output({"record", path, "--code", "FC_BUS_OFF"});
    output({"record", path, "--code", "FC_BUS_OFF"});
    EXPECT_EQ(statistic("OccurenceCnt || ' ' || FaultActiveCycleCnt || ' ' || FaultEntryId"), "65535 65535 3");
}

TEST_F(RecordTest, AnInactiveFaultCountsForNothing)
{
    output({"record", path, "--code", "FC_BUS_OFF"});
    output({"record", path, "--code", "FC_BUS_OFF", "--inactive"});
    EXPECT_EQ(statistic("OccurenceCnt || ' ' || FaultActive || ' ' || FaultEntryId"), "1 inactive 2");
    EXPECT_EQ(value("SELECT Status FROM FdbFaultTbl WHERE EntryId = 2"), "ErrorInactive");
}

TEST_F(RecordTest, StoresTextsWithQuotesWhole)
{
    std::string const text = "it's \"o'clock\"''; DROP TABLE FdbFaultTbl; --'";
    output({"record", path, "--code", "FC_BUS_OFF", "--description", text, "--module", "'", "--time-zone", "o''"});
    output({"record", path, "--code", "FC_BUS_OFF", "--time-zone", "'"});
    EXPECT_EQ(value("SELECT Description FROM FdbFaultTbl WHERE EntryId = 1"), text);
    EXPECT_EQ(value("SELECT ModuleName FROM FdbFaultTbl WHERE EntryId = 1"), "'");
    EXPECT_EQ(statistic("TimeZoneFirstOccurred || ' ' || TimeZoneLastOccurred"), "o'' '");
}

TEST_F(RecordTest, TakesTheStartUpAndTheUnitOfTimeOfTheNewestFault)
{
    insertFault("TimeStampUTC,RdbStartupId", "1935630121,9");
    output({"record", path, "--code", "FC_BUS_OFF", "--time", "2031-05-04T03:02:01Z"});
    EXPECT_EQ(value("SELECT TimeStampUTC || ' ' || RdbStartupId FROM FdbFaultTbl WHERE EntryId = 2"), "1935630121 9");
}

TEST_F(RecordTest, TakesTheStartUpOfTheStatisticsWhereItIsLarger)
{
    insertFault("RdbStartupId", "9");
    RawDb(path).exec("INSERT INTO FdbFaultStatisticTbl(FaultCode,FaultActive,RdbStartupId) VALUES(7,'inactive',12)");
    output({"record", path, "--code", "FC_BUS_OFF"});
    EXPECT_EQ(value("SELECT RdbStartupId FROM FdbFaultTbl WHERE EntryId = 2"), "12");
}

TEST_F(RecordTest, RefusesATimeThatWouldBeReadAsAnother)
{
    std::vector<std::vector<std::string>> const times = {
        {"1972-01-01"}, {"1970-01-01"}, {"3000-01-01", "--time-unit", "ns"}, {"2300-01-01", "--time-unit", "ns"}};
    for (std::vector<std::string> arguments : times)
    {
        arguments.insert(arguments.begin(), {"record", path, "--code", "FC_BUS_OFF", "--time"});
        Outcome const outcome = runTool(arguments);
        EXPECT_EQ(outcome.status, 2) << arguments[5];
        EXPECT_THAT(outcome.errors, HasSubstr("this time cannot be stored")) << arguments[5];
    }
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl"), "0");
    output({"record", path, "--code", "FC_BUS_OFF", "--time", "1972-01-01", "--time-unit", "s"});
}

TEST_F(RecordTest, ATimeOfAClockThatWasNotSetDoesNotDetermineTheUnit)
{
    insertFault("TimeStampUTC", "5000");
    output({"record", path, "--code", "FC_BUS_OFF", "--time", "2031-05-04T03:02:01Z"});
    EXPECT_EQ(value("SELECT TimeStampUTC FROM FdbFaultTbl WHERE EntryId = 2"), "1935630121000");
}

TEST_F(RecordTest, ReportsWhenOnlyTheKeyCouldNotBeWritten)
{
    int const status = std::system(
        ("'" FIRAIM_TEST_TOOL "' record '" + path + "' --code 1 >/dev/full 2>'" + dir.file("err") + "'").c_str());
    EXPECT_EQ(WEXITSTATUS(status), 3);
    EXPECT_THAT(readFile(dir.file("err")), HasSubstr("the fault was recorded all the same, with the key 1"));
}

TEST_F(RecordTest, ColumnsInAnotherOrderAreRefused)
{
    RawDb(path).exec("DROP TABLE FdbVersionTbl; CREATE TABLE FdbVersionTbl (VersionEntryId INTEGER PRIMARY KEY "
                     "AUTOINCREMENT NOT NULL, Version VARCHAR, Component VARCHAR); INSERT INTO FdbVersionTbl VALUES(1, "
                     "'1.0.0', 'FormatVersion')");
    Outcome const outcome = runTool({"record", path, "--code", "1"});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("FdbVersionTbl has not the columns of the file format, in their order"));
}

TEST_F(RecordTest, AcceptsNamesInAnyCaseAndWithoutPrefix)
{
    output({"record", path, "--code", "bus_off"});
    output({"record", path, "--code", "fc_Bus_Off"});
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl WHERE FaultCode = 1025"), "2");
}

TEST_F(RecordTest, SuggestsSimilarCodes)
{
    Outcome const outcome = runTool({"record", path, "--code", "bus"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.errors, HasSubstr("unknown fault code 'bus'; did you mean FC_BUS_OFF, FC_BUS_NO_TRAFFIC"));
}

TEST_F(RecordTest, AReadOnlyFileIsRefused)
{
    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    WithoutRoot const user;
    Outcome const outcome = runTool({"record", path, "--code", "FC_BUS_OFF"});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("cannot be written"));
}

TEST_F(RecordTest, ACodeNamedOnlyInTheFileKeepsItsName)
{
    RawDb(path).exec("INSERT INTO FdbFaultStatisticTbl SELECT NULL, 7777, 'FC_OF_THE_DEVICE', 0, 0, 'UTC', 'UTC', 1, "
                     "'inactive', 1, 0, 0");
    output({"record", path, "--code", "7777"});
    EXPECT_EQ(value("SELECT FaultCodeName || OccurenceCnt FROM FdbFaultStatisticTbl WHERE FaultCode = 7777"),
              "FC_OF_THE_DEVICE2");
    EXPECT_EQ(value("SELECT FaultCodeName FROM FdbFaultTbl"), "FC_OF_THE_DEVICE");
}

TEST_F(RecordTest, ReportsThatStatisticsShareACode)
{
    output({"record", path, "--code", "FC_BUS_OFF"});
    RawDb(path).exec("INSERT INTO FdbFaultStatisticTbl(FaultCode) VALUES(1025)");
    Outcome const outcome = runTool({"record", path, "--code", "FC_BUS_OFF"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "2\n");
    EXPECT_THAT(outcome.errors, HasSubstr("several statistics have the code 1025"));
}

TEST_F(RecordTest, SeveralProgramsAtOnceLoseNoCountAndNameTheirOwnFaults)
{
    constexpr int kPrograms = 4;
    constexpr int kFaults = 50;
    std::vector<std::unique_ptr<ToolProcess>> programs;
    for (int program = 0; program < kPrograms; ++program)
    {
        Setting setting;
        for (int fault = 0; fault < kFaults; ++fault)
        {
            setting.input += "{\"FaultCode\":1025,\"ModuleName\":\"" + std::to_string(program) + "\"}\n";
        }
        programs.push_back(std::make_unique<ToolProcess>(std::vector<std::string>{"record", path, "--stdin"}, setting));
    }
    for (auto const& program : programs)
    {
        EXPECT_EQ(program->finish(), 0);
    }
    for (std::size_t program = 0; program < programs.size(); ++program)
    {
        std::istringstream keys(programs[program]->output);
        int named = 0;
        for (std::string key; std::getline(keys, key); ++named)
        {
            EXPECT_EQ(value("SELECT ModuleName FROM FdbFaultTbl WHERE EntryId = " + key), std::to_string(program));
        }
        EXPECT_EQ(named, kFaults);
    }
    EXPECT_EQ(statistic("OccurenceCnt"), std::to_string(kPrograms * kFaults));
    EXPECT_EQ(statistic("count(*)"), "1");
}
