// Reading a file never changes a byte of it, whatever its state and its location.

#include "ToolProcess.h"

#include <tool/store/FaultFile.h>
#include <tool/store/Recovery.h>

#include <gmock/gmock.h>

#include <filesystem>
#include <map>
#include <random>

namespace
{

using testing::HasSubstr;

class ReadOnlyTest : public ToolTest
{
protected:
    ReadOnlyTest() { createSample(); }

    /// Every command that only reads the file.
    std::vector<std::vector<std::string>> commands(std::string const& file) const
    {
        return {{"list", file},
                {"show", file, "1"},
                {"stats", file},
                {"summary", file},
                {"check", file},
                {"export", file, "--format", "csv"},
                {"export", file, "--format", "json"},
                {"export", file, "--format", "sql"},
                {"trim", file, "--keep", "1", "--dry-run"},
                {"journal", file},
                {"backup", file, elsewhere.file("copy.db"), "--force"}};
    }

    /// Name and content of all files in the folder.
    std::map<std::string, std::string> folder() const
    {
        std::map<std::string, std::string> files;
        for (auto const& entry : std::filesystem::directory_iterator(dir.path()))
        {
            files[entry.path().filename()] = readFile(entry.path());
        }
        return files;
    }

    TempDir elsewhere;
};

} // namespace

TEST_F(ReadOnlyTest, ReadingChangesNothing)
{
    auto const before = folder();
    for (auto const& command : commands(path))
    {
        Outcome const outcome = runTool(command);
        EXPECT_EQ(outcome.status, 0) << command[0];
        EXPECT_EQ(outcome.errors, "") << command[0];
        EXPECT_TRUE(folder() == before) << command[0];
    }
}

TEST_F(ReadOnlyTest, WorksWhereNothingCanBeWritten)
{
    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    ASSERT_EQ(chmod(dir.path().c_str(), 0555), 0);
    {
        WithoutRoot const user;
        for (auto const& command : commands(path))
        {
            Outcome const outcome = runTool(command);
            EXPECT_EQ(outcome.status, 0) << command[0] << outcome.errors;
        }
    }
    ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
}

TEST_F(ReadOnlyTest, WriteAheadLogFileIsReadWhereNothingCanBeWritten)
{
    EXPECT_EQ(value("PRAGMA journal_mode=WAL"), "wal");
    ASSERT_FALSE(exists(path + "-wal"));
    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    ASSERT_EQ(chmod(dir.path().c_str(), 0555), 0);
    std::string const bytes = readFile(path);
    {
        WithoutRoot const user;
        for (auto const& command : commands(path))
        {
            Outcome const outcome = runTool(command);
            EXPECT_EQ(outcome.status, 0) << command[0] << outcome.errors;
        }
    }
    ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
    EXPECT_EQ(readFile(path), bytes);
}

TEST_F(ReadOnlyTest, WriteAheadLogInUseIsRead)
{
    RawDb raw(path);
    EXPECT_EQ(raw.value("PRAGMA journal_mode=WAL"), "wal");
    raw.exec("INSERT INTO FdbFaultTbl(Status,Description) VALUES('ErrorActive','in the log')");
    std::string const bytes = readFile(path);
    EXPECT_THAT(output({"list", path}), HasSubstr("in the log"));
    EXPECT_EQ(readFile(path), bytes);
}

TEST_F(ReadOnlyTest, UnreadableWriteAheadLogIsReportedWithARemedyThatRecoverApplies)
{
    std::string const left = dir.file("left.db");
    {
        RawDb raw(path);
        EXPECT_EQ(raw.value("PRAGMA journal_mode=WAL"), "wal");
        raw.exec("INSERT INTO FdbFaultTbl(Status,Description) VALUES('ErrorActive','in the log')");
        std::filesystem::copy(path, left);
        std::filesystem::copy(path + "-wal", left + "-wal");
    }
    ASSERT_EQ(chmod(dir.path().c_str(), 0555), 0);
    {
        WithoutRoot const user;
        Outcome const outcome = runTool({"list", left});
        EXPECT_EQ(outcome.status, 3);
        EXPECT_THAT(outcome.errors, HasSubstr("faults that belong to it are still in its write-ahead log"));
    }
    ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
    output({"recover", left});
    EXPECT_FALSE(std::filesystem::exists(left + "-wal") && std::filesystem::file_size(left + "-wal") > 0);
    EXPECT_THAT(readFile(left), HasSubstr("in the log"));
}

TEST_F(ReadOnlyTest, HotJournalIsReportedWithARemedyAndLeftUnchanged)
{
    std::string const crashed = makeHotJournal();
    auto const before = folder();
    for (auto const& command : commands(crashed))
    {
        Outcome const outcome = runTool(command);
        EXPECT_EQ(outcome.status, 3) << command[0];
        EXPECT_THAT(outcome.errors, HasSubstr("a writer was cut off")) << command[0];
        EXPECT_THAT(outcome.errors, HasSubstr("'firaim recover'")) << command[0];
        EXPECT_TRUE(folder() == before) << command[0];
    }
}

TEST_F(ReadOnlyTest, FilesBesideAnEmptiedFileAreReportedAndLeftUnchanged)
{
    std::string const crashed = makeHotJournal();
    std::string const withLog = dir.file("log.db");
    std::string const journal = readFile(crashed + "-journal");
    for (std::string const content : {"", "S"}) // SQLite takes a file of one byte for empty, too.
    {
        writeFile(crashed, content);
        writeFile(withLog, content);
        writeFile(withLog + "-wal", journal); // Any content will do.
        auto const before = folder();
        for (std::string const& beside : {crashed + "-journal", withLog + "-wal"})
        {
            std::string const file = beside.substr(0, beside.rfind('-'));
            auto all = commands(file);
            all.push_back({"recover", file});
            all.push_back({"record", file, "--code", "1"});
            for (auto const& command : all)
            {
                Outcome const outcome = runTool(command);
                EXPECT_EQ(outcome.status, 3) << command[0];
                EXPECT_THAT(outcome.errors, HasSubstr(": it is empty, but its ")) << command[0];
                EXPECT_THAT(outcome.errors, HasSubstr(beside.substr(beside.rfind('/')) + "' into another folder"))
                    << command[0];
                EXPECT_TRUE(folder() == before) << command[0];
            }
        }
    }
}

TEST_F(ReadOnlyTest, ReadingAndRecoveringLeaveTheLocksOfTheirProcess)
{
    RawDb raw(path);
    raw.exec("BEGIN IMMEDIATE");
    tool::recoverFile(path);
    tool::openForReading(path);
    EXPECT_FALSE(succeedsElsewhere(path, "DELETE FROM FdbFaultTbl")) << "the file is locked";
    raw.exec("COMMIT");
    EXPECT_TRUE(succeedsElsewhere(path, "DELETE FROM FdbFaultTbl"));
}

TEST_F(ReadOnlyTest, ReadingALockedFileFailsWithAReason)
{
    RawDb raw(path);
    raw.exec("BEGIN EXCLUSIVE");
    Outcome const outcome = runTool({"list", path});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("database is locked; another process keeps it locked, try again"));
    raw.exec("ROLLBACK");
}

TEST_F(ReadOnlyTest, DamagedFilesCauseNeitherCrashNorChange)
{
    RawDb(path).exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 300) INSERT INTO "
                     "FdbFaultTbl SELECT NULL, 'a', i, 'b', 'c', 'd', i, 'e', 'ErrorActive', 'f', 'g', 1, 2, 'h', 3, "
                     "'i' FROM n");
    std::string const sound = readFile(path);
    std::mt19937 random(1);
    std::string const damaged = dir.file("damaged.db");
    int checked = 0;
    for (int round = 0; round < 12; ++round)
    {
        std::string bytes = sound;
        if (round % 4 == 0)
        {
            bytes.resize(random() % bytes.size());
        }
        for (int flips = 0; flips < 1 << (round % 8); ++flips)
        {
            bytes[random() % bytes.size()] ^= static_cast<char>(1 + random() % 255);
        }
        writeFile(damaged, bytes);
        for (auto const& command : commands(damaged))
        {
            int const status = runTool(command).status;
            EXPECT_TRUE(status == 0 || status == 1 || status == 3) << command[0] << " " << status;
            EXPECT_TRUE(readFile(damaged) == bytes) << command[0];
            checked += command[0] == "check" && status != 0 ? 1 : 0;
        }
    }
    EXPECT_GT(checked, 6);
}
