// firaim journal: the journal of a file, and files that it must not change.

#include "ChangingCommandFixture.h"

#include <tool/process/Problem.h>
#include <tool/store/Journal.h>

#include <gmock/gmock.h>

#include <filesystem>

#include <unistd.h>

namespace
{

using testing::HasSubstr;

class JournalTest : public ChangingCommandTest
{
protected:
    std::string journal() { return output({"journal", path}); }
    std::string problemOf(tool::Journal journal)
    {
        try
        {
            tool::changeJournal(path, journal, std::chrono::milliseconds(5));
            return "none";
        }
        catch (tool::Problem const& problem)
        {
            EXPECT_EQ(problem.status(), 3);
            return problem.what();
        }
    }
    std::string mode() { return value("PRAGMA journal_mode") == "wal" ? "wal\n" : "rollback\n"; }
};

} // namespace

TEST_F(JournalTest, IsPrinted)
{
    EXPECT_EQ(journal(), "rollback\n");
    EXPECT_EQ(output({"journal", path, "--json"}), "{\"File\":\"" + path + "\",\"Journal\":\"rollback\"}\n");
    RawDb(path).exec("PRAGMA journal_mode=WAL");
    EXPECT_EQ(journal(), "wal\n");
    EXPECT_EQ(output({"journal", path, "--json"}), "{\"File\":\"" + path + "\",\"Journal\":\"wal\"}\n");
}

TEST_F(JournalTest, IsChangedAndBack)
{
    std::string const before = output({"export", path, "--format", "json"});
    EXPECT_EQ(output({"journal", path, "wal"}), "");
    EXPECT_EQ(mode(), "wal\n");
    EXPECT_EQ(output({"journal", path, "rollback"}), "");
    EXPECT_EQ(mode(), "rollback\n");
    EXPECT_EQ(output({"export", path, "--format", "json"}), before);
    EXPECT_EQ(output({"check", path}), path + ": nothing is wrong\n");
}

TEST_F(JournalTest, FileThatHasItStaysAsItIs)
{
    std::string const bytes = readFile(path);
    EXPECT_EQ(output({"journal", path, "rollback"}), "");
    EXPECT_EQ(readFile(path), bytes);
}

TEST_F(JournalTest, LogLeftByAKillIsCopiedIntoTheFile)
{
    std::string const left = dir.file("left.db");
    {
        RawDb raw(path);
        raw.exec("PRAGMA journal_mode=WAL");
        raw.exec("INSERT INTO FdbFaultTbl(Status,Description) VALUES('ErrorActive','in the log')");
        std::filesystem::copy(path, left);
        std::filesystem::copy(path + "-wal", left + "-wal");
    }
    EXPECT_EQ(output({"journal", left, "rollback"}), "");
    EXPECT_FALSE(exists(left + "-wal"));
    EXPECT_FALSE(exists(left + "-shm"));
    EXPECT_EQ(RawDb(left).value("SELECT Description FROM FdbFaultTbl WHERE EntryId = 4"), "in the log");
}

TEST_F(JournalTest, FileWithALogThatIsOpenElsewhereKeepsIt)
{
    RawDb other(path);
    other.exec("PRAGMA journal_mode=WAL");
    other.exec("INSERT INTO FdbFaultTbl(Status,Description) VALUES('ErrorActive','in the log')");
    EXPECT_THAT(problemOf(firaim::RecorderOptions::ROLLBACK_JOURNAL),
                HasSubstr("its journal was not changed, as another program has the file open"));
    EXPECT_EQ(other.value("PRAGMA journal_mode"), "wal");
    EXPECT_EQ(other.value("SELECT count(*) FROM FdbFaultTbl"), "4");
}

TEST_F(JournalTest, FileThatIsLockedElsewhereKeepsItsJournal)
{
    RawDb other(path);
    other.exec("BEGIN; SELECT count(*) FROM FdbFaultTbl");
    EXPECT_THAT(problemOf(firaim::RecorderOptions::WRITE_AHEAD_LOG), HasSubstr("its journal was not changed"));
    other.exec("COMMIT");
    EXPECT_EQ(mode(), "rollback\n");
}

TEST_F(JournalTest, FileOfAnotherVersionKeepsItsJournal)
{
    RawDb(path).exec("UPDATE FdbVersionTbl SET Version = '2.0.0'");
    Outcome const outcome = runTool({"journal", path, "wal"});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("only files of version 1.0.0 are written to"));
    EXPECT_EQ(mode(), "rollback\n");
}

TEST_F(JournalTest, LogBesideTheTargetOfALinkIsCopiedIntoTheFile)
{
    std::string const link = dir.file("link.db");
    ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
    EXPECT_EQ(output({"journal", link, "wal"}), "");
    EXPECT_EQ(output({"record", link, "--code", "1"}), "4\n");
    EXPECT_EQ(output({"journal", link, "rollback"}), "");
    EXPECT_EQ(mode(), "rollback\n");
    EXPECT_EQ(faults(), "1,2,3,4");
}

TEST_F(JournalTest, CreateTakesIt)
{
    std::string const created = dir.file("created.db");
    output({"create", created, "--journal", "wal"});
    EXPECT_EQ(RawDb(created).value("PRAGMA journal_mode"), "wal");
    output({"create", created, "--force"});
    EXPECT_NE(RawDb(created).value("PRAGMA journal_mode"), "wal");
}

TEST_F(JournalTest, ACommandThatRecordsLeavesNothingInTheLog)
{
    output({"journal", path, "wal"});
    output({"record", path, "--code", "1"});
    EXPECT_EQ(std::filesystem::file_size(path + "-wal"), 0U);
    std::string const copy = dir.file("copy.db");
    std::filesystem::copy(path, copy);
    EXPECT_EQ(RawDb(copy).value("SELECT count(*) FROM FdbFaultTbl"), "4");
}
