// Opening each kind of file that a path can name, with and without journals beside it.

#include "RecorderFixtures.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>

namespace
{

using namespace firaim;
using testing::ElementsAre;
using testing::HasSubstr;

namespace fs = std::filesystem;

class FaultRecorderPathTest : public FaultRecorderTest
{
protected:
    /// Expects that the path is refused, that no file is created, and that a good path can be opened afterwards.
    void expectBadPath(std::string const& name)
    {
        std::vector<std::string> const before = names();
        EXPECT_EQ(recorder.open(name), HISTORY_BAD_PATH) << name;
        EXPECT_NE(recorder.lastProblem(), "");
        EXPECT_EQ(names(), before);
        EXPECT_EQ(recorder.open(dir.file("good.db")), HISTORY_OK) << recorder.lastProblem();
    }

    /// The names of all files in the folder, sorted.
    std::vector<std::string> names() const
    {
        std::vector<std::string> result;
        for (auto const& entry : fs::directory_iterator(dir.path()))
        {
            result.push_back(entry.path().filename().string());
        }
        std::sort(result.begin(), result.end());
        return result;
    }

    /// The names of the set-aside copies in the folder.
    std::vector<std::string> copies() const
    {
        std::vector<std::string> result;
        for (std::string const& name : names())
        {
            if (name.find(".aside-") != std::string::npos)
            {
                result.push_back(name);
            }
        }
        return result;
    }
};

TEST_F(FaultRecorderPathTest, FolderIsABadPath)
{
    ASSERT_TRUE(fs::create_directory(path));
    expectBadPath(path);
    EXPECT_TRUE(fs::is_empty(path));
}

TEST_F(FaultRecorderPathTest, NameOfAFolderIsABadPathWhetherItExistsOrNot)
{
    createWithFacade();
    expectBadPath(path + '/');
    ASSERT_EQ(recorder.close(), HISTORY_OK);
    ASSERT_EQ(std::remove(path.c_str()), 0);
    EXPECT_EQ(recorder.open(path + '/'), HISTORY_BAD_PATH);
    EXPECT_FALSE(exists(path));
}

TEST_F(FaultRecorderPathTest, DeviceIsABadPath)
{
    expectBadPath("/dev/null");
}

TEST_F(FaultRecorderPathTest, PipeIsABadPathAndDoesNotBlock)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    expectBadPath(path);
}

TEST_F(FaultRecorderPathTest, DanglingLinkIsABadPath)
{
    fs::create_symlink(dir.file("nowhere"), path);
    expectBadPath(path);
}

TEST_F(FaultRecorderPathTest, LinkToItselfIsABadPath)
{
    fs::create_symlink(path, path);
    expectBadPath(path);
}

TEST_F(FaultRecorderPathTest, EmptyNameIsABadPath)
{
    expectBadPath("");
}

TEST_F(FaultRecorderPathTest, NameWithAZeroByteIsABadPath)
{
    expectBadPath(path + std::string(1, '\0') + "tail");
    EXPECT_FALSE(exists(path));
}

TEST_F(FaultRecorderPathTest, LinkToAFileIsThatFile)
{
    fs::create_symlink(path, dir.file("link"));
    createWithFacade();
    ASSERT_EQ(recorder.open(dir.file("link")), HISTORY_OK) << recorder.lastProblem();
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK);
    EXPECT_EQ(value(kCountOfFaults), "1");
}

TEST_F(FaultRecorderPathTest, NameThatSqliteTreatsSpeciallyNamesAFile)
{
    CurrentFolder const folder(dir.path());
    for (std::string const name : {":memory:", "file:a?mode=memory", "file:b"})
    {
        SCOPED_TRACE(name);
        FaultRecorder another;
        ASSERT_EQ(another.open(name), HISTORY_OK) << another.lastProblem();
        EXPECT_EQ(another.record(eventOf(1)).result, HISTORY_OK);
        EXPECT_EQ(RawDb(dir.file(name)).value(kCountOfFaults), "1");
    }
}

TEST_F(FaultRecorderPathTest, MissingFolderFailsAndIsNotCreated)
{
    EXPECT_EQ(recorder.open(dir.file("no/faults.db")), HISTORY_FAILED);
    EXPECT_THAT(recorder.lastProblem(), HasSubstr(dir.file("no/faults.db")));
    EXPECT_THAT(names(), ElementsAre());
    ASSERT_TRUE(fs::create_directory(dir.file("no")));
    EXPECT_EQ(recorder.open(dir.file("no/faults.db")), HISTORY_OK) << "the folder exists now";
}

TEST_F(FaultRecorderPathTest, FileWithoutWritePermissionFailsAndIsLeftUnchanged)
{
    createWithFacade();
    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
    std::string const before = readFile(path);
    {
        WithoutRoot const user;
        EXPECT_EQ(recorder.open(path), HISTORY_FAILED);
        EXPECT_THAT(recorder.lastProblem(), HasSubstr("Permission denied"));
    }
    EXPECT_TRUE(readFile(path) == before);
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    EXPECT_EQ(recorder.open(path), HISTORY_OK) << "once it may";
}

TEST_F(FaultRecorderPathTest, FolderWithoutWritePermissionFails)
{
    ASSERT_EQ(chmod(dir.path().c_str(), 0555), 0);
    {
        WithoutRoot const user;
        EXPECT_EQ(recorder.open(path), HISTORY_FAILED);
    }
    EXPECT_THAT(names(), ElementsAre());
    ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
    EXPECT_EQ(recorder.open(path), HISTORY_OK) << "once it may";
}

TEST_F(FaultRecorderPathTest, JournalOfAMissingFileIsCopiedFirst)
{
    std::string const bytes = "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7" + std::string(100000, 'j');
    writeFile(path + "-journal", bytes);
    open();
    ASSERT_EQ(copies().size(), 1U);
    EXPECT_THAT(copies()[0], testing::MatchesRegex("faults\\.db-journal\\.aside-....-..-..-1"));
    EXPECT_TRUE(readFile(dir.file(copies()[0])) == bytes);
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK);
}

TEST_F(FaultRecorderPathTest, LogOfAnEmptyFileIsCopiedFirst)
{
    std::string const bytes = "\x37\x7f\x06\x82" + std::string(5000, 'w');
    writeFile(path, "");
    writeFile(path + "-wal", bytes);
    open();
    ASSERT_EQ(copies().size(), 1U);
    EXPECT_THAT(copies()[0], testing::MatchesRegex("faults\\.db-wal\\.aside-....-..-..-1"));
    EXPECT_TRUE(readFile(dir.file(copies()[0])) == bytes);
}

TEST_F(FaultRecorderPathTest, SecondCopyOfADayLeavesTheFirst)
{
    for (std::string const bytes : {"first", "second"})
    {
        std::remove(path.c_str());
        writeFile(path + "-journal", bytes);
        FaultRecorder another;
        ASSERT_EQ(another.open(path), HISTORY_OK) << another.lastProblem();
    }
    ASSERT_EQ(copies().size(), 2U);
    EXPECT_EQ(readFile(dir.file(copies()[0])), "first");
    EXPECT_EQ(readFile(dir.file(copies()[1])), "second");
}

TEST_F(FaultRecorderPathTest, JournalBesideTheEmptyFileOfALinkIsCopiedFirst)
{
    writeFile(path, "");
    writeFile(path + "-journal", "journal");
    fs::create_symlink(path, dir.file("link"));
    ASSERT_EQ(recorder.open(dir.file("link")), HISTORY_OK) << recorder.lastProblem();
    ASSERT_EQ(copies().size(), 1U);
    EXPECT_EQ(readFile(dir.file(copies()[0])), "journal");
}

TEST_F(FaultRecorderPathTest, JournalThatWasRolledBackIsNotCopied)
{
    writeFile(path + "-journal", std::string(512, '\0'));
    open();
    EXPECT_THAT(copies(), ElementsAre());
}

TEST_F(FaultRecorderPathTest, JournalThatCannotBeCopiedIsLeftAndNothingIsCreated)
{
    writeFile(path + "-journal", "journal");
    ASSERT_EQ(chmod((path + "-journal").c_str(), 0), 0);
    ASSERT_EQ(chmod(dir.path().c_str(), 0777), 0);
    {
        WithoutRoot const user;
        EXPECT_EQ(recorder.open(path), HISTORY_FAILED);
    }
    EXPECT_THAT(names(), ElementsAre("faults.db-journal"));
    ASSERT_EQ(chmod((path + "-journal").c_str(), 0600), 0);
    EXPECT_EQ(readFile(path + "-journal"), "journal");
    EXPECT_EQ(recorder.open(path), HISTORY_OK) << recorder.lastProblem();
}

TEST_F(FaultRecorderPathTest, WaitingBesideTheJournalOfAMissingFileEndsWhenCancelled)
{
    writeFile(path + "-journal", "journal");
    RecorderOptions options;
    options.isCancelled = [] { return true; };
    EXPECT_EQ(recorder.open(path, options), HISTORY_CANCELLED);
    EXPECT_THAT(names(), ElementsAre("faults.db-journal"));
}

TEST_F(FaultRecorderPathTest, LogThatCannotBeReadIsLeftAndNothingIsCreated)
{
    fs::create_symlink("/proc/self/mem", path + "-wal"); // Reading at offset 0 of this file fails.
    EXPECT_EQ(recorder.open(path), HISTORY_FAILED);
    EXPECT_THAT(recorder.lastProblem(), HasSubstr("faults.db-wal: cannot be read"));
    EXPECT_THAT(recorder.lastProblem(), HasSubstr(std::strerror(EIO)));
    EXPECT_THAT(names(), ElementsAre("faults.db-wal"));
    ASSERT_EQ(std::remove((path + "-wal").c_str()), 0);
    EXPECT_EQ(recorder.open(path), HISTORY_OK) << recorder.lastProblem();
}

TEST_F(FaultRecorderPathTest, FileThatWasRemovedWhileOpenFailsOneCallAndIsCreatedAnew)
{
    open();
    ASSERT_EQ(recorder.raise(eventOf(1)).result, HISTORY_OK);
    ASSERT_EQ(std::remove(path.c_str()), 0);
    EXPECT_EQ(recorder.record(eventOf(2)).result, HISTORY_FAILED);
    EXPECT_THAT(recorder.lastProblem(), HasSubstr(path));
    EXPECT_EQ(recorder.raise(eventOf(1)).result, HISTORY_OK) << "in the new file the triple is not active";
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1");
    EXPECT_EQ(statistic(1, "OccurenceCnt"), "1");
}

TEST_F(FaultRecorderPathTest, FileWithALogThatWasRemovedWhileOpenFailsOneCallAndIsCreatedAnew)
{
    createWithFacade();
    exec("PRAGMA journal_mode = WAL");
    open();
    ASSERT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK);
    for (char const* const suffix : {"", "-wal", "-shm"})
    {
        ASSERT_EQ(std::remove((path + suffix).c_str()), 0);
    }
    EXPECT_EQ(recorder.record(eventOf(2)).result, HISTORY_FAILED);
    EXPECT_THAT(recorder.lastProblem(), HasSubstr("removed or renamed while it was open"));
    EXPECT_EQ(recorder.record(eventOf(3)).result, HISTORY_OK);
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "3");
}

TEST_F(FaultRecorderPathTest, RelativePathNamesTheSameFileInAnotherFolder)
{
    std::string const other = dir.file("other");
    ASSERT_TRUE(fs::create_directory(other));
    CurrentFolder const here(dir.file(""));
    ASSERT_EQ(recorder.open("faults.db"), HISTORY_OK);
    ASSERT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK);
    CurrentFolder const there(other);
    ASSERT_EQ(std::rename(path.c_str(), (path + "2").c_str()), 0);
    EXPECT_EQ(recorder.record(eventOf(2)).result, HISTORY_FAILED) << "the file is missing";
    EXPECT_THAT(recorder.lastProblem(), HasSubstr("faults.db: "));
    ASSERT_EQ(std::rename((path + "2").c_str(), path.c_str()), 0);
    EXPECT_EQ(recorder.record(eventOf(3)).result, HISTORY_OK);
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1,3");
    EXPECT_TRUE(fs::is_empty(other));
}

TEST_F(FaultRecorderPathTest, RaiseAfterTheFileWasRemovedRecordsIntoTheNewFile)
{
    open();
    ASSERT_EQ(recorder.raise(eventOf(1)).result, HISTORY_OK);
    ASSERT_EQ(std::remove(path.c_str()), 0);
    EXPECT_EQ(recorder.raise(eventOf(1)).result, HISTORY_FAILED);
    EXPECT_EQ(recorder.raise(eventOf(1)).result, HISTORY_OK);
    EXPECT_EQ(value(kCountOfFaults), "1");
}

TEST_F(FaultRecorderPathTest, FolderThatWasRemovedWhileOpenFailsUntilItIsBack)
{
    std::string const folder = dir.file("folder");
    ASSERT_TRUE(fs::create_directory(folder));
    ASSERT_EQ(recorder.open(folder + "/faults.db"), HISTORY_OK);
    ASSERT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK);
    fs::remove_all(folder);
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_FAILED);
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_FAILED);
    EXPECT_FALSE(exists(folder));
    ASSERT_TRUE(fs::create_directory(folder));
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK);
    EXPECT_EQ(RawDb(folder + "/faults.db").value(kCountOfFaults), "1");
}

} // namespace
