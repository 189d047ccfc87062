// firaim rescue: which files it reads, what it never touches, and a medium that fails.

#include "commands/RescueSupport.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include <sys/stat.h>

namespace
{

using testing::HasSubstr;

class RescueFilesTest : public RescueFixture
{
};

} // namespace

TEST_F(RescueFilesTest, AHotJournalIsRolledBackOnTheCopy)
{
    fill(2000);
    std::vector<RawDb::Row> const before = faults(path);
    std::string const crashed = dir.file("crashed.db");
    RawDb raw(path);
    raw.exec("PRAGMA cache_size=5; BEGIN; UPDATE FdbFaultTbl SET Description = 'half done'");
    std::filesystem::copy(path, crashed);
    std::filesystem::copy(path + "-journal", crashed + "-journal");
    raw.exec("ROLLBACK");
    std::map<std::string, std::string> const files = filesIn(dir.path());
    Outcome const outcome = runTool({"rescue", crashed, rescued});
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("has rolled back its journal"));
    EXPECT_EQ(faults(rescued), before);
    EXPECT_EQ(filesIn(dir.path()), files);
}

TEST_F(RescueFilesTest, TheLogIsPartOfTheFile)
{
    RawDb raw(path); // Keeps the log from being removed.
    raw.exec("PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0");
    raw.exec("UPDATE FdbFaultTbl SET Description = 'in the log'");
    std::map<std::string, std::string> const files = filesIn(dir.path());
    EXPECT_EQ(rescue(0)["recovered"], 3);
    EXPECT_EQ(filesIn(dir.path()), files);
    EXPECT_EQ(RawDb(rescued).value("SELECT DISTINCT Description FROM FdbFaultTbl"), "in the log");
    EXPECT_EQ(faults(rescued), faults(path));
    EXPECT_FALSE(exists(rescued + "-wal"));
}

TEST_F(RescueFilesTest, TheLogIsReadAlsoWhenSqliteCannotOpenTheFile)
{
    fill(100);
    std::string const copy = dir.file("copy.db");
    {
        RawDb raw(path);
        raw.exec("PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0");
        raw.exec("UPDATE FdbFaultTbl SET Description = 'in the log' WHERE EntryId > 90");
        std::filesystem::copy(path + "-wal", copy + "-wal");
        std::string bytes = readFile(path);
        bytes.replace(0, kPage, kPage, 'x');
        writeFile(copy, bytes);
    }
    Outcome const outcome = runTool({"rescue", copy, rescued, "--json"});
    Json const report = Json::parse(outcome.output);
    EXPECT_EQ(report["recovered"], 103) << outcome.output;
    EXPECT_EQ(faults(rescued), faults(path));
}

TEST_F(RescueFilesTest, NothingInTheFolderOfTheDamagedFileChanges)
{
    fill(500);
    overwrite(leaf(2), std::string(kPage, '\0'));
    writeFile(path + "-journal", std::string(512, '\0'));
    std::map<std::string, std::string> const files = filesIn(dir.path());
    ASSERT_EQ(chmod(path.c_str(), 0400), 0);
    ASSERT_EQ(chmod(dir.path().c_str(), 0500), 0);
    {
        WithoutRoot const user;
        rescue(1);
    }
    ASSERT_EQ(chmod(dir.path().c_str(), 0700), 0);
    EXPECT_EQ(filesIn(dir.path()), files);
    EXPECT_EQ(filesIn(elsewhere.path()).size(), 1u) << "the working folder is gone";
}

TEST_F(RescueFilesTest, NeverReplacesAFile)
{
    writeFile(rescued, "precious");
    Outcome const outcome = runTool({"rescue", path, rescued});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("exists already"));
    EXPECT_EQ(readFile(rescued), "precious");
}

TEST_F(RescueFilesTest, RefusesANameWithAnotherFilesJournalBesideIt)
{
    for (char const* const suffix : {"-journal", "-wal"})
    {
        writeFile(rescued + suffix, "x");
        EXPECT_THAT(runTool({"rescue", path, rescued}).errors, HasSubstr("belongs to another file")) << suffix;
        EXPECT_FALSE(exists(rescued));
        ASSERT_EQ(unlink((rescued + suffix).c_str()), 0);
    }
}

TEST_F(RescueFilesTest, WithoutAnythingToSaveThereIsNoNewFile)
{
    writeFile(path, std::string(20 * kPage, 'x'));
    EXPECT_THAT(runTool({"rescue", path, rescued}).errors, HasSubstr("it has no page of one"));
    ASSERT_EQ(unlink(path.c_str()), 0);
    RawDb(path).exec("CREATE TABLE notes(text); INSERT INTO notes VALUES('x')");
    EXPECT_EQ(rescue(3)["result"], "nothing");
    EXPECT_TRUE(filesIn(elsewhere.path()).empty());
}

TEST_F(RescueFilesTest, ASignalRemovesTheWorkingFolder)
{
    RawDb writer(path);
    writer.exec("BEGIN EXCLUSIVE"); // The rescue waits for it.
    ToolProcess process({"rescue", path, rescued});
    while (std::filesystem::is_empty(elsewhere.path()))
    {
        std::this_thread::yield();
    }
    process.signal(SIGTERM);
    EXPECT_EQ(process.finish(), 128 + SIGTERM);
    EXPECT_TRUE(std::filesystem::is_empty(elsewhere.path()));
}

TEST_F(RescueFilesTest, WaitsForTheCommitOfAWriter)
{
    RawDb writer(path);
    writer.exec("BEGIN EXCLUSIVE; UPDATE FdbFaultTbl SET Description = 'new'");
    ToolProcess process({"rescue", path, rescued});
    while (std::filesystem::is_empty(elsewhere.path()))
    {
        std::this_thread::yield();
    }
    writer.exec("COMMIT");
    EXPECT_EQ(process.finish(), 0) << process.output;
    EXPECT_EQ(RawDb(rescued).value("SELECT DISTINCT Description FROM FdbFaultTbl"), "new");
}

TEST_F(RescueFilesTest, AnUnreadableLeafCostsOnlyItsOwnRows)
{
#ifndef FIRAIM_TEST_FAILING_FILES
    GTEST_SKIP() << "no library can be loaded before the run time of a sanitizer";
#else
    fill(500);
    std::vector<RawDb::Row> const before = faults(path);
    std::size_t const page = leaf(3);
    Setting setting;
    setting.preloaded = FIRAIM_TEST_FAILING_FILES;
    setting.environment = {{"FIRAIM_TEST_UNREADABLE", "/faults.db:" + std::to_string((page - 1) * kPage + 100)}};
    Outcome const outcome = runTool({"rescue", path, rescued, "--json"}, setting);
    EXPECT_EQ(outcome.status, 1) << outcome.errors;
    Json const report = Json::parse(outcome.output, nullptr, false);
    EXPECT_EQ(report["result"], "partial");
    EXPECT_THAT(report["steps"][0]["text"].get<std::string>(),
                HasSubstr("/faults.db: the bytes " + std::to_string((page - 1) * kPage) + " to " +
                          std::to_string(page * kPage - 1) + " cannot be read"));
    ASSERT_EQ(report["missing"].size(), 1u);
    std::size_t const missing =
        report["missing"][0]["last"].get<std::size_t>() - report["missing"][0]["first"].get<std::size_t>() + 1;
    EXPECT_EQ(faults(rescued).size(), before.size() - missing);
#endif
}

TEST_F(RescueFilesTest, AnUnreadableFreePartIsNotComplete)
{
#ifndef FIRAIM_TEST_FAILING_FILES
    GTEST_SKIP() << "no library can be loaded before the run time of a sanitizer";
#else
    writeFile(path, readFile(path) + std::string(kPage, '\0')); // Behind the last page.
    Setting setting;
    setting.preloaded = FIRAIM_TEST_FAILING_FILES;
    setting.environment = {{"FIRAIM_TEST_UNREADABLE", "/faults.db:" + std::to_string(readFile(path).size() - 1)}};
    Outcome const outcome = runTool({"rescue", path, rescued, "--json"}, setting);
    EXPECT_EQ(outcome.status, 1) << outcome.errors;
    EXPECT_EQ(Json::parse(outcome.output, nullptr, false)["result"], "partial");
    EXPECT_EQ(faults(rescued), faults(path));
#endif
}
