// firaim export: each format, read back by another program.

#include "ToolProcess.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace
{

using testing::HasSubstr;
using testing::StartsWith;

constexpr char kHeading[] =
    "EntryId,DateTimeString,FaultCode,FaultCodeName,ModuleName,Parameter,TimeStampUTC,TimeZone,Status,Description,"
    "DiagSignalsDumpFileName,LoggerUpTime,LoggerLifeTime,CfgBackupFile,RdbStartupId,SystemDateTimeString\n";

class ExportTest : public ToolTest
{
protected:
    ExportTest() { createSample(); }

    std::string exported(std::vector<std::string> options)
    {
        options.insert(options.begin(), {"export", path, "--format"});
        return output(options);
    }

    /// All rows of all tables, and the schema.
    static std::string contentOf(std::string const& file)
    {
        RawDb raw(file);
        std::string content;
        for (char const* const query :
             {"SELECT sql FROM sqlite_master", "SELECT * FROM FdbFaultTbl", "SELECT * FROM FdbFaultStatisticTbl",
              "SELECT * FROM FdbVersionTbl", "SELECT * FROM sqlite_sequence",
              "SELECT typeof(Description), typeof(Parameter), typeof(LoggerUpTime) FROM FdbFaultTbl"})
        {
            content += testing::PrintToString(raw.rows(query)) + "\n";
        }
        return content;
    }
};

} // namespace

TEST_F(ExportTest, CsvHasAHeadingAndTheOldestFirst)
{
    EXPECT_EQ(
        exported({"csv"}),
        std::string(kHeading) +
            "1,2031-05-04T03:02:01.000Z,1025,FC_BUS_OFF,can0,p1,1935630121000,UTC,ErrorActive,no answer,\"\",11,12,"
            "\"\",1,2031-05-04T03:02:01.000Z\n"
            "2,2031-05-04T03:02:01.000Z,1285,FC_SENSOR_TIMEOUT,can0,\"\",1935630122000,UTC,ErrorInactive,\"\","
            "\"\",11,12,\"\",2,2031-05-04T03:02:01.000Z\n"
            "3,2031-05-04T03:02:01.000Z,1025,FC_BUS_OFF,can0,\"\",1935716521500,UTC,ErrorActive,no answer,\"\","
            "11,12,\"\",2,2031-05-04T03:02:01.000Z\n");
}

TEST_F(ExportTest, CsvQuotesWhereNecessaryAndDistinguishesNullFromEmpty)
{
    RawDb(path).exec("DELETE FROM FdbVersionTbl; INSERT INTO FdbVersionTbl VALUES(1,'FormatVersion','1.0.0'),"
                     "(2,'a,b','c\"d'),(3,NULL,''),(4,' e','f' || char(10) || 'g'),(5,x'00ff',1.5)");
    EXPECT_EQ(exported({"csv", "--table", "versions"}), "VersionEntryId,Component,Version\n"
                                                        "1,FormatVersion,1.0.0\n"
                                                        "2,\"a,b\",\"c\"\"d\"\n"
                                                        "3,,\"\"\n"
                                                        "4,\" e\",\"f\ng\"\n"
                                                        "5,00ff,1.5\n");
}

TEST_F(ExportTest, FiltersChooseAmongTheFaults)
{
    EXPECT_THAT(exported({"csv", "--code", "FC_SENSOR_TIMEOUT"}), StartsWith(std::string(kHeading) + "2,"));
    EXPECT_THAT(exported({"json", "--startup", "1"}), StartsWith("{\n\"FdbFaultTbl\": [\n{\"EntryId\":1,"));
    EXPECT_THAT(exported({"jsonl", "--after", "2"}), StartsWith("{\"EntryId\":3,"));
}

TEST_F(ExportTest, AFilterWithoutMatchesIsReported)
{
    Outcome const outcome = runTool({"export", path, "--format", "jsonl", "--module", ""});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.errors, "firaim: no fault is of the module ''\n");
}

TEST_F(ExportTest, JsonHoldsTheWholeFile)
{
    std::string const json = exported({"json"});
    std::string const script = "SELECT json_array_length('" + json + "', '$.FdbFaultTbl') || json_array_length('" +
                               json + "', '$.FdbFaultStatisticTbl') || json_extract('" + json +
                               "', '$.FdbVersionTbl[0].Version')";
    EXPECT_EQ(value(script), "321.0.0");
}

TEST_F(ExportTest, EachJsonLineHoldsARowWhateverItsContent)
{
    insertFault("Description,FaultCode,LoggerUpTime", "'a' || char(10) || '\"' || x'ff' || 'ä', 1.5, NULL");
    std::string const lines = exported({"jsonl", "--after", "3"});
    EXPECT_THAT(lines, HasSubstr("\"Description\":\"a\\n\\\"\xef\xbf\xbdä\""));
    EXPECT_THAT(lines, HasSubstr("\"FaultCode\":1.5"));
    EXPECT_THAT(lines, HasSubstr("\"LoggerUpTime\":null"));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 1);
}

TEST_F(ExportTest, SqlMakesTheSameFileAnew)
{
    insertFault("Description,Parameter,LoggerUpTime", "'it''s' || char(10) || char(27), x'0001ff', 9e999");
    insertFault("Description,Parameter,LoggerUpTime", "CAST(x'61006200' AS TEXT), 'ä', 0.1");
    insertFault("Description,Parameter,LoggerUpTime", "NULL, '', -1e300");
    RawDb(path).exec("DELETE FROM FdbFaultTbl WHERE EntryId = 6");
    std::string const copy = dir.file("copy.db");
    RawDb(copy).exec(exported({"sql"}));
    EXPECT_EQ(contentOf(copy), contentOf(path));
    EXPECT_EQ(output({"record", copy, "--code", "FC_BUS_OFF"}), "7\n");
}

TEST_F(ExportTest, EachTableCanBeChosen)
{
    EXPECT_THAT(exported({"csv", "--table", "statistics"}), StartsWith("EntryId,FaultCode,FaultCodeName,TimeFirst"));
    EXPECT_EQ(exported({"jsonl", "--table", "versions"}),
              "{\"VersionEntryId\":1,\"Component\":\"FormatVersion\",\"Version\":\"1.0.0\"}\n");
    EXPECT_THAT(exported({"sql", "--table", "statistics"}),
                StartsWith("BEGIN TRANSACTION;\nCREATE TABLE \"FdbFaultStatisticTbl\" ("));
}
