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

    /// Offset of a byte in the last page, which holds faults.
    long long faultPage() const
    {
        return static_cast<long long>(std::filesystem::file_size(path)) - 100;
    }
};

} // namespace

TEST_F(FailingReadTest, ReadingCommandsNameTheMedium)
{
    long long const offset = faultPage();
    expectFailedRead({"list", path}, offset);
    expectFailedRead({"summary", path}, offset);
    expectFailedRead({"backup", path, dir.file("copy.db")}, offset);
}

TEST_F(FailingReadTest, TheFirstPageIsNoException)
{
    expectFailedRead({"list", path}, 90);
    expectFailedRead({"record", path, "--code", "1"}, 90);
}
