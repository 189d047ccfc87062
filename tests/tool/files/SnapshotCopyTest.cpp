// Copying a file with its journal and its log.

#include "LockingProcess.h"
#include "ToolProcess.h"

#include <tool/files/SnapshotCopy.h>
#include <tool/files/WorkingFolder.h>
#include <tool/process/Problem.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>

using namespace tool;

namespace
{

using testing::HasSubstr;

class SnapshotCopyTest : public ToolTest
{
protected:
    SnapshotCopyTest() { createSample(); }

    SnapshotCopy copyOf(std::string const& file) const
    {
        return copySnapshot(file, copy, UnreadablePolicy::REFUSE, [](double) {});
    }

    /// Copies the file and its journal in the middle of a large transaction, as a power cut would leave them.
    void makeHotJournal(std::string const& crashed)
    {
        RawDb raw(path);
        raw.exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000) INSERT INTO "
                 "FdbFaultTbl(Description) SELECT 'before' FROM n");
        raw.exec("PRAGMA cache_size=5; BEGIN; UPDATE FdbFaultTbl SET Description = 'half done'");
        std::filesystem::copy(path, crashed);
        std::filesystem::copy(path + "-journal", crashed + "-journal");
        raw.exec("ROLLBACK");
    }

    /// Appends the name of a super-journal to a journal, as SQLite does for a transaction over several files.
    static void appendSuperJournal(std::string const& journal, std::string const& name)
    {
        auto const bigEndian = [](std::size_t number)
        {
            std::string bytes(4, '\0');
            for (std::size_t i = 0; i < bytes.size(); ++i)
            {
                bytes[i] = static_cast<char>(number >> (8 * (bytes.size() - 1 - i)));
            }
            return bytes;
        };
        constexpr std::size_t kPage = 4096;
        std::size_t sum = 0;
        for (char const c : name)
        {
            sum += static_cast<unsigned char>(c);
        }
        std::string const magic("\xd9\xd5\x05\xf9\x20\xa1\x63\xd7");
        writeFile(journal, readFile(journal) + bigEndian(0x40000000 / kPage + 1) + name + bigEndian(name.size()) +
                               bigEndian(sum) + magic);
    }

    /// Makes the byte `offset` of the file unreadable, and copies what can be read.
    SnapshotCopy copyAround(long long offset) const
    {
        setenv("FIRAIM_TEST_UNREADABLE", (path.substr(path.rfind('/')) + ':' + std::to_string(offset)).c_str(), 1);
        SnapshotCopy result = copySnapshot(path, copy, UnreadablePolicy::FILL_WITH_ZEROS, [](double) {});
        unsetenv("FIRAIM_TEST_UNREADABLE");
        return result;
    }

    TempDir elsewhere;
    std::string const copy = elsewhere.file("copy.db");
};

} // namespace

TEST_F(SnapshotCopyTest, TakesTheFileAloneWhenNoTransactionIsUnfinished)
{
    output({"record", path, "--code", "1"}); // Keeps its journal, with a zeroed header.
    ASSERT_TRUE(exists(path + "-journal"));
    SnapshotCopy const result = copyOf(path);
    EXPECT_FALSE(result.hasJournal);
    EXPECT_FALSE(result.hasLog);
    EXPECT_EQ(filesIn(elsewhere.path()), (std::map<std::string, std::string>{{"copy.db", readFile(path)}}));
}

TEST_F(SnapshotCopyTest, TakesAHotJournalAlongAndLeavesTheFiles)
{
    std::string const crashed = dir.file("crashed.db");
    makeHotJournal(crashed);
    auto const before = filesIn(dir.path());
    EXPECT_TRUE(copyOf(crashed).hasJournal);
    EXPECT_EQ(readFile(copy), readFile(crashed));
    EXPECT_EQ(readFile(copy + "-journal"), readFile(crashed + "-journal"));
    EXPECT_EQ(RawDb(copy).value("SELECT count(*) FROM FdbFaultTbl WHERE Description = 'half done'"), "0");
    EXPECT_TRUE(filesIn(dir.path()) == before);
}

TEST_F(SnapshotCopyTest, FindsTheJournalBesideTheTargetOfALink)
{
    makeHotJournal(dir.file("crashed.db"));
    std::string const link = elsewhere.file("link.db");
    std::filesystem::create_symlink(dir.file("crashed.db"), link);
    EXPECT_TRUE(copyOf(link).hasJournal);
    EXPECT_TRUE(exists(copy + "-journal"));
}

TEST_F(SnapshotCopyTest, TakesALogInUseAlong)
{
    ToolProcess writer({"record", path, "--stdin"}, {}, true);
    EXPECT_EQ(value("PRAGMA journal_mode=WAL"), "wal");
    writer.write("{\"FaultCode\":1025,\"Description\":\"in the log\"}\n");
    ASSERT_TRUE(writer.readLine());
    EXPECT_TRUE(copyOf(path).hasLog);
    EXPECT_EQ(RawDb(copy).value("SELECT Description FROM FdbFaultTbl ORDER BY EntryId DESC LIMIT 1"), "in the log");
}

TEST_F(SnapshotCopyTest, LeavesTheJournalOfAProcessThatIsWriting)
{
    // Without synchronisation, SQLite writes the journal's header at once.
    LockingProcess const writer(path, "PRAGMA synchronous=OFF; BEGIN; UPDATE FdbFaultTbl SET Description = 'not yet'");
    ASSERT_NE(readFile(path + "-journal").front(), '\0');
    EXPECT_FALSE(copyOf(path).hasJournal);
    EXPECT_FALSE(exists(copy + "-journal"));
    EXPECT_EQ(RawDb(copy).value("SELECT count(*) FROM FdbFaultTbl WHERE Description = 'not yet'"), "0");
}

TEST_F(SnapshotCopyTest, NamesTheFileThatCannotBeRead)
{
    std::filesystem::remove(path + "-journal");
    std::filesystem::create_directory(path + "-journal");
    try
    {
        copyOf(path);
        FAIL() << "a folder was copied";
    }
    catch (Problem const& problem)
    {
        EXPECT_THAT(problem.what(), HasSubstr("/faults.db-journal: is a folder"));
    }
}

TEST_F(SnapshotCopyTest, FillsUnreadableBytesWithZerosAndNamesThem)
{
#ifndef FIRAIM_TEST_FAILING_FILES
    GTEST_SKIP() << "a sanitizer replaces the same functions";
#endif
    SnapshotCopy const result = copyAround(5000);
    ASSERT_EQ(result.unreadable.size(), 1U);
    EXPECT_THAT(result.unreadable.front().path, testing::EndsWith("/faults.db"));
    EXPECT_EQ(result.unreadable.front().offset, 4096);
    EXPECT_EQ(result.unreadable.front().size, 4096);
    std::string expected = readFile(path);
    expected.replace(4096, 4096, 4096, '\0');
    EXPECT_TRUE(readFile(copy) == expected);
}

TEST_F(SnapshotCopyTest, RollsBackATransactionOverSeveralFilesWithoutTheOthers)
{
    std::string const crashed = dir.file("crashed.db");
    makeHotJournal(crashed);
    std::string const superJournal = dir.file("several.db-mj0");
    appendSuperJournal(crashed + "-journal", superJournal);
    writeFile(superJournal, dir.file("before_it_was_renamed.db-journal") + '\0');
    std::string const before = readFile(crashed + "-journal");
    EXPECT_TRUE(copyOf(crashed).hasJournal);
    EXPECT_EQ(RawDb(copy).value("SELECT count(*) FROM FdbFaultTbl WHERE Description = 'half done'"), "0");
    EXPECT_TRUE(exists(superJournal)) << "without it, the transaction of the original counts as committed";
    EXPECT_TRUE(readFile(crashed + "-journal") == before);
}

TEST_F(SnapshotCopyTest, KeepsATransactionThatItsSuperJournalHasCommitted)
{
    std::string const crashed = dir.file("crashed.db");
    makeHotJournal(crashed);
    appendSuperJournal(crashed + "-journal", dir.file("gone.db-mj0"));
    copyOf(crashed);
    EXPECT_NE(RawDb(copy).value("SELECT count(*) FROM FdbFaultTbl WHERE Description = 'half done'"), "0");
}

TEST_F(SnapshotCopyTest, WorkingFolderReplacesNoFileAndLeavesNothing)
{
    writeFile(copy, "precious");
    {
        WorkingFolder const folder(copy);
        writeFile(folder.file("new"), "new");
        EXPECT_THROW(folder.moveToTarget("new"), Problem);
    }
    EXPECT_EQ(filesIn(elsewhere.path()), (std::map<std::string, std::string>{{"copy.db", "precious"}}));
}

TEST_F(SnapshotCopyTest, WorkingFolderGivesItsFileTheNameOfTheTarget)
{
    {
        WorkingFolder const folder(copy);
        writeFile(folder.file("new"), "new");
        folder.moveToTarget("new");
    }
    EXPECT_EQ(filesIn(elsewhere.path()), (std::map<std::string, std::string>{{"copy.db", "new"}}));
}
