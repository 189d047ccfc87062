#include "TestSupport.h"

#include <db/internal/Folder.h>

using folder::absolutePath;

TEST(Folder, AbsolutePathBeginsWithTheCurrentFolder)
{
    TempDir const dir;
    std::string const real = std::filesystem::canonical(dir.path()).string();
    CurrentFolder const current(dir.path());
    for (std::string const path : {"faults.db", "a/faults.db", "./faults.db", "../faults.db", "folder/", ":memory:"})
    {
        EXPECT_EQ(absolutePath(path), real + '/' + path);
    }
}

TEST(Folder, AbsolutePathInTheRootHasOneSlash)
{
    CurrentFolder const current("/");
    EXPECT_EQ(absolutePath("faults.db"), "/faults.db");
}

TEST(Folder, AbsolutePathOfAnAbsoluteOrEmptyPathIsThatPath)
{
    for (std::string const path : {"", "/", "/faults.db", "/a/../faults.db", "//faults.db/"})
    {
        EXPECT_EQ(absolutePath(path), path);
    }
}

TEST(Folder, AbsolutePathKeepsAZeroByte)
{
    std::string const path = std::string("faults.db") + '\0' + "tail";
    std::string const absolute = absolutePath(path);
    EXPECT_EQ(absolute.substr(absolute.size() - path.size() - 1), '/' + path);
}

TEST(Folder, AbsolutePathInARemovedFolderIsThePathItself)
{
    TempDir const dir;
    std::string const removed = dir.file("removed");
    ASSERT_TRUE(std::filesystem::create_directory(removed));
    CurrentFolder const current(removed);
    ASSERT_TRUE(std::filesystem::remove(removed));
    EXPECT_EQ(absolutePath("faults.db"), "faults.db");
}
