// Copying a file with its journal and its log.

#include "LockingProcess.h"
#include "ToolProcess.h"

#include <tool/process/Problem.h>
#include <tool/store/SnapshotCopy.h>
#include <tool/store/WorkingFolder.h>

#include <gmock/gmock.h>

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
        EXPECT_THAT(problem.what(), HasSubstr("/faults.db-journal: is no regular file"));
    }
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
