// Creating, recording and clearing: what the file holds afterwards.

#include "ToolProcess.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <sstream>

#include <sys/stat.h>
#include <unistd.h>

namespace
{

using testing::HasSubstr;

class Recording : public ToolTest
{
protected:
    Recording() { create(); }

    std::string statistic(std::string const& columns)
    {
        return value("SELECT " + columns + " FROM FdbFaultStatisticTbl WHERE FaultCode = 1025");
    }

    /// Makes the file refuse the faults of a module.
    void refuseModule(std::string const& module, std::string const& reason)
    {
        RawDb(path).exec("CREATE TRIGGER refuse_" + module + " BEFORE INSERT ON FdbFaultTbl WHEN new.ModuleName = '" +
                         module + "' BEGIN SELECT RAISE(ABORT, '" + reason + "'); END");
    }
};

class Creating : public ToolTest
{
};

} // namespace

TEST_F(Creating, MakesAFileThatTheLibraryAcceptsAndCheckApproves)
{
    EXPECT_EQ(output({"create", path}), "");
    EXPECT_EQ(output({"check", path}), path + ": nothing is wrong\n");
}

TEST_F(Creating, RefusesAnExistingFileWithoutForce)
{
    createSample();
    std::string const before = readFile(path);
    outcome_t const outcome = runTool({"create", path});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("exists already; --force replaces it"));
    EXPECT_EQ(readFile(path), before);
    output({"create", path, "--force"});
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl"), "0");
}

TEST_F(Creating, NeverReplacesAFolderOrALink)
{
    std::string const link = dir.file("link");
    createSample();
    ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
    for (std::string const& name : {dir.path(), link})
    {
        EXPECT_EQ(runTool({"create", name, "--force"}).status, 3) << name;
    }
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl"), "3");
}

TEST_F(Creating, LeavesNothingWhereItCannotBeDone)
{
    outcome_t const outcome = runTool({"create", dir.file("no/folder.db")});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("cannot be created"));
}

TEST_F(Recording, StoresEveryFieldAndPrintsTheKey)
{
    EXPECT_EQ(
        output({"record",          path,    "--code",        "FC_BUS_OFF", "--module",       "can0",
                "--param",         "p",     "--description", "d",          "--time",         "2031-05-04T03:02:01.5Z",
                "--startup",       "7",     "--time-zone",   "CET",        "--signals-file", "s.dump",
                "--config-backup", "c.bak", "--up-time",     "11",         "--life-time",    "12"}),
        "1\n");
    auto const rows = RawDb(path).rows("SELECT * FROM FdbFaultTbl");
    ASSERT_EQ(rows.size(), 1u);
    RawDb::row_t const expected = {"1",
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
    EXPECT_EQ(RawDb::row_t(rows[0].begin(), rows[0].end() - 1), expected);
    EXPECT_EQ(rows[0].back()->size(), std::string("2031-05-04T03:02:01.500Z").size());
}

TEST_F(Recording, CountsLaterOccurrencesInTheStatisticOfTheFirst)
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

TEST_F(Recording, StaysAt65535Occurrences)
{
    output({"record", path, "--code", "FC_BUS_OFF"});
    RawDb(path).exec("UPDATE FdbFaultStatisticTbl SET OccurenceCnt = 65534, FaultActiveCycleCnt = 65535");
    output({"record", path, "--code", "FC_BUS_OFF"});
    output({"record", path, "--code", "FC_BUS_OFF"});
    EXPECT_EQ(statistic("OccurenceCnt || ' ' || FaultActiveCycleCnt || ' ' || FaultEntryId"), "65535 65535 3");
}

TEST_F(Recording, AnInactiveFaultCountsForNothing)
{
    output({"record", path, "--code", "FC_BUS_OFF"});
    output({"record", path, "--code", "FC_BUS_OFF", "--inactive"});
    EXPECT_EQ(statistic("OccurenceCnt || ' ' || FaultActive || ' ' || FaultEntryId"), "1 inactive 2");
    EXPECT_EQ(value("SELECT Status FROM FdbFaultTbl WHERE EntryId = 2"), "ErrorInactive");
}

TEST_F(Recording, StoresTextsWithQuotesWhole)
{
    std::string const text = "it's \"o'clock\"''; DROP TABLE FdbFaultTbl; --'";
    output({"record", path, "--code", "FC_BUS_OFF", "--description", text, "--module", "'", "--time-zone", "o''"});
    output({"record", path, "--code", "FC_BUS_OFF", "--time-zone", "'"});
    EXPECT_EQ(value("SELECT Description FROM FdbFaultTbl WHERE EntryId = 1"), text);
    EXPECT_EQ(value("SELECT ModuleName FROM FdbFaultTbl WHERE EntryId = 1"), "'");
    EXPECT_EQ(statistic("TimeZoneFirstOccurred || ' ' || TimeZoneLastOccurred"), "o'' '");
}

TEST_F(Recording, TakesTheStartUpAndTheUnitOfTimeOfTheNewestFault)
{
    insertFault("TimeStampUTC,RdbStartupId", "1935630121,9");
    output({"record", path, "--code", "FC_BUS_OFF", "--time", "2031-05-04T03:02:01Z"});
    EXPECT_EQ(value("SELECT TimeStampUTC || ' ' || RdbStartupId FROM FdbFaultTbl WHERE EntryId = 2"), "1935630121 9");
}

TEST_F(Recording, TakesTheStartUpOfTheStatisticsWhereItIsLarger)
{
    insertFault("RdbStartupId", "9");
    RawDb(path).exec("INSERT INTO FdbFaultStatisticTbl(FaultCode,FaultActive,RdbStartupId) VALUES(7,'inactive',12)");
    output({"record", path, "--code", "FC_BUS_OFF"});
    EXPECT_EQ(value("SELECT RdbStartupId FROM FdbFaultTbl WHERE EntryId = 2"), "12");
}

TEST_F(Recording, RefusesATimeThatWouldBeReadAsAnother)
{
    std::vector<std::vector<std::string>> const times = {
        {"1972-01-01"}, {"1970-01-01"}, {"3000-01-01", "--time-unit", "ns"}, {"2300-01-01", "--time-unit", "ns"}};
    for (std::vector<std::string> arguments : times)
    {
        arguments.insert(arguments.begin(), {"record", path, "--code", "FC_BUS_OFF", "--time"});
        outcome_t const outcome = runTool(arguments);
        EXPECT_EQ(outcome.status, 2) << arguments[5];
        EXPECT_THAT(outcome.errors, HasSubstr("this time cannot be stored")) << arguments[5];
    }
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl"), "0");
    output({"record", path, "--code", "FC_BUS_OFF", "--time", "1972-01-01", "--time-unit", "s"});
}

TEST_F(Recording, AClockThatWasNeverSetDoesNotTellTheUnit)
{
    insertFault("TimeStampUTC", "5000");
    output({"record", path, "--code", "FC_BUS_OFF", "--time", "2031-05-04T03:02:01Z"});
    EXPECT_EQ(value("SELECT TimeStampUTC FROM FdbFaultTbl WHERE EntryId = 2"), "1935630121000");
}

TEST_F(Recording, SaysWhenOnlyTheKeyCouldNotBeWritten)
{
    int const status = std::system(
        ("'" FIRAIM_TEST_TOOL "' record '" + path + "' --code 1 >/dev/full 2>'" + dir.file("err") + "'").c_str());
    EXPECT_EQ(WEXITSTATUS(status), 3);
    EXPECT_THAT(readFile(dir.file("err")), HasSubstr("the fault was recorded all the same, with the key 1"));
}

TEST_F(Recording, SaysOfManyWhenOnlyTheirKeysCouldNotBeWritten)
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

TEST_F(Recording, InputThatIsClosedIsAFailure)
{
    int const status =
        std::system(("'" FIRAIM_TEST_TOOL "' record '" + path + "' --stdin <&- 2>'" + dir.file("err") + "'").c_str());
    EXPECT_EQ(WEXITSTATUS(status), 3);
    EXPECT_THAT(readFile(dir.file("err")), HasSubstr("cannot read standard input"));
}

TEST_F(Recording, ColumnsInAnotherOrderAreRefused)
{
    RawDb(path).exec("DROP TABLE FdbVersionTbl; CREATE TABLE FdbVersionTbl (VersionEntryId INTEGER PRIMARY KEY "
                     "AUTOINCREMENT NOT NULL, Version VARCHAR, Component VARCHAR); INSERT INTO FdbVersionTbl VALUES(1, "
                     "'1.0.0', 'FormatVersion')");
    outcome_t const outcome = runTool({"record", path, "--code", "1"});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("FdbVersionTbl has not the columns of the file format, in their order"));
}

TEST_F(Recording, SaysWhichLinesWereNotRecordedWhenTheFileCannotBeWritten)
{
    setting_t setting;
    for (int line = 0; line < 3000; ++line)
    {
        setting.input +=
            "{\"FaultCode\":1025,\"Description\":\"some text of some length, line " + std::to_string(line) + "\"}\n";
    }
    setting.longestFile = 100000;
    outcome_t const outcome = runTool({"record", path, "--stdin"}, setting);
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr(": not recorded"));
    // Each one that was named is there, and no other.
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl"),
              std::to_string(std::count(outcome.output.begin(), outcome.output.end(), '\n')));
}

TEST_F(Recording, NamesTheFirstLineThatIsNotRecordedWhenItEndsEarly)
{
    setting_t setting;
    for (int line = 0; line < 3000; ++line)
    {
        setting.input += "{\"FaultCode\":1025,\"Description\":\"some text of some length\"}\n";
    }
    setting.longestFile = 250000;
    outcome_t const outcome = runTool({"record", path, "--stdin"}, setting);
    auto const recorded = std::count(outcome.output.begin(), outcome.output.end(), '\n');
    EXPECT_GT(recorded, 0);
    EXPECT_THAT(outcome.errors,
                HasSubstr("firaim: line " + std::to_string(recorded + 1) + " and all after it: not recorded\n"));
}

TEST_F(Recording, NamesTheFirstLineWhenTheFileCannotBeOpened)
{
    ToolProcess process({"record", dir.file("missing.db"), "--stdin"}, {}, true);
    EXPECT_EQ(process.finish(), 3) << "it does not wait for the first line";
    EXPECT_THAT(process.errors, HasSubstr("firaim: line 1 and all after it: not recorded\n"));
}

TEST_F(Recording, NamesNoLineWhenThereIsNoneAndTheFileCannotBeOpened)
{
    int const status = std::system(("'" FIRAIM_TEST_TOOL "' record '" + dir.file("missing.db") +
                                    "' --stdin </dev/null 2>'" + dir.file("err") + "'")
                                       .c_str());
    EXPECT_EQ(WEXITSTATUS(status), 3);
    EXPECT_THAT(readFile(dir.file("err")), testing::Not(HasSubstr("not recorded")));
}

TEST_F(Recording, ASignalWhileTheFileIsLockedNamesTheLinesThatAreNotRecorded)
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

TEST_F(Recording, AcceptsNamesInAnyCaseAndWithoutPrefix)
{
    output({"record", path, "--code", "bus_off"});
    output({"record", path, "--code", "fc_Bus_Off"});
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl WHERE FaultCode = 1025"), "2");
}

TEST_F(Recording, SuggestsCodesThatAreMeant)
{
    outcome_t const outcome = runTool({"record", path, "--code", "bus"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.errors, HasSubstr("unknown fault code 'bus'; did you mean FC_BUS_OFF, FC_BUS_NO_TRAFFIC"));
}

TEST_F(Recording, AReadOnlyFileIsRefused)
{
    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    WithoutRoot const user;
    outcome_t const outcome = runTool({"record", path, "--code", "FC_BUS_OFF"});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("cannot be written"));
}

TEST_F(Recording, ClearingMarksTheStatisticAndRecordsWhatIsOver)
{
    output({"record", path, "--code", "FC_BUS_OFF", "--module", "it's", "--param", "p", "--startup", "3"});
    EXPECT_EQ(output({"clear", path, "--code", "bus_off", "--description", "plugged in again"}), "2\n");
    EXPECT_EQ(statistic("OccurenceCnt || ' ' || FaultActive || ' ' || FaultEntryId"), "1 inactive 2");
    EXPECT_EQ(value("SELECT Status || ' ' || ModuleName || ' ' || Parameter || ' ' || Description || ' ' || "
                    "RdbStartupId FROM FdbFaultTbl WHERE EntryId = 2"),
              "ErrorInactive it's p plugged in again 3");
}

TEST_F(Recording, ClearingEndsEveryActiveModuleAndParameterOfTheCode)
{
    output({"record", path, "--code", "FC_BUS_OFF", "--module", "can0"});
    output({"record", path, "--code", "FC_BUS_OFF", "--module", "can1", "--param", "p"});
    EXPECT_EQ(output({"clear", path, "--code", "FC_BUS_OFF"}), "3\n4\n");
    EXPECT_EQ(value("SELECT group_concat(Status || ModuleName || Parameter) FROM FdbFaultTbl WHERE EntryId > 2"),
              "ErrorInactivecan0,ErrorInactivecan1p");
    EXPECT_EQ(statistic("FaultActive"), "inactive");
}

TEST_F(Recording, ClearingAModuleLeavesTheOthersOfTheCodeActive)
{
    output({"record", path, "--code", "FC_BUS_OFF", "--module", "can0"});
    output({"record", path, "--code", "FC_BUS_OFF", "--module", "can1"});
    EXPECT_EQ(output({"clear", path, "--code", "FC_BUS_OFF", "--module", "can1"}), "3\n");
    EXPECT_EQ(value("SELECT Status || ModuleName FROM FdbFaultTbl WHERE EntryId = 3"), "ErrorInactivecan1");
    EXPECT_EQ(statistic("FaultActive"), "active");
    outcome_t const outcome = runTool({"clear", path, "--code", "FC_BUS_OFF", "--module", "can1"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("FC_BUS_OFF of the module 'can1' is not active; nothing was recorded"));
}

TEST_F(Recording, ClearingAnEmptyModuleOrParameterLeavesTheOthersOfTheCodeActive)
{
    output({"record", path, "--code", "FC_BUS_OFF"});
    output({"record", path, "--code", "FC_BUS_OFF", "--module", "can0"});
    EXPECT_EQ(output({"clear", path, "--code", "FC_BUS_OFF", "--module", ""}), "3\n");
    EXPECT_EQ(statistic("FaultActive"), "active");
    outcome_t const outcome = runTool({"clear", path, "--code", "FC_BUS_OFF", "--param", ""});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("FC_BUS_OFF with the parameter '' is not active; nothing was recorded"));
    EXPECT_EQ(output({"clear", path, "--code", "FC_BUS_OFF", "--module", "can0", "--param", ""}), "4\n");
    EXPECT_EQ(statistic("FaultActive"), "inactive");
}

TEST_F(Recording, ACodeThatOnlyTheFileHasANameForKeepsIt)
{
    RawDb(path).exec("INSERT INTO FdbFaultStatisticTbl SELECT NULL, 7777, 'FC_OF_THE_DEVICE', 0, 0, 'UTC', 'UTC', 1, "
                     "'inactive', 1, 0, 0");
    output({"record", path, "--code", "7777"});
    EXPECT_EQ(value("SELECT FaultCodeName || OccurenceCnt FROM FdbFaultStatisticTbl WHERE FaultCode = 7777"),
              "FC_OF_THE_DEVICE2");
    EXPECT_EQ(value("SELECT FaultCodeName FROM FdbFaultTbl"), "FC_OF_THE_DEVICE");
}

TEST_F(Recording, ClearingWhatIsNotActiveIsAnsweredWithNo)
{
    EXPECT_EQ(runTool({"clear", path, "--code", "FC_BUS_OFF"}).status, 1);
    output({"record", path, "--code", "FC_BUS_OFF"});
    output({"clear", path, "--code", "FC_BUS_OFF"});
    outcome_t const outcome = runTool({"clear", path, "--code", "FC_BUS_OFF"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("FC_BUS_OFF is not active; nothing was recorded"));
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl"), "2");
}

TEST_F(Recording, ReadsManyFromStandardInputAndSaysWhatWasRefused)
{
    setting_t setting;
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
{"FaultCode":1025,"Description":null,"LoggerUpTime":null})";
    outcome_t const outcome = runTool({"record", path, "--stdin"}, setting);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "1\n2\n3\n");
    EXPECT_EQ(outcome.errors,
              "firaim: line 4: FaultCode: unknown fault code 'FC_NONSENSE'; 'firaim codes' lists those that there are\n"
              "firaim: line 5: unknown field 'Descripton'\n"
              "firaim: line 6: Description: must be a text\n"
              "firaim: line 7: Description: holds a zero byte, which a text in the file cannot\n"
              "firaim: line 8: FaultCode: must be a whole number from 0 to 4294967295\n"
              "firaim: line 9: Status: must be \"ErrorActive\" or \"ErrorInactive\"\n"
              "firaim: line 10: a field holds a list or an object\n"
              "firaim: line 11: FaultCode is missing\n"
              "firaim: line 12: no JSON object\n"
              "firaim: line 13: no JSON, at byte 14\n"
              "firaim: line 14: FaultCode is missing\n"
              "firaim: line 15: number out of range\n"
              "firaim: line 16: 'code' is given twice\n"
              "firaim: line 17: 'FaultCode' is given twice\n"
              "firaim: line 18: Time: must be a time from 1970 on, such as \"2031-05-04T03:02:01Z\"\n");
    EXPECT_EQ(value("SELECT Description FROM FdbFaultTbl WHERE EntryId = 1"), "it's");
    EXPECT_EQ(value("SELECT ModuleName || Parameter || Status || RdbStartupId || DateTimeString FROM FdbFaultTbl WHERE "
                    "EntryId = 2"),
              "mpErrorInactive42031-05-04T03:02:01.000Z");
    EXPECT_EQ(statistic("OccurenceCnt || ' ' || FaultEntryId"), "2 3");
}

TEST_F(Recording, ALineThatTheFileRefusesAtTheEndOfABatchDoesNotEndIt)
{
    refuseModule("bad", "not this one");
    ToolProcess process({"record", path, "--stdin"}, {}, true);
    // Lines that are there at once are one batch.
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

TEST_F(Recording, ALineAtWhichATriggerFailsAtTheEndOfABatchDoesNotEndIt)
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

TEST_F(Recording, EachLineThatTheFileRefusesGetsItsOwnReason)
{
    refuseModule("a", "not a");
    refuseModule("b", "not b");
    setting_t setting;
    setting.input = "{\"FaultCode\":1,\"module\":\"a\"}\n{\"FaultCode\":2}\n{\"FaultCode\":3,\"module\":\"b\"}\n"
                    "{\"FaultCode\":4}\n{\"FaultCode\":5,\"module\":\"a\"}\n";
    outcome_t const outcome = runTool({"record", path, "--stdin"}, setting);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "1\n2\n");
    EXPECT_EQ(outcome.errors, "firaim: line 1: " + path + ": not a\nfiraim: line 3: " + path +
                                  ": not b\nfiraim: line 5: " + path + ": not a\n");
}

TEST_F(Recording, ALineThatIsTooLongIsRefusedAndTheNextOneIsNot)
{
    setting_t setting;
    setting.input = "{\"FaultCode\":1,\"Description\":\"" + std::string(17 << 20, 'x') + "\"}\n{\"FaultCode\":2}\n" +
                    std::string(40 << 20, 'y');
    outcome_t const outcome = runTool({"record", path, "--stdin"}, setting);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "1\n");
    EXPECT_EQ(outcome.errors, "firaim: line 1: longer than 16 MiB\nfiraim: line 3: longer than 16 MiB\n");
    EXPECT_EQ(value("SELECT FaultCode FROM FdbFaultTbl"), "2");
}

TEST_F(Recording, SaysThatStatisticsShareACode)
{
    output({"record", path, "--code", "FC_BUS_OFF"});
    RawDb(path).exec("INSERT INTO FdbFaultStatisticTbl(FaultCode) VALUES(1025)");
    outcome_t const outcome = runTool({"record", path, "--code", "FC_BUS_OFF"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "2\n");
    EXPECT_THAT(outcome.errors, HasSubstr("several statistics have the code 1025"));
}

TEST_F(Recording, WhatOneFileExportsAnotherRecords)
{
    insertFault("Description,LoggerLifeTime,RdbStartupId", "'it''s \"äöü\" \n', 4294967295, 4294967295");
    insertFault("Status,TimeStampUTC", "'ErrorInactive',0");
    std::string const other = dir.file("other.db");
    output({"create", other});
    setting_t setting;
    setting.input = output({"export", path, "--format", "jsonl"});
    EXPECT_EQ(output({"record", other, "--stdin"}, setting), "1\n2\n");
    EXPECT_EQ(output({"export", other, "--format", "csv"}), output({"export", path, "--format", "csv"}));
}

TEST_F(Recording, NamesEachFaultOfAnOpenPipeOnceItIsRecorded)
{
    ToolProcess process({"record", path, "--stdin"}, {}, true);
    for (int key = 1; key <= 3; ++key)
    {
        process.write("{\"FaultCode\":1025}\n");
        EXPECT_EQ(process.readLine(), std::to_string(key));
        // It waits for more, and holds no lock meanwhile.
        EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl"), std::to_string(key));
        RawDb(path).exec("BEGIN IMMEDIATE; COMMIT");
    }
    process.closeInput();
    EXPECT_EQ(process.finish(), 0);
}

TEST_F(Recording, ASignalEndsItWithAllThatWasNamedRecorded)
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

TEST_F(Recording, ImportersLetEachOtherAndSingleRecordersIn)
{
    constexpr int kImporters = 4;
    constexpr int kLines = 10000;
    setting_t setting;
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
    outcome_t const single = runTool({"record", path, "--code", "FC_CLOCK_JUMP"});
    EXPECT_EQ(single.status, 0) << single.errors;
    for (auto const& importer : importers)
    {
        EXPECT_EQ(importer->finish(), 0) << importer->errors;
    }
    EXPECT_EQ(statistic("OccurenceCnt"), std::to_string(kImporters * kLines));
    EXPECT_GT(value("SELECT max(EntryId) - (SELECT EntryId FROM FdbFaultTbl WHERE FaultCode = 769) FROM FdbFaultTbl"),
              "0");
}

TEST_F(Recording, SeveralProgramsAtOnceLoseNoCountAndNameTheirOwnFaults)
{
    constexpr int kPrograms = 4;
    constexpr int kFaults = 50;
    std::vector<std::unique_ptr<ToolProcess>> programs;
    for (int program = 0; program < kPrograms; ++program)
    {
        setting_t setting;
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
