// Output that depends on a terminal: colours, bars, widths, progress. Without a terminal there is none of these.

#include "ToolProcess.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <sstream>

namespace
{

using testing::HasSubstr;
using testing::Not;

#ifdef FIRAIM_TEST_IS_EMULATED
constexpr int kWidthStep = 30; // A program takes tenths of a second to start.
#else
constexpr int kWidthStep = 3;
#endif

class TerminalTest : public ToolTest
{
protected:
    TerminalTest() { createSample(); }

    /// The output of the command on a terminal with `columns` columns, with the newlines that the program wrote.
    static std::string shown(std::vector<std::string> const& arguments, int columns,
                             std::map<std::string, std::string> const& environment = {})
    {
        Setting setting;
        setting.outputColumns = columns;
        setting.environment = environment;
        Outcome const outcome = runTool(arguments, setting);
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        std::string text = outcome.output;
        text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
        return text;
    }

    static std::vector<std::string> lines(std::string const& text)
    {
        std::istringstream stream(text);
        std::vector<std::string> result;
        for (std::string line; std::getline(stream, line);)
        {
            result.push_back(line);
        }
        return result;
    }

    /// A setting in which a command that reads many faults would show its progress.
    Setting manyFaults()
    {
        Setting setting;
        setting.errorColumns = 80;
        for (int fault = 0; fault < 3; ++fault)
        {
            setting.input += "{\"FaultCode\":1025}\n";
        }
        return setting;
    }
};

constexpr char kEscape = '\x1b';

} // namespace

TEST_F(TerminalTest, StatusIsColoured)
{
    std::string const text = shown({"list", path}, 150);
    EXPECT_THAT(text, HasSubstr("\x1b[1mID\x1b[0m"));
    EXPECT_THAT(text, HasSubstr("\x1b[31mactive\x1b[0m"));
    EXPECT_THAT(text, HasSubstr("\x1b[2minactive\x1b[0m"));
}

TEST_F(TerminalTest, NoColorAndADumbTerminalPreventEscapeSequences)
{
    for (std::string const command : {"list", "stats", "summary"})
    {
        for (std::map<std::string, std::string> const& environment :
             {std::map<std::string, std::string>{{"NO_COLOR", "1"}}, {{"TERM", "dumb"}}})
        {
            std::string const text = shown({command, path}, 150, environment);
            EXPECT_THAT(text, Not(HasSubstr(std::string(1, kEscape)))) << command;
            EXPECT_THAT(text, Not(HasSubstr("\u2588"))) << command;
        }
    }
}

TEST_F(TerminalTest, CountsHaveBars)
{
    EXPECT_THAT(shown({"stats", path}, 200), HasSubstr("        2  \u2588\u2588\u2588\u2588\u2588\u2588\u2588\u2588"));
    EXPECT_THAT(shown({"summary", path}, 200), HasSubstr("FC_SENSOR_TIMEOUT      1  \u2588\u2588\u2588\u2588"));
    EXPECT_THAT(shown({"summary", path}, 200, {{"LANG", "C"}}), HasSubstr("FC_SENSOR_TIMEOUT      1  ####"));
}

TEST_F(TerminalTest, LinesFitItsWidth)
{
    insertFault("Description,ModuleName,Parameter",
                "'a long description that would not fit into any line', 'a module of some length', 'and a parameter'");
    for (int columns = 20; columns < 170; columns += kWidthStep)
    {
        for (std::vector<std::string> const& arguments :
             {std::vector<std::string>{"list", path}, {"stats", path}, {"summary", path}, {"codes"}})
        {
            for (std::string const& line : lines(shown(arguments, columns, {{"LANG", "C"}, {"NO_COLOR", "1"}})))
            {
                EXPECT_LE(line.size(), static_cast<std::size_t>(columns)) << line;
            }
        }
    }
    EXPECT_THAT(shown({"list", path}, 120, {{"NO_COLOR", "1"}}), HasSubstr("\u2026"));
}

TEST_F(TerminalTest, LessImportantColumnsAreLeftOutFirst)
{
    std::string const text = shown({"list", path}, 80, {{"NO_COLOR", "1"}});
    EXPECT_THAT(text, testing::StartsWith("ID  TIME                      FAULT              STATUS    MODULE"));
    EXPECT_THAT(text, HasSubstr("FC_SENSOR_TIMEOUT"));
}

TEST_F(TerminalTest, TheLastColumnHasTheRestOfTheLine)
{
    RawDb(path).exec(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 250) INSERT INTO FdbFaultTbl "
        "SELECT NULL, '', 1, 'a', 'b', 'c', 1, '', 'ErrorActive', 'd', '', 1, 1, '', 1, '' FROM n");
    RawDb(path).exec("UPDATE FdbFaultTbl SET Description = 'longer than those before it' WHERE EntryId = 1");
    EXPECT_THAT(shown({"list", path}, 150), HasSubstr("longer than those before it"));
}

TEST_F(TerminalTest, WideCharactersTakeTwoColumns)
{
    insertFault("ModuleName,Parameter", "'\u6e29\u5ea6', 'x'");
    insertFault("ModuleName,Parameter", "'abcd', 'x'");
    insertFault("ModuleName,Parameter", "'e\u0301abc', 'x'");
    std::string const text = shown({"list", path, "--last", "3"}, 150, {{"NO_COLOR", "1"}});
    EXPECT_THAT(text, HasSubstr("  \u6e29\u5ea6    x  "));
    EXPECT_THAT(text, HasSubstr("  abcd    x  "));
    EXPECT_THAT(text, HasSubstr("  e\u0301abc    x  "));
}

TEST_F(TerminalTest, TextsOfTheFileDoNotControlIt)
{
    std::string const hostile = "char(27) || ']0;title' || char(7) || char(155) || '2J' || char(13)";
    insertFault("Description,ModuleName,Parameter,FaultCodeName",
                hostile + "," + hostile + "," + hostile + "," + hostile);
    RawDb(path).exec("UPDATE FdbFaultStatisticTbl SET FaultCodeName = " + hostile + " WHERE EntryId = 1");
    for (std::vector<std::string> const& arguments : {std::vector<std::string>{"list", path},
                                                      {"list", path, "--json"},
                                                      {"show", path, "4"},
                                                      {"stats", path},
                                                      {"stats", path, "--json"},
                                                      {"summary", path},
                                                      {"summary", path, "--json"},
                                                      {"export", path, "--format", "csv"},
                                                      {"export", path, "--format", "jsonl"},
                                                      {"export", path, "--format", "sql"}})
    {
        std::string const text = shown(arguments, 200, {{"NO_COLOR", "1"}});
        EXPECT_THAT(text, Not(HasSubstr(std::string(1, kEscape)))) << arguments[0];
        EXPECT_THAT(text, Not(HasSubstr("\a"))) << arguments[0];
        EXPECT_THAT(text, Not(HasSubstr("\u009b"))) << arguments[0];
    }
    // The library's message about such a cell does not act on the terminal either.
    RawDb(path).exec("UPDATE FdbFaultTbl SET FaultCode = " + hostile);
    Setting setting;
    setting.errorColumns = 80;
    std::string const errors = runTool({"list", path}, setting).errors;
    EXPECT_THAT(errors, HasSubstr("\\x1b]0;title\\x07\\u009b2J\\r"));
    EXPECT_THAT(errors, Not(HasSubstr(std::string(1, kEscape))));
    EXPECT_THAT(runTool({"list", path, "--\x1b]0;title\a"}, setting).errors, Not(HasSubstr(std::string(1, kEscape))));
}

TEST_F(TerminalTest, WithoutUtf8OnlyAsciiIsSent)
{
    insertFault("Description,ModuleName", "'\u00db2J', '\u6e29'");
    for (std::vector<std::string> const& arguments : {std::vector<std::string>{"list", path},
                                                      {"list", path, "--json"},
                                                      {"show", path, "4"},
                                                      {"export", path, "--format", "csv"},
                                                      {"watch", path, "--last", "1"}})
    {
        Setting setting;
        setting.outputColumns = 200;
        setting.environment["LANG"] = "C";
        ToolProcess process(arguments, setting);
        std::string text;
        if (arguments[0] == "watch")
        {
            text = process.readLine().value_or("");
            process.signal(SIGINT);
        }
        EXPECT_EQ(process.finish(), 0);
        text += process.output;
        EXPECT_NE(text, "");
        EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; }))
            << arguments[0];
    }
}

TEST_F(TerminalTest, JsonStaysJson)
{
    insertFault("Description", "char(127) || char(155) || char(917505) || char(27)");
    EXPECT_THAT(shown({"list", path, "--json"}, 80),
                HasSubstr("\"Description\":\"\\u007f\\u009b\\udb40\\udc01\\u001b\""));
}

TEST_F(TerminalTest, ProgressIsShownOnStandardErrorAndErased)
{
    Setting const setting = manyFaults();
    Outcome const outcome = runTool({"record", path, "--stdin"}, setting);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "4\n5\n6\n");
    EXPECT_THAT(outcome.errors, HasSubstr("recording 1 line"));
    EXPECT_THAT(outcome.errors, testing::EndsWith("\r\x1b[K"));
}

TEST_F(TerminalTest, ProgressIsNotShownWithNoColor)
{
    Setting setting = manyFaults();
    setting.environment["NO_COLOR"] = "1";
    EXPECT_EQ(runTool({"record", path, "--stdin"}, setting).errors, "");
}

TEST_F(TerminalTest, ExportAndBackupShowProgressWhenTheirResultGoesElsewhere)
{
    Setting setting;
    setting.errorColumns = 80;
    EXPECT_THAT(runTool({"export", path, "--format", "csv"}, setting).errors, HasSubstr("exporting ["));
    EXPECT_THAT(runTool({"summary", path}, setting).errors, HasSubstr("reading ["));
    setting.outputColumns = 80;
    EXPECT_EQ(runTool({"export", path, "--format", "csv"}, setting).errors, "");
    RawDb(path).exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 20000) INSERT INTO "
                     "FdbFaultTbl(Description) SELECT 'some text of some length, so that there are many pages' FROM n");
    EXPECT_THAT(runTool({"backup", path, dir.file("copy.db")}, setting).errors, HasSubstr("copying ["));
}

TEST_F(TerminalTest, WithoutATerminalThereIsNoDecoration)
{
    for (std::string const command : {"list", "stats", "summary", "check"})
    {
        std::string const text = output({command, path});
        EXPECT_THAT(text, Not(HasSubstr(std::string(1, kEscape)))) << command;
        EXPECT_THAT(text, Not(HasSubstr("\u2588"))) << command;
    }
}

TEST_F(TerminalTest, WithoutATerminalNothingIsShortened)
{
    std::string const text(300, 'x');
    output({"record", path, "--code", "FC_BUS_OFF", "--description", text});
    EXPECT_THAT(output({"list", path}), HasSubstr(text));
}
