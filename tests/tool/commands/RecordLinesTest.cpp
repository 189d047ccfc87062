// firaim record --stdin: recorded lines, refused lines, and early ends.

#include "RecordFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <memory>

namespace
{

using testing::HasSubstr;

using RecordLinesTest = RecordTest;

} // namespace

TEST_F(RecordLinesTest, ReportsWhenOnlyTheKeysCouldNotBeWritten)
{
    for (char const* const closed : {">/dev/full", ">&-"})
    {
        int const status =
            std::system(("printf '{\"FaultCode\":1}\\n{\"FaultCode\":2}\\n' | '" FIRAIM_TEST_TOOL "' record '" + path +
                         "' --stdin " + closed + " 2>'" + dir.file("err") + "'")
                            .c_str());
        EXPECT_EQ(WEXITSTATUS(status), 3) << closed;
        EXPECT_THAT(readFile(dir.file("err")), HasSubstr("were recorded all the same")) << closed;
        EXPECT_THAT(readFile(dir.file("err")), testing::Not(HasSubstr("not recorded"))) << closed;
    }
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl"), "4");
}

TEST_F(RecordLinesTest, InputThatIsClosedIsAFailure)
{
    int const status =
        std::system(("'" FIRAIM_TEST_TOOL "' record '" + path + "' --stdin <&- 2>'" + dir.file("err") + "'").c_str());
    EXPECT_EQ(WEXITSTATUS(status), 3);
    EXPECT_THAT(readFile(dir.file("err")), HasSubstr("cannot read standard input"));
}

TEST_F(RecordLinesTest, ReportsWhichLinesWereNotRecordedWhenTheFileCannotBeWritten)
{
    Setting setting;
    for (int line = 0; line < 3000; ++line)
    {
        setting.input +=
            "{\"FaultCode\":1025,\"Description\":\"some text of some length, line " + std::to_string(line) + "\"}\n";
    }
    setting.longestFile = 100000;
    Outcome const outcome = runTool({"record", path, "--stdin"}, setting);
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr(": not recorded"));
    // Exactly the faults whose keys were printed are in the file.
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl"),
              std::to_string(std::count(outcome.output.begin(), outcome.output.end(), '\n')));
}

TEST_F(RecordLinesTest, NamesTheFirstLineThatIsNotRecordedWhenItEndsEarly)
{
    Setting setting;
    for (int line = 0; line < 3000; ++line)
    {
        setting.input += "{\"FaultCode\":1025,\"Description\":\"some text of some length\"}\n";
    }
    setting.longestFile = 250000;
    Outcome const outcome = runTool({"record", path, "--stdin"}, setting);
    auto const recorded = std::count(outcome.output.begin(), outcome.output.end(), '\n');
    EXPECT_GT(recorded, 0);
    EXPECT_THAT(outcome.errors,
                HasSubstr("firaim: line " + std::to_string(recorded + 1) + " and all after it: not recorded\n"));
}

TEST_F(RecordLinesTest, NamesTheFirstLineWhenTheFileCannotBeOpened)
{
    ToolProcess process({"record", dir.file("missing.db"), "--stdin"}, {}, true);
    EXPECT_EQ(process.finish(), 3) << "it must not wait for the first line";
    EXPECT_THAT(process.errors, HasSubstr("firaim: line 1 and all after it: not recorded\n"));
}

TEST_F(RecordLinesTest, NamesNoLineWhenThereIsNoneAndTheFileCannotBeOpened)
{
    int const status = std::system(("'" FIRAIM_TEST_TOOL "' record '" + dir.file("missing.db") +
                                    "' --stdin </dev/null 2>'" + dir.file("err") + "'")
                                       .c_str());
    EXPECT_EQ(WEXITSTATUS(status), 3);
    EXPECT_THAT(readFile(dir.file("err")), testing::Not(HasSubstr("not recorded")));
}

TEST_F(RecordLinesTest, ASignalWhileTheFileIsLockedNamesTheLinesThatAreNotRecorded)
{
    ToolProcess process({"record", path, "--stdin"}, {}, true);
    process.write("{\"FaultCode\":1025}\n");
    EXPECT_EQ(process.readLine(), "1");
    RawDb other(path);
    other.exec("BEGIN IMMEDIATE");
    process.write("{\"FaultCode\":1025}\n{\"FaultCode\":1025}\n");
    process.signal(SIGTERM);
    EXPECT_EQ(process.finish(), 128 + SIGTERM);
    EXPECT_THAT(process.errors, HasSubstr("firaim: line 2 and all after it: not recorded\n"));
    other.exec("COMMIT");
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl"), "1");
}

TEST_F(RecordLinesTest, RecordsLinesFromStandardInputAndReportsRefusedOnes)
{
    Setting setting;
    setting.input = R"({"FaultCode":1025,"Description":"it's"}
{"code":"sensor_timeout","module":"m","param":"p","inactive":true,"startup":4,"time":"2031-05-04T03:02:01Z"}

{"FaultCode":"FC_NONSENSE"}
{"FaultCode":1025,"Descripton":"x"}
{"FaultCode":1025,"Description":7}
{"FaultCode":1025,"Description":"a\u0000b"}
{"FaultCode":-1}
{"FaultCode":1025,"Status":"on"}
{"FaultCode":1025,"Parameter":["x"]}
{"Description":"x"}
[1]
{"FaultCode":
{"FaultCode":null}
{"FaultCode":1,"up-time":1e999}
{"FaultCode":1,"code":2}
{"FaultCode":1,"FaultCode":2}
{"FaultCode":1,"Time":"1960-01-01"}
[[[[[[[[1]]]]]]]]
[{"FaultCode":1}]
{"FaultCode":1025,"Description":null,"LoggerUpTime":null})";
    Outcome const outcome = runTool({"record", path, "--stdin"}, setting);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "1\n2\n3\n");
    EXPECT_EQ(outcome.errors,
              "firaim: line 4: FaultCode: unknown fault code 'FC_NONSENSE'; 'firaim codes' lists the known codes\n"
              "firaim: line 5: unknown field 'Descripton'\n"
              "firaim: line 6: Description: must be a text\n"
              "firaim: line 7: Description: has a zero byte, which the file cannot store\n"
              "firaim: line 8: FaultCode: must be a whole number from 0 to 4294967295\n"
              "firaim: line 9: Status: must be \"ErrorActive\" or \"ErrorInactive\"\n"
              "firaim: line 10: the value of a field is a list or an object\n"
              "firaim: line 11: FaultCode is missing\n"
              "firaim: line 12: not a JSON object\n"
              "firaim: line 13: not valid JSON at byte 14\n"
              "firaim: line 14: FaultCode is missing\n"
              "firaim: line 15: number out of range\n"
              "firaim: line 16: 'code' is given twice\n"
              "firaim: line 17: 'FaultCode' is given twice\n"
              "firaim: line 18: Time: must be a time from 1970 on, such as \"2031-05-04T03:02:01Z\"\n"
              "firaim: line 19: not a JSON object\n"
              "firaim: line 20: not a JSON object\n");
    EXPECT_EQ(value("SELECT Description FROM FdbFaultTbl WHERE EntryId = 1"), "it's");
    EXPECT_EQ(value("SELECT ModuleName || Parameter || Status || RdbStartupId || DateTimeString FROM FdbFaultTbl WHERE "
                    "EntryId = 2"),
              "mpErrorInactive42031-05-04T03:02:01.000Z");
    EXPECT_EQ(statistic("OccurenceCnt || ' ' || FaultEntryId"), "2 3");
}

TEST_F(RecordLinesTest, ALineThatTheFileRefusesAtTheEndOfABatchDoesNotEndIt)
{
    refuseModule("bad", "not this one");
    ToolProcess process({"record", path, "--stdin"}, {}, true);
    // Lines that are written at once form one batch.
    process.write("{\"FaultCode\":1}\n{\"FaultCode\":2,\"ModuleName\":\"bad\"}\n");
    EXPECT_EQ(process.readLine(), "1");
    process.write("{\"FaultCode\":3,\"ModuleName\":\"bad\"}\n");
    process.write("{\"FaultCode\":4}\n");
    EXPECT_EQ(process.readLine(), "2");
    process.closeInput();
    EXPECT_EQ(process.finish(), 1);
    EXPECT_EQ(process.errors,
              "firaim: line 2: " + path + ": not this one\nfiraim: line 3: " + path + ": not this one\n");
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1,4");
}

TEST_F(RecordLinesTest, ALineAtWhichATriggerFailsAtTheEndOfABatchDoesNotEndIt)
{
    RawDb(path).exec("CREATE TRIGGER failing BEFORE INSERT ON FdbFaultTbl WHEN new.ModuleName = 'bad' BEGIN SELECT "
                     "abs(-9223372036854775807 - 1); END");
    ToolProcess process({"record", path, "--stdin"}, {}, true);
    process.write("{\"FaultCode\":1}\n{\"FaultCode\":2,\"ModuleName\":\"bad\"}\n");
    EXPECT_EQ(process.readLine(), "1");
    process.write("{\"FaultCode\":3}\n");
    EXPECT_EQ(process.readLine(), "2");
    process.closeInput();
    EXPECT_EQ(process.finish(), 1);
    EXPECT_EQ(process.errors, "firaim: line 2: " + path + ": integer overflow\n");
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1,3");
}

TEST_F(RecordLinesTest, EachLineThatTheFileRefusesGetsItsOwnReason)
{
    refuseModule("a", "not a");
    refuseModule("b", "not b");
    Setting setting;
    setting.input = "{\"FaultCode\":1,\"module\":\"a\"}\n{\"FaultCode\":2}\n{\"FaultCode\":3,\"module\":\"b\"}\n"
                    "{\"FaultCode\":4}\n{\"FaultCode\":5,\"module\":\"a\"}\n";
    Outcome const outcome = runTool({"record", path, "--stdin"}, setting);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "1\n2\n");
    EXPECT_EQ(outcome.errors, "firaim: line 1: " + path + ": not a\nfiraim: line 3: " + path +
                                  ": not b\nfiraim: line 5: " + path + ": not a\n");
}

TEST_F(RecordLinesTest, ALineThatIsTooLongIsRefusedAndTheNextOneIsNot)
{
    Setting setting;
    setting.input = "{\"FaultCode\":1,\"Description\":\"" + std::string(17 << 20, 'x') + "\"}\n{\"FaultCode\":2}\n" +
                    std::string(40 << 20, 'y');
    Outcome const outcome = runTool({"record", path, "--stdin"}, setting);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "1\n");
    EXPECT_EQ(outcome.errors, "firaim: line 1: longer than 16 MiB\nfiraim: line 3: longer than 16 MiB\n");
    EXPECT_EQ(value("SELECT FaultCode FROM FdbFaultTbl"), "2");
}

TEST_F(RecordLinesTest, ExportOfOneFileCanBeRecordedIntoAnother)
{
    insertFault("Description,LoggerLifeTime,RdbStartupId", "'it''s \"äöü\" \n', 4294967295, 4294967295");
    insertFault("Status,TimeStampUTC", "'ErrorInactive',0");
    std::string const other = dir.file("other.db");
    output({"create", other});
    Setting setting;
    setting.input = output({"export", path, "--format", "jsonl"});
    EXPECT_EQ(output({"record", other, "--stdin"}, setting), "1\n2\n");
    EXPECT_EQ(output({"export", other, "--format", "csv"}), output({"export", path, "--format", "csv"}));
}

TEST_F(RecordLinesTest, PrintsTheKeyOfEachFaultFromAnOpenPipeOnceItIsRecorded)
{
    ToolProcess process({"record", path, "--stdin"}, {}, true);
    for (int key = 1; key <= 3; ++key)
    {
        process.write("{\"FaultCode\":1025}\n");
        EXPECT_EQ(process.readLine(), std::to_string(key));
        // While it waits for input, it holds no lock.
        EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl"), std::to_string(key));
        RawDb(path).exec("BEGIN IMMEDIATE; COMMIT");
    }
    process.closeInput();
    EXPECT_EQ(process.finish(), 0);
}

TEST_F(RecordLinesTest, ASignalEndsItWithAllFaultsRecordedWhoseKeysWerePrinted)
{
    ToolProcess process({"record", path, "--stdin"}, {}, true);
    process.write("{\"FaultCode\":1025}\n");
    EXPECT_EQ(process.readLine(), "1");
    for (int line = 0; line < 500; ++line)
    {
        process.write("{\"FaultCode\":1025}\n");
    }
    process.signal(SIGINT);
    EXPECT_EQ(process.finish(), 128 + SIGINT);
    EXPECT_EQ(value("SELECT count(*) - 1 FROM FdbFaultTbl"),
              std::to_string(std::count(process.output.begin(), process.output.end(), '\n')));
    EXPECT_EQ(value("PRAGMA integrity_check"), "ok");
}

TEST_F(RecordLinesTest, ImportersAlternateWithEachOtherAndWithSingleRecorders)
{
    constexpr int kImporters = 4;
    constexpr int kLines = 10000;
    Setting setting;
    for (int line = 0; line < kLines; ++line)
    {
        setting.input += "{\"FaultCode\":1025}\n";
    }
    std::vector<std::unique_ptr<ToolProcess>> importers;
    for (int i = 0; i < kImporters; ++i)
    {
        importers.push_back(
            std::make_unique<ToolProcess>(std::vector<std::string>{"record", path, "--stdin"}, setting));
    }
    EXPECT_TRUE(importers.front()->readLine());
    Outcome const single = runTool({"record", path, "--code", "FC_CLOCK_JUMP"});
    EXPECT_EQ(single.status, 0) << single.errors;
    for (auto const& importer : importers)
    {
        EXPECT_EQ(importer->finish(), 0) << importer->errors;
    }
    EXPECT_EQ(statistic("OccurenceCnt"), std::to_string(kImporters * kLines));
    EXPECT_GT(value("SELECT max(EntryId) - (SELECT EntryId FROM FdbFaultTbl WHERE FaultCode = 769) FROM FdbFaultTbl"),
              "0");
}
