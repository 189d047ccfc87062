// firaim create: the new file, and files that it must not overwrite.

#include "RecordFixture.h"

#include <gmock/gmock.h>

#include <unistd.h>

namespace
{

using testing::HasSubstr;

using CreateTest = ToolTest;

} // namespace

TEST_F(CreateTest, MakesAFileThatTheLibraryAcceptsAndCheckApproves)
{
    EXPECT_EQ(output({"create", path}), "");
    EXPECT_EQ(output({"check", path}), path + ": nothing is wrong\n");
}

TEST_F(CreateTest, RefusesAnExistingFileWithoutForce)
{
    createSample();
    std::string const before = readFile(path);
    Outcome const outcome = runTool({"create", path});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("exists already; --force replaces it"));
    EXPECT_EQ(readFile(path), before);
    output({"create", path, "--force"});
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl"), "0");
}

TEST_F(CreateTest, NeverReplacesAFolderOrALink)
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

TEST_F(CreateTest, LeavesNoFileWhenItFails)
{
    Outcome const outcome = runTool({"create", dir.file("no/folder.db")});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("cannot be created"));
}
