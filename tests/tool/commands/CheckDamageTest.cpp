// firaim check: damaged files, and its copy of a file.

#include "DamagedFixture.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <thread>

namespace
{

using testing::HasSubstr;

class CheckDamageTest : public DamagedFile
{
protected:
    /// The output of `check`; expects findings, and that the file stays as it is.
    std::string findings(std::vector<std::string> const& options = {}, Setting const& setting = {})
    {
        std::string const before = readFile(path);
        std::vector<std::string> arguments = {"check", path};
        arguments.insert(arguments.end(), options.begin(), options.end());
        Outcome const outcome = runTool(arguments, setting);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(readFile(path), before);
        m_errors = outcome.errors;
        return outcome.output;
    }
    std::string const& errors() const { return m_errors; }
    /// A setting with an empty folder for temporary files.
    Setting withFolder(std::string const& name) const
    {
        std::filesystem::create_directory(dir.file(name));
        Setting setting;
        setting.environment["TMPDIR"] = dir.file(name);
        return setting;
    }

private:
    std::string m_errors;
};

} // namespace

TEST_F(CheckDamageTest, FindsThatAFileIsCutOff)
{
    cutOff(10 * kPageSize + 100);
    std::string const output = findings();
    EXPECT_THAT(output, testing::StartsWith("pages: the file should have " + std::to_string(pageCount()) +
                                            " pages of 4,096 bytes and has 10 and a part of one\n"));
    EXPECT_THAT(output, HasSubstr("lie outside of the file\n"));
    EXPECT_THAT(output, testing::ContainsRegex("lost: faults [0-9]+ to 600 cannot be read: page [0-9]+ and "));
    EXPECT_THAT(output, HasSubstr("whole: FdbFaultStatisticTbl can be read whole: 1 row\n"));
    EXPECT_THAT(output, HasSubstr("what to do (pages): 'firaim rescue FILE NEW'"));
    EXPECT_EQ(errors(), "");
}

TEST_F(CheckDamageTest, NamesTheDamagedPageItsKeysAndTheTablesThatAreWhole)
{
    damagePage(10);
    std::string const output = findings();
    EXPECT_THAT(output, HasSubstr("integrity: Page 10: "));
    EXPECT_THAT(output, testing::ContainsRegex("lost: faults [0-9]+ to [0-9]+ cannot be read: page 10 is damaged\n"));
    EXPECT_THAT(output, HasSubstr("whole: FdbVersionTbl can be read whole: 1 row\n"));
    EXPECT_THAT(output, testing::Not(HasSubstr("count: ")));
    EXPECT_THAT(findings({"--quick"}), HasSubstr("page 10 is damaged\n"));
}

TEST_F(CheckDamageTest, NamesStartUpsOfWhichNoFaultCanBeRead)
{
    // Each fault of its own start-up.
    RawDb(path).exec("UPDATE FdbFaultTbl SET RdbStartupId = EntryId");
    damagePage(10);
    EXPECT_THAT(findings(), testing::ContainsRegex("lost: no fault of start-up [0-9]+ to [0-9]+ can be read\n"));
}

TEST_F(CheckDamageTest, FindsThatTheFirstPageIsLost)
{
    damagePage(1);
    EXPECT_THAT(findings(), testing::StartsWith("pages: page 1 is damaged"));
}

TEST_F(CheckDamageTest, FindsDamageInAnyPage)
{
    for (std::size_t number = 1; number <= pageCount(); ++number)
    {
        SCOPED_TRACE(number);
        damagePage(number);
        EXPECT_THAT(findings(), HasSubstr("firaim rescue FILE NEW"));
        overwritePage(number, page(number));
    }
}

TEST_F(CheckDamageTest, HasNothingToJudgeWithoutAPage)
{
    cutOff(3000);
    Outcome const outcome = runTool({"check", path});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("no page of it can be read"));
    writeFile(path, std::string(20000, 'x'));
    EXPECT_EQ(runTool({"check", path}).status, 3);
}

TEST_F(CheckDamageTest, SaysThatThereIsNoRoomForACopyAndChecksTheFileItself)
{
    Setting setting;
    setting.environment["TMPDIR"] = dir.file("nowhere");
    Outcome const sound = runTool({"check", path}, setting);
    EXPECT_EQ(sound.status, 0);
    EXPECT_EQ(std::count(sound.errors.begin(), sound.errors.end(), '\n'), 1);
    EXPECT_THAT(sound.errors, HasSubstr("there is no room for a copy ("));
    damagePage(10);
    EXPECT_THAT(findings({}, setting), HasSubstr("page 10 is damaged\n"));
}

TEST_F(CheckDamageTest, RemovesItsCopy)
{
    Setting const setting = withFolder("temporary");
    EXPECT_EQ(runTool({"check", path}, setting).status, 0);
    EXPECT_TRUE(std::filesystem::is_empty(dir.file("temporary")));
    damagePage(10);
    static_cast<void>(findings({}, setting));
    EXPECT_TRUE(std::filesystem::is_empty(dir.file("temporary")));
}

TEST_F(CheckDamageTest, ASignalRemovesItsCopy)
{
    // The findings fill the pipe, so that the program does not end by itself.
    RawDb(path).exec("UPDATE FdbFaultTbl SET Status = 'perhaps', Parameter = NULL, TimeZone = NULL");
    Setting const setting = withFolder("temporary");
    ToolProcess process({"check", path, "--json"}, setting);
    while (std::filesystem::is_empty(dir.file("temporary")))
    {
        std::this_thread::yield();
    }
    process.signal(SIGTERM);
    EXPECT_EQ(process.finish(), 128 + SIGTERM);
    EXPECT_TRUE(std::filesystem::is_empty(dir.file("temporary")));
}

TEST_F(CheckDamageTest, QuickMakesNoCopy)
{
    Setting setting;
    setting.environment["TMPDIR"] = dir.file("nowhere");
    EXPECT_EQ(output({"check", path, "--quick"}, setting), path + ": nothing is wrong\n");
}

TEST_F(CheckDamageTest, NamesAWriteAheadLogThatIsNotBesideTheFile)
{
    RawDb(path).exec("PRAGMA journal_mode=WAL");
    EXPECT_THAT(output({"check", path}),
                HasSubstr("log: the file is in write-ahead-log mode, and no log is beside it"));
}
