// Behaviour common to all commands: arguments, help, exit status, and unusable files.

#include "ToolProcess.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace
{

using testing::HasSubstr;
using testing::StartsWith;

/// Every command that takes a database, with its other required arguments.
std::vector<std::vector<std::string>> const kCommandsOnFiles = {
    {"backup", "FILE", "FILE.copy"},
    {"check", "FILE"},
    {"clear", "FILE", "--code", "FC_BUS_OFF"},
    {"export", "FILE", "--format", "csv"},
    {"journal", "FILE"},
    {"journal", "FILE", "wal"},
    {"list", "FILE"},
    {"record", "FILE", "--code", "FC_BUS_OFF"},
    {"record", "FILE", "--stdin"},
    {"recover", "FILE"},
    {"renumber", "FILE", "--from", "1", "--to", "2"},
    {"rescue", "FILE", "FILE.new"},
    {"show", "FILE", "1"},
    {"stats", "FILE"},
    {"summary", "FILE"},
    {"trim", "FILE", "--keep", "1"},
    {"trim", "FILE", "--keep", "1", "--dry-run"},
    {"watch", "FILE"},
};

std::vector<std::string> withFile(std::vector<std::string> command, std::string const& path)
{
    for (std::string& argument : command)
    {
        if (argument.rfind("FILE", 0) == 0)
        {
            argument = path + argument.substr(4);
        }
    }
    return command;
}

class CommandLineTest : public ToolTest
{
protected:
    std::size_t filesInFolder() const
    {
        std::filesystem::directory_iterator const files(dir.path());
        return static_cast<std::size_t>(std::distance(begin(files), end(files)));
    }

    void expectRefused(std::string const& file, std::string const& reason)
    {
        for (auto const& command : kCommandsOnFiles)
        {
            Outcome const outcome = runTool(withFile(command, file));
            EXPECT_EQ(outcome.status, 3) << command[0];
            EXPECT_EQ(outcome.output, "") << command[0];
            EXPECT_THAT(outcome.errors, HasSubstr(reason)) << command[0];
        }
    }
};

} // namespace

TEST_F(CommandLineTest, WithoutACommandIsBadUsage)
{
    Outcome const outcome = runTool({});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, HasSubstr("--help"));
}

TEST_F(CommandLineTest, BadUsageIsReportedOnStandardErrorWithStatus2)
{
    create();
    std::vector<std::vector<std::string>> const bad = {
        {"nonsense"},
        {"list"},
        {"list", path, "--nonsense"},
        {"list", path, "--last", "many"},
        {"list", path, "--last", "-1"},
        {"list", path, "--last", ""},
        {"list", path, "--code", ""},
        {"list", path, "--since", ""},
        {"list", path, "--code", "FC_NONSENSE"},
        {"list", path, "--since", "yesterday"},
        {"list", path, "--time-unit", "h"},
        {"list", path, "--time-unit", "1"},
        {"list", path, "--after", "x"},
        {"watch", path, "--last", "-1"},
        {"show", path},
        {"show", path, "x"},
        {"stats", path, "--sort", "nonsense"},
        {"record", path},
        {"record", path, "--code", "FC_BUS_OFF", "--stdin"},
        {"record", path, "--code", "4294967296"},
        {"record", path, "--code", "FC_BUS_OFF", "--time", "2031-02-30"},
        {"record", path, "--code", "FC_BUS_OFF", "--time", "1969-12-31"},
        {"clear", path},
        {"export", path},
        {"export", path, "--format", "xml"},
        {"export", path, "--format", "csv", "--table", "all"},
        {"export", path, "--format", "csv", "--table", "statistics", "--active"},
        {"create", path, "--journal", "none"},
        {"journal", path, "none"},
        {"journal", path, "wal", "--json"},
        {"renumber", path, "--from", "1"},
        {"renumber", path, "--from", "1", "--to", "1"},
        {"trim", path},
        {"trim", path, "--keep", "1", "--before", "2031-01-01"},
        {"trim", path, "--before", "soon"},
        {"backup", path},
        {"rescue", path},
        {"rescue", path, path},
        {"rescue", path, path + "-wal"},
    };
    for (auto const& arguments : bad)
    {
        Outcome const outcome = runTool(arguments);
        std::string const said = testing::PrintToString(arguments);
        EXPECT_EQ(outcome.status, 2) << said;
        EXPECT_EQ(outcome.output, "") << said;
        EXPECT_NE(outcome.errors, "") << said;
    }
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl"), "0");
}

TEST_F(CommandLineTest, HelpNamesEveryCommandAndTheExitStatus)
{
    std::string const help = output({"--help"});
    for (auto const& command : kCommandsOnFiles)
    {
        EXPECT_THAT(help, HasSubstr("\n  " + command[0] + " ")) << command[0];
    }
    EXPECT_THAT(help, HasSubstr("Exit status: 0 done; 1 "));
}

TEST_F(CommandLineTest, HelpOfEachCommandHasAnExample)
{
    std::vector<std::vector<std::string>> commands = kCommandsOnFiles;
    commands.push_back({"create"});
    commands.push_back({"codes"});
    for (auto const& command : commands)
    {
        EXPECT_THAT(output({command[0], "--help"}), HasSubstr("\nExample:\n  firaim " + command[0])) << command[0];
    }
}

TEST_F(CommandLineTest, HelpFitsIntoATerminalOf80Columns)
{
    std::vector<std::vector<std::string>> commands = kCommandsOnFiles;
    commands.push_back({"create"});
    commands.push_back({"codes"});
    std::string help = output({"--help"});
    for (auto const& command : commands)
    {
        help += output({command[0], "--help"});
    }
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);)
    {
        EXPECT_LE(line.size(), 80u) << line;
    }
}

TEST_F(CommandLineTest, VersionIsThatOfTheLibrary)
{
    EXPECT_EQ(output({"--version"}), "firaim " FIRAIM_TEST_VERSION "\n");
}

TEST_F(CommandLineTest, AMistypedFileNameIsRefusedAndCreatesNothing)
{
    expectRefused(dir.file("mistyped.db"), "mistyped.db: No such file or directory");
    EXPECT_EQ(filesInFolder(), 0u);
}

TEST_F(CommandLineTest, AFolderIsRefused)
{
    expectRefused(dir.path(), "is a folder");
}

TEST_F(CommandLineTest, AFifoIsRefusedWithoutBlocking)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    expectRefused(path, "is no regular file");
}

TEST_F(CommandLineTest, AFileThatIsNoDatabaseIsRefusedAndStaysAsItIs)
{
    std::string const bytes(5000, 'x');
    writeFile(path, bytes);
    expectRefused(path, "file is not a database");
    EXPECT_EQ(readFile(path), bytes);
    EXPECT_EQ(filesInFolder(), 1u);
}

TEST_F(CommandLineTest, ADatabaseOfSomethingElseIsRefusedByAllButCheck)
{
    RawDb(path).exec("CREATE TABLE notes(text)");
    for (auto const& command : kCommandsOnFiles)
    {
        Outcome const outcome = runTool(withFile(command, path));
        EXPECT_EQ(outcome.status, command[0] == "check" ? 1 : 3) << command[0];
        EXPECT_THAT(outcome.errors + outcome.output, HasSubstr("FdbFaultTbl")) << command[0];
    }
    EXPECT_EQ(value("SELECT count(*) FROM sqlite_master"), "1");
}

TEST_F(CommandLineTest, AnEmptyFileIsRefusedAndStaysEmpty)
{
    writeFile(path, "");
    Outcome const outcome = runTool({"record", path, "--code", "FC_BUS_OFF"});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("no table FdbFaultTbl"));
    EXPECT_EQ(readFile(path), "");
}

TEST_F(CommandLineTest, AViewInPlaceOfATableIsRefusedBeforeItIsQueried)
{
    create();
    RawDb(path).exec("DROP TABLE FdbFaultTbl; CREATE VIEW FdbFaultTbl AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL "
                     "SELECT i + 1 FROM n) SELECT i AS EntryId FROM n");
    Outcome const outcome = runTool({"list", path});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("FdbFaultTbl is a view"));
}

TEST_F(CommandLineTest, NamesThatSqliteTreatsSpeciallyAreFileNames)
{
    std::string const odd = dir.file("file:a.db?mode=memory%20#x'y");
    output({"create", odd});
    EXPECT_EQ(output({"record", odd, "--code", "FC_BUS_OFF"}), "1\n");
    EXPECT_THAT(output({"list", odd, "--json"}), HasSubstr("\"EntryId\":1"));
    EXPECT_TRUE(exists(odd));
}

TEST_F(CommandLineTest, AnotherFormatVersionCanBeReadButNotWritten)
{
    createSample();
    RawDb(path).exec("UPDATE FdbVersionTbl SET Version = '2.0.0'");
    Outcome const list = runTool({"list", path});
    EXPECT_EQ(list.status, 0);
    EXPECT_THAT(list.output, HasSubstr("FC_SENSOR_TIMEOUT"));
    EXPECT_THAT(list.errors, HasSubstr("format version 2.0.0 is not 1.0.0"));
    for (std::vector<std::string> const& arguments :
         {std::vector<std::string>{"record", path, "--code", "FC_BUS_OFF"}, {"trim", path, "--keep", "0"}})
    {
        Outcome const outcome = runTool(arguments);
        EXPECT_EQ(outcome.status, 3);
        EXPECT_THAT(outcome.errors, HasSubstr("only files of version 1.0.0 are written to"));
    }
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl"), "3");
}

TEST_F(CommandLineTest, TheLibrarysLogLinesGoToStandardError)
{
    createSample();
    RawDb(path).exec("UPDATE FdbFaultTbl SET LoggerUpTime = 'x' WHERE EntryId = 3");
    Outcome const outcome = runTool({"list", path, "--last", "1", "--json"});
    EXPECT_THAT(outcome.output, StartsWith("[\n{\"EntryId\":3,"));
    EXPECT_THAT(outcome.errors, StartsWith("[ERROR] Casting value x\n"));
}

TEST_F(CommandLineTest, OutputThatCannotBeWrittenIsAFailure)
{
    createSample();
    int const status =
        std::system(("'" FIRAIM_TEST_TOOL "' list '" + path + "' >/dev/full 2>'" + dir.file("err") + "'").c_str());
    EXPECT_EQ(WEXITSTATUS(status), 3);
    EXPECT_THAT(readFile(dir.file("err")), HasSubstr("cannot write to standard output"));
}
