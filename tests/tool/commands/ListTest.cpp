// firaim list, stats, summary and show: exact output for small files, filters, JSON.

#include "ToolProcess.h"

#include <gmock/gmock.h>

namespace
{

using testing::HasSubstr;
using testing::StartsWith;

class ListTest : public ToolTest
{
protected:
    ListTest() { createSample(); }

    /// The keys of the listed faults, in the order of the output.
    std::string keys(std::vector<std::string> options)
    {
        options.insert(options.begin(), {"list", path, "--json"});
        std::string const json = output(options);
        std::string found;
        constexpr char kField[] = "{\"EntryId\":";
        for (std::size_t at = json.find(kField); at != std::string::npos; at = json.find(kField, at + 1))
        {
            std::size_t const begin = at + sizeof kField - 1;
            found += json.substr(begin, json.find(',', begin) - begin) + " ";
        }
        return found;
    }
};

using Showing = ListTest;
using Statistics = ListTest;
using Summary = ListTest;

} // namespace

TEST_F(ListTest, ShowsTheNewestFirst)
{
    EXPECT_EQ(output({"list", path}),
              "ID  TIME                      FAULT              STATUS    MODULE  PARAMETER  STARTUP  DESCRIPTION\n"
              " 3  2031-05-05T03:02:01.500Z  FC_BUS_OFF         active    can0                     2  no answer\n"
              " 2  2031-05-04T03:02:02.000Z  FC_SENSOR_TIMEOUT  inactive  can0                     2\n"
              " 1  2031-05-04T03:02:01.000Z  FC_BUS_OFF         active    can0    p1               1  no answer\n");
}

TEST_F(ListTest, PrintsTheRowsOfTheFileAsJson)
{
    EXPECT_EQ(output({"list", path, "--json", "--last", "1"}),
              "[\n{\"EntryId\":3,\"DateTimeString\":\"2031-05-04T03:02:01.000Z\",\"FaultCode\":1025,\"FaultCodeName\":"
              "\"FC_BUS_OFF\",\"ModuleName\":\"can0\",\"Parameter\":\"\",\"TimeStampUTC\":1935716521500,\"TimeZone\":"
              "\"UTC\",\"Status\":\"ErrorActive\",\"Description\":\"no answer\",\"DiagSignalsDumpFileName\":\"\","
              "\"LoggerUpTime\":11,\"LoggerLifeTime\":12,\"CfgBackupFile\":\"\",\"RdbStartupId\":2,"
              "\"SystemDateTimeString\":\"2031-05-04T03:02:01.000Z\",\"Time\":\"2031-05-05T03:02:01.500Z\"}\n]\n");
    RawDb(path).exec("DELETE FROM FdbFaultTbl");
    EXPECT_EQ(runTool({"list", path, "--json"}).output, "[]\n");
}

TEST_F(ListTest, FiltersChooseAmongFaults)
{
    EXPECT_EQ(keys({}), "3 2 1 ");
    EXPECT_EQ(keys({"--code", "FC_BUS_OFF"}), "3 1 ");
    EXPECT_EQ(keys({"--code", "0x0505"}), "2 ");
    EXPECT_EQ(keys({"--active"}), "3 1 ");
    EXPECT_EQ(keys({"--startup", "2"}), "3 2 ");
    EXPECT_EQ(keys({"--last", "2"}), "3 2 ");
    EXPECT_EQ(keys({"--last", "1", "--code", "FC_SENSOR_TIMEOUT"}), "2 ");
    EXPECT_EQ(keys({"--after", "1"}), "3 2 ");
    EXPECT_EQ(keys({"--module", "can0", "--startup", "1"}), "1 ");
    EXPECT_EQ(keys({"--grep", "NO ANS"}), "3 1 ");
    EXPECT_EQ(keys({"--grep", "P1"}), "1 ");
}

TEST_F(ListTest, ShortenedTimesMeanAWholeDayMinuteOrSecond)
{
    EXPECT_EQ(keys({"--since", "2031-05-05"}), "3 ");
    EXPECT_EQ(keys({"--until", "2031-05-04"}), "2 1 ");
    EXPECT_EQ(keys({"--until", "2031-05-04T03:02"}), "2 1 ");
    EXPECT_EQ(keys({"--until", "2031-05-04T03:02:01Z"}), "1 ");
    EXPECT_EQ(keys({"--since", "2031-05-04T03:02:01.001Z", "--until", "2031-05-05T03:02:01.499Z"}), "2 ");
    EXPECT_EQ(keys({"--since", "2031-05-04T05:02:02+02:00", "--until", "2031-05-04 03:02:02Z"}), "2 ");
}

TEST_F(ListTest, LocalTimesAreReadAndShownInTheZoneOfTheMachine)
{
    Setting berlin;
    berlin.environment["TZ"] = "CET-1CEST,M3.5.0,M10.5.0/3";
    EXPECT_THAT(output({"list", path, "--local", "--last", "1"}, berlin),
                HasSubstr(" 3  2031-05-05T05:02:01.500+02:00  "));
    EXPECT_THAT(output({"list", path, "--local", "--since", "2031-05-05T05:02"}, berlin), HasSubstr("\n 3  "));
    EXPECT_THAT(runTool({"list", path, "--local", "--since", "2031-05-05T05:03"}, berlin).errors,
                HasSubstr("no fault is dated 2031-05-05T05:03:00.000+02:00 or later"));
    EXPECT_THAT(output({"list", path, "--last", "1"}, berlin), HasSubstr(" 3  2031-05-05T03:02:01.500Z  "));
}

TEST_F(ListTest, ALocalDayMayHave23Or25Hours)
{
    Setting berlin;
    berlin.environment["TZ"] = "CET-1CEST,M3.5.0,M10.5.0/3";
    auto const listed = [&](char const* stamp, char const* day)
    {
        insertFault("TimeStampUTC", stamp);
        return runTool({"list", path, "--local", "--since", day, "--until", day}, berlin).output;
    };
    // Half an hour before and after midnight, at the end of the days on which summer time ends and starts.
    EXPECT_THAT(listed("1950820200", "2031-10-26"), HasSubstr("  2031-10-26T23:30:00.000+01:00  "));
    EXPECT_THAT(listed("1950823800", "2031-10-26"), testing::Not(HasSubstr("2031-10-27")));
    EXPECT_THAT(listed("1932672600", "2031-03-30"), HasSubstr("  2031-03-30T23:30:00.000+02:00  "));
    EXPECT_THAT(listed("1932676200", "2031-03-30"), testing::Not(HasSubstr("2031-03-31")));
}

TEST_F(ListTest, TheUnitOfTimeIsGuessedOrGiven)
{
    for (char const* const stamp : {"1935630121", "1935630121000", "1935630121000000", "1935630121000000000"})
    {
        insertFault("TimeStampUTC", stamp);
        EXPECT_THAT(output({"list", path, "--last", "1"}), HasSubstr("  2031-05-04T03:02:01.000Z  ")) << stamp;
    }
    insertFault("TimeStampUTC", "5000");
    EXPECT_THAT(output({"list", path, "--last", "1", "--time-unit", "ms"}), HasSubstr("  1970-01-01T00:00:05.000Z  "));
    EXPECT_THAT(output({"list", path, "--last", "1", "--time-unit", "s"}), HasSubstr("  1970-01-01T01:23:20.000Z  "));
}

TEST_F(ListTest, ATimeThatWasNotSetOrLiesBeyondTheCalendarIsNoTime)
{
    insertFault("TimeStampUTC", "0");
    EXPECT_THAT(output({"list", path, "--last", "1"}), HasSubstr(" 4  -     FC_BUS_OFF"));
    EXPECT_EQ(keys({"--since", "1970-01-01"}), "3 2 1 ");
    insertFault("TimeStampUTC", "9223372036854775807");
    EXPECT_THAT(output({"list", path, "--last", "1", "--time-unit", "ms"}), HasSubstr(" 5  9223372036854775807  "));
}

TEST_F(ListTest, AnUnknownNameInAFilterIsReported)
{
    std::vector<std::pair<std::vector<std::string>, std::string>> const unknown = {
        {{"--module", "can9"}, "no fault is of the module 'can9'"},
        {{"--startup", "9"}, "no fault has the start-up id 9"},
        {{"--code", "FC_CLOCK_JUMP"}, "no fault has the code FC_CLOCK_JUMP"},
        {{"--grep", "xyz"}, "no fault contains 'xyz'"},
        {{"--since", "2032-01-01"}, "no fault is dated 2032-01-01T00:00:00.000Z or later"},
        {{"--until", "2030-12-31"}, "no fault is dated before 2031-01-01T00:00:00.000Z"},
        {{"--after", "3"}, "there is no fault after key 3"},
        {{"--startup", "1", "--code", "FC_SENSOR_TIMEOUT"}, "no fault matches all filters"},
    };
    for (auto const& [options, reason] : unknown)
    {
        std::vector<std::string> arguments = {"list", path};
        arguments.insert(arguments.end(), options.begin(), options.end());
        Outcome const outcome = runTool(arguments);
        EXPECT_EQ(outcome.status, 0) << reason;
        EXPECT_THAT(outcome.output, testing::Not(HasSubstr("\n "))) << reason;
        EXPECT_EQ(outcome.errors, "firaim: " + reason + "\n");
    }
}

TEST_F(ListTest, ACodeNamedOnlyInTheFileIsFoundByItsName)
{
    insertFault("FaultCode,FaultCodeName", "77777,'FC_OF_THE_DEVICE'");
    RawDb(path).exec("INSERT INTO FdbFaultStatisticTbl(FaultCode,FaultCodeName) VALUES(77777,'FC_OF_THE_DEVICE')");
    EXPECT_EQ(keys({"--code", "fc_of_the_device"}), "4 ");
    EXPECT_THAT(output({"list", path, "--last", "1"}), HasSubstr("  FC_OF_THE_DEVICE  "));
}

TEST_F(ListTest, TextOfAFilterIsNeverSql)
{
    std::string const hostile = "' OR 1=1; DROP TABLE FdbFaultTbl; --";
    for (char const* const option : {"--module", "--grep"})
    {
        EXPECT_EQ(runTool({"list", path, option, hostile}).status, 0);
    }
    EXPECT_EQ(runTool({"list", path, "--code", hostile}).status, 2);
    insertFault("ModuleName", "'it''s'");
    EXPECT_EQ(keys({"--module", "it's"}), "4 ");
    EXPECT_EQ(keys({"--grep", "t'S"}), "4 ");
    EXPECT_EQ(runTool({"list", path, "--json", "--grep", "%"}).output, "[]\n");
}

TEST_F(ListTest, ReadsAnyNumberOfBatchesAndAnyKeys)
{
    RawDb(path).exec(
        "CREATE TEMP TABLE keys AS WITH RECURSIVE n(i) AS (SELECT -1500 UNION ALL SELECT i + 3 FROM n "
        "WHERE i < 6000) SELECT i FROM n; INSERT INTO keys VALUES(9223372036854775807), "
        "(-9223372036854775808); DELETE FROM FdbFaultTbl; INSERT INTO FdbFaultTbl SELECT i, '', 1, '', '', "
        "'', 1, '', 'ErrorActive', '', '', 1, 1, '', 1, '' FROM keys");
    std::string expected;
    for (auto const& row : RawDb(path).rows("SELECT EntryId FROM FdbFaultTbl ORDER BY EntryId DESC"))
    {
        expected += *row[0] + " ";
    }
    EXPECT_EQ(keys({}), expected);
}

TEST_F(ListTest, AColumnNamedRowidChangesNothing)
{
    RawDb(path).exec("ALTER TABLE FdbFaultTbl ADD COLUMN rowid TEXT DEFAULT 'zz'");
    EXPECT_EQ(keys({}), "3 2 1 ");
}

TEST_F(ListTest, DamagedCellsAreReadAsTheLibraryReadsThem)
{
    insertFault("FaultCode,RdbStartupId,Status,ModuleName", "'42abc','x','odd',NULL");
    Outcome const outcome = runTool({"list", path, "--last", "1"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.output,
                HasSubstr(" 4  2031-05-04T03:02:01.000Z  FC_BUS_OFF  inactive  n/a                      "
                          "0  no answer\n"));
    EXPECT_THAT(outcome.errors, HasSubstr("[ERROR] Casting"));
}

TEST_F(Showing, PrintsEveryField)
{
    EXPECT_EQ(output({"show", path, "1"}), "FIELD                    VALUE\n"
                                           "EntryId                  1\n"
                                           "FaultCode                1025\n"
                                           "FaultCodeName            FC_BUS_OFF\n"
                                           "Status                   ErrorActive\n"
                                           "Time                     2031-05-04T03:02:01.000Z\n"
                                           "TimeStampUTC             1935630121000\n"
                                           "TimeZone                 UTC\n"
                                           "DateTimeString           2031-05-04T03:02:01.000Z\n"
                                           "SystemDateTimeString     2031-05-04T03:02:01.000Z\n"
                                           "ModuleName               can0\n"
                                           "Parameter                p1\n"
                                           "Description              no answer\n"
                                           "DiagSignalsDumpFileName\n"
                                           "LoggerUpTime             11\n"
                                           "LoggerLifeTime           12\n"
                                           "CfgBackupFile\n"
                                           "RdbStartupId             1\n");
    EXPECT_THAT(output({"show", path, "1", "--json"}), StartsWith("{\"EntryId\":1,"));
}

TEST_F(Showing, AMissingFaultExitsWithStatus1)
{
    Outcome const outcome = runTool({"show", path, "17"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, HasSubstr("there is no fault with the key 17"));
}

TEST_F(Showing, ControlCharactersAreEscaped)
{
    insertFault("Description", "'a' || char(27) || '[31m' || char(10) || char(155) || char(8238) || x'ff' || 'z'");
    EXPECT_THAT(output({"show", path, "4"}), HasSubstr("Description              a\\x1b[31m\\n\\u009b\\u202e\\xffz\n"));
}

TEST_F(Statistics, AreShownLargestCountFirst)
{
    EXPECT_EQ(output({"stats", path}),
              "FAULT              STATUS    COUNT  CYCLES  FIRST                     LAST                      ENTRY  "
              "STARTUP\n"
              "FC_BUS_OFF         active        2       3  2031-05-04T03:02:01.000Z  2031-05-05T03:02:01.500Z      3  "
              "      2\n"
              "FC_SENSOR_TIMEOUT  inactive      1       1  2031-05-04T03:02:02.000Z  2031-05-04T03:02:02.000Z      2  "
              "      2\n");
}

TEST_F(Statistics, AreSortedAsAskedFor)
{
    std::string const busOff = "FC_BUS_OFF.*FC_SENSOR_TIMEOUT";
    auto const first = [&](std::vector<std::string> options)
    {
        options.insert(options.begin(), {"stats", path});
        std::string const text = output(options);
        return text.find("FC_BUS_OFF") < text.find("FC_SENSOR_TIMEOUT") ? "FC_BUS_OFF" : "FC_SENSOR_TIMEOUT";
    };
    for (char const* const order : {"count", "code", "name", "active", "first", "last"})
    {
        EXPECT_STREQ(first({"--sort", order}), "FC_BUS_OFF") << order;
        EXPECT_STREQ(first({"--sort", order, "--reverse"}), "FC_SENSOR_TIMEOUT") << order;
    }
}

TEST_F(Statistics, OfActiveFaultsAlone)
{
    std::string const json = output({"stats", path, "--active", "--json"});
    EXPECT_EQ(json, "[\n{\"EntryId\":1,\"FaultCode\":1025,\"FaultCodeName\":\"FC_BUS_OFF\",\"TimeFirstOccurredUTC\":"
                    "1935630121000,\"TimeLastOccurredUTC\":1935716521500,\"TimeZoneFirstOccurred\":\"UTC\","
                    "\"TimeZoneLastOccurred\":\"UTC\",\"OccurenceCnt\":2,\"FaultActive\":\"active\","
                    "\"FaultActiveCycleCnt\":3,\"FaultEntryId\":3,\"RdbStartupId\":2,\"TimeFirstOccurred\":"
                    "\"2031-05-04T03:02:01.000Z\",\"TimeLastOccurred\":\"2031-05-05T03:02:01.500Z\"}\n]\n");
}

TEST_F(Summary, ShowsTheMostImportantFactsOnOnePage)
{
    EXPECT_EQ(output({"summary", path}), "File            " + path +
                                             "\nSize            20 KiB\n"
                                             "Format version  1.0.0\n"
                                             "Period          2031-05-04T03:02:01.000Z to 2031-05-05T03:02:01.500Z\n"
                                             "Duration        1 d\n"
                                             "Faults          3, 2 of them recorded as active, 2 start-ups\n"
                                             "Statistics      2 codes, 1 active now\n"
                                             "\n"
                                             "ACTIVE NOW  COUNT  LAST                      ENTRY\n"
                                             "FC_BUS_OFF      2  2031-05-05T03:02:01.500Z      3\n"
                                             "\n"
                                             "MOST FREQUENT      COUNT\n"
                                             "FC_BUS_OFF             2\n"
                                             "FC_SENSOR_TIMEOUT      1\n"
                                             "\n"
                                             "FAULTS PER START-UP  COUNT\n"
                                             "2                        2\n"
                                             "1                        1\n"
                                             "\n"
                                             "FAULTS PER 6 h    COUNT\n"
                                             "2031-05-04T00:00      2\n"
                                             "2031-05-04T06:00      0\n"
                                             "2031-05-04T12:00      0\n"
                                             "2031-05-04T18:00      0\n"
                                             "2031-05-05T00:00      1\n");
}

TEST_F(Summary, OfAnEmptyFileReportsThatThereAreNoFaults)
{
    output({"create", path, "--force"});
    std::string const text = output({"summary", path});
    EXPECT_THAT(
        text,
        HasSubstr(
            "Period          -\nDuration        -\nFaults          0, 0 of them recorded as active, 0 start-ups\n"));
    EXPECT_THAT(text, HasSubstr("\nNo fault is active.\n"));
}

TEST_F(Summary, IsPrintedAsJson)
{
    std::string const json = output({"summary", path, "--json"});
    EXPECT_THAT(json,
                StartsWith("{\"File\":\"" + path +
                           "\",\"Bytes\":20480,\"FormatVersion\":\"1.0.0\","
                           "\"First\":\"2031-05-04T03:02:01.000Z\",\"Last\":\"2031-05-05T03:02:01.500Z\",\"Faults\":3,"
                           "\"FaultsRecordedAsActive\":2,\"FaultsWithoutTime\":0,\"Statistics\":2,\"Active\":["));
    EXPECT_THAT(json, HasSubstr("\"Startups\":[{\"RdbStartupId\":2,\"Faults\":2},{\"RdbStartupId\":1,\"Faults\":1}],"
                                "\"Timeline\":[{\"Begin\":\"2031-05-04T00:00:00.000Z\",\"End\":"
                                "\"2031-05-04T06:00:00.000Z\",\"Faults\":2},"));
}

TEST(CodeTable, IsPrintedByNumber)
{
    Outcome const text = runTool({"codes"});
    EXPECT_EQ(text.status, 0);
    EXPECT_THAT(text.output,
                StartsWith("CODE     HEX  NAME\n   0  0x0000  FC_NONE\n 257  0x0101  FC_SUPPLY_UNDERVOLTAGE\n"));
    EXPECT_THAT(text.output, HasSubstr("\n1798  0x0706  FC_SOFTWARE_UPDATE_FAILED\n"));
    EXPECT_THAT(runTool({"codes", "--json"}).output,
                StartsWith("[\n{\"FaultCode\":0,\"FaultCodeName\":\"FC_NONE\"},\n"));
}
