// firaim backup: the copy, and files that it must not overwrite.

#include "ChangingCommandFixture.h"

#include <gmock/gmock.h>

#include <filesystem>

#include <sys/stat.h>

namespace
{

using testing::HasSubstr;

using BackupTest = ChangingCommandTest;

} // namespace

TEST_F(BackupTest, MakesAWholeCopy)
{
    std::string const copy = dir.file("copy.db");
    EXPECT_EQ(output({"backup", path, copy}), "");
    EXPECT_EQ(output({"export", copy, "--format", "json"}), output({"export", path, "--format", "json"}));
    EXPECT_EQ(output({"check", copy}), copy + ": nothing is wrong\n");
    EXPECT_FALSE(exists(copy + "-journal"));
}

TEST_F(BackupTest, NeverReplacesAFileWithoutForce)
{
    std::string const copy = dir.file("copy.db");
    writeFile(copy, "precious");
    Outcome const outcome = runTool({"backup", path, copy});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("exists already"));
    EXPECT_EQ(readFile(copy), "precious");
    output({"backup", path, copy, "--force"});
    EXPECT_EQ(output({"check", copy}), copy + ": nothing is wrong\n");
}

TEST_F(BackupTest, HasThePermissionsOfTheFile)
{
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    output({"backup", path, dir.file("copy.db")});
    EXPECT_EQ(std::filesystem::status(dir.file("copy.db")).permissions(), std::filesystem::perms(0600));
}

TEST_F(BackupTest, NeverReplacesItself)
{
    EXPECT_EQ(runTool({"backup", path, path + "-wal"}).status, 2);
    EXPECT_EQ(runTool({"backup", path, path, "--force"}).status, 2);
    EXPECT_EQ(faults(), "1,2,3");
}

TEST_F(BackupTest, RefusesANameWithAnotherFilesJournalOrLogBesideIt)
{
    for (std::string const suffix : {"-journal", "-wal"})
    {
        std::string const copy = dir.file("copy" + suffix + ".db");
        writeFile(copy + suffix, "xyz");
        Outcome const outcome = runTool({"backup", path, copy});
        EXPECT_EQ(outcome.status, 3);
        EXPECT_THAT(outcome.errors, HasSubstr(copy.substr(copy.rfind('/')) + suffix + " (3 bytes) is "));
        EXPECT_THAT(outcome.errors, HasSubstr("may hold faults"));
        EXPECT_FALSE(exists(copy));
        EXPECT_EQ(readFile(copy + suffix), "xyz");
    }
}

TEST_F(BackupTest, ForceRemovesAnotherFilesJournalAndSaysSo)
{
    std::string const copy = dir.file("copy.db");
    writeFile(copy, "old");
    writeFile(copy + "-journal", "xyz");
    Outcome const outcome = runTool({"backup", path, copy, "--force"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.errors, HasSubstr("/copy.db-journal (3 bytes), the journal of an unfinished transaction"));
    EXPECT_FALSE(exists(copy + "-journal"));
    EXPECT_EQ(output({"check", copy}), copy + ": nothing is wrong\n");
}

TEST_F(BackupTest, IgnoresAJournalWithAZeroedHead)
{
    std::string const copy = dir.file("copy.db");
    writeFile(copy + "-journal", std::string(512, '\0'));
    EXPECT_EQ(output({"backup", path, copy}), "");
    EXPECT_EQ(output({"check", copy}), copy + ": nothing is wrong\n");
}

TEST_F(BackupTest, NamesTheCopyWhenItsStorageFails)
{
    RawDb(path).exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000) INSERT INTO "
                     "FdbFaultTbl(Description) SELECT 'some text' FROM n");
    Setting setting;
    setting.longestFile = 50000;
    std::string const copy = dir.file("copy.db");
    Outcome const outcome = runTool({"backup", path, copy}, setting);
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, testing::StartsWith("firaim: " + copy + ": "));
    EXPECT_FALSE(exists(copy));
}

TEST_F(BackupTest, NamesTheFileWhenItCannotBeRead)
{
    RawDb(path).exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000) INSERT INTO "
                     "FdbFaultTbl(Description) SELECT 'some text' FROM n");
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 4096);
    Outcome const outcome = runTool({"backup", path, dir.file("copy.db")});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, testing::StartsWith("firaim: " + path + ": "));
}

TEST_F(BackupTest, LeavesNoFileWhenItFails)
{
    EXPECT_EQ(runTool({"backup", path, dir.file("no/copy.db")}).status, 3);
    EXPECT_EQ(faults(), "1,2,3");
}
