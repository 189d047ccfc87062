// Reading a file whose medium fails to return a part of it: this is no damage of the content.

#include "ToolProcess.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace
{

using testing::HasSubstr;
using testing::Not;

class FailingReadTest : public ToolTest
{
protected:
    FailingReadTest()
    {
        createSample();
        insertFaults(300);
    }

    void SetUp() override
    {
#ifndef FIRAIM_TEST_FAILING_FILES
        GTEST_SKIP() << "no library can be loaded before the run time of a sanitizer";
#endif
    }

    /// The program reads a medium that fails at the byte `offset` of the file `name`.
    static Setting failingAt(std::string const& name, long long offset)
    {
        Setting setting;
        setting.environment = {{"FIRAIM_TEST_UNREADABLE", name + ':' + std::to_string(offset)}};
#ifdef FIRAIM_TEST_FAILING_FILES
        setting.preloaded = FIRAIM_TEST_FAILING_FILES;
#endif
        return setting;
    }

    void expectFailedRead(std::vector<std::string> const& arguments, long long offset)
    {
        Outcome const outcome = runTool(arguments, failingAt("/faults.db", offset));
        EXPECT_EQ(outcome.status, 3) << arguments[0];
        EXPECT_THAT(outcome.errors, HasSubstr("the medium failed to return a part of the file")) << arguments[0];
        EXPECT_THAT(outcome.errors, Not(HasSubstr("malformed"))) << arguments[0];
    }

    /// Expects that the command prints the oldest fault, and names the medium for the newest.
    void expectRest(std::vector<std::string> const& arguments, std::string const& oldest)
    {
        Outcome const outcome = runTool(arguments, failingAt("/faults.db", faultPage()));
        EXPECT_EQ(outcome.status, 1) << arguments[0];
        EXPECT_THAT(outcome.output, HasSubstr(oldest)) << arguments[0];
        EXPECT_THAT(outcome.errors, HasSubstr("cannot be read: the medium failed to return page ")) << arguments[0];
        EXPECT_THAT(outcome.errors, Not(HasSubstr("damaged"))) << arguments[0];
    }

    void expectMediumFound(std::vector<std::string> const& arguments)
    {
        Outcome const outcome = runTool(arguments, failingAt("/faults.db", faultPage()));
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.output, HasSubstr("\nmedium: faults "));
        EXPECT_THAT(outcome.output, HasSubstr("\nwhat to do (medium): the storage fails"));
        EXPECT_THAT(outcome.output, Not(HasSubstr("integrity")));
        EXPECT_THAT(outcome.output, Not(HasSubstr("lost: ")));
    }

    /// Offset of a byte in the last page, which holds faults.
    long long faultPage() const
    {
        return static_cast<long long>(std::filesystem::file_size(path)) - 100;
    }
};

} // namespace

TEST_F(FailingReadTest, ReadingCommandsShowTheRestAndNameTheMedium)
{
    expectRest({"list", path}, "FC_BUS_OFF");
    expectRest({"export", path, "--format", "csv"}, "\n1,");
    expectRest({"summary", path}, "Faults ");
}

TEST_F(FailingReadTest, AMediumIsReadAroundInLargeFilesToo)
{
    insertFault("Description", "hex(zeroblob(3000000))");
    insertFaults(300);
    ASSERT_GT(std::filesystem::file_size(path), 5U << 20U);
    expectRest({"list", path}, "FC_BUS_OFF");
    expectRest({"export", path, "--format", "sql"}, "(1,");
}

TEST_F(FailingReadTest, CheckFindsTheMediumAndNoDamage)
{
    expectMediumFound({"check", path});
    expectMediumFound({"check", path, "--quick"});
}

TEST_F(FailingReadTest, BackupNamesTheMedium)
{
    expectFailedRead({"backup", path, dir.file("copy.db")}, faultPage());
}

TEST_F(FailingReadTest, TheFirstPageIsNoException)
{
    expectFailedRead({"list", path}, 90);
    expectFailedRead({"record", path, "--code", "1"}, 90);
}
