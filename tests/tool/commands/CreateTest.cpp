// firaim create: the new file, and files that it must not overwrite.

#include "RecordFixture.h"

#include <gmock/gmock.h>

#include <filesystem>

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

TEST_F(CreateTest, GivesTheFilePagesOfTheSizeAskedFor)
{
    for (std::string const journal : {"rollback", "wal"})
    {
        std::string const file = dir.file(journal + ".db");
        output({"create", file, "--page-size", "1024", "--journal", journal});
        EXPECT_EQ(RawDb(file).value("PRAGMA page_size"), "1024");
        EXPECT_EQ(RawDb(file).value("PRAGMA journal_mode"), journal == "wal" ? "wal" : "delete");
        EXPECT_EQ(runTool({"check", file}).status, 0);
    }
    Outcome const outcome = runTool({"create", path, "--page-size", "1000"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_FALSE(std::filesystem::exists(path));
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

TEST_F(CreateTest, RefusesANameWithAnotherFilesJournalOrLogBesideIt)
{
    for (std::string const suffix : {"-journal", "-wal"})
    {
        std::string const file = dir.file("new" + suffix + ".db");
        writeFile(file + suffix, "xyz");
        Outcome const outcome = runTool({"create", file});
        EXPECT_EQ(outcome.status, 3);
        EXPECT_THAT(outcome.errors, HasSubstr(file.substr(file.rfind('/')) + suffix + " (3 bytes) is "));
        EXPECT_THAT(outcome.errors, HasSubstr("may hold faults"));
        EXPECT_FALSE(exists(file));
        EXPECT_EQ(readFile(file + suffix), "xyz");
    }
}

TEST_F(CreateTest, ForceRemovesAnotherFilesJournalAndLogAndSaysSo)
{
    writeFile(path + "-journal", "xyz");
    writeFile(path + "-wal", "abcd");
    Outcome const outcome = runTool({"create", path, "--force"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.errors, HasSubstr("/faults.db-journal (3 bytes), the journal of an unfinished transaction"));
    EXPECT_THAT(outcome.errors, HasSubstr("/faults.db-wal (4 bytes), a write-ahead log"));
    EXPECT_EQ(output({"check", path}), path + ": nothing is wrong\n");
}

TEST_F(CreateTest, IgnoresAJournalWithAZeroedHeadAndAnEmptyLog)
{
    writeFile(path + "-journal", std::string(512, '\0'));
    writeFile(path + "-wal", "");
    EXPECT_EQ(output({"create", path}), "");
    EXPECT_EQ(output({"check", path}), path + ": nothing is wrong\n");
}

TEST_F(CreateTest, ALogWhoseFileIsGoneCanBePutBackAndRecovered)
{
    std::string const moved = dir.file("moved.db");
    createSample();
    {
        RawDb raw(path);
        EXPECT_EQ(raw.value("PRAGMA journal_mode=WAL"), "wal");
        raw.exec("INSERT INTO FdbFaultTbl(Status,Description) VALUES('ErrorActive','in the log')");
        std::filesystem::copy(path, moved);
        std::filesystem::copy(path + "-wal", dir.file("left.db-wal"));
    }
    EXPECT_EQ(runTool({"create", dir.file("left.db")}).status, 3);
    std::filesystem::rename(moved, dir.file("left.db"));
    output({"recover", dir.file("left.db")});
    EXPECT_THAT(readFile(dir.file("left.db")), HasSubstr("in the log"));
}
