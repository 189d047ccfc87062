// firaim recover: in place, in a folder where nothing can be deleted, and on a copy.

#include "ToolProcess.h"

#include <gmock/gmock.h>

#include <filesystem>

#include <sys/stat.h>

namespace
{

using testing::HasSubstr;

class RecoverTest : public ToolTest
{
protected:
    RecoverTest() { createSample(); }

    /// Copies a file and its write-ahead log with one fault. Returns the path of the copy.
    std::string makeLog()
    {
        std::string left = dir.file("left.db");
        std::string const file = dir.file("log.db");
        std::filesystem::copy(path, file);
        RawDb raw(file);
        EXPECT_EQ(raw.value("PRAGMA journal_mode=WAL"), "wal");
        raw.exec("INSERT INTO FdbFaultTbl(Status,Description) VALUES('ErrorActive','in the log')");
        std::filesystem::copy(file, left);
        std::filesystem::copy(file + "-wal", left + "-wal");
        return left;
    }

    /// Expects that the file is whole and holds what the sample held before the transaction.
    void expectRolledBack(std::string const& file)
    {
        EXPECT_EQ(RawDb(file).value("PRAGMA integrity_check"), "ok");
        EXPECT_EQ(output({"export", file, "--format", "csv"}), output({"export", path, "--format", "csv"}));
    }

    /// An environment in which no process may delete a journal.
    static Setting keepingJournals()
    {
        Setting setting;
#ifdef FIRAIM_TEST_FAILING_FILES
        setting.preloaded = FIRAIM_TEST_FAILING_FILES;
        setting.environment = {{ "FIRAIM_TEST_KEPT", "-journal" }};
#endif
        return setting;
    }

    TempDir elsewhere;
};

} // namespace

TEST_F(RecoverTest, RollsBackAHotJournalAndSaysSo)
{
    std::string const crashed = makeHotJournal();
    EXPECT_EQ(output({"recover", crashed}), crashed + ": an unfinished transaction was rolled back\n");
    expectRolledBack(crashed);
}

TEST_F(RecoverTest, SaysThatThereWasNothingToRecover)
{
    output({"record", path, "--code", "1"}); // Leaves a journal with a zeroed head.
    EXPECT_EQ(output({"recover", path}), path + ": nothing to recover\n");
    EXPECT_EQ(output({"recover", path, "--json"}), "{\"File\":\"" + path + "\",\"RolledBack\":false,\"LogPages\":0}\n");
}

TEST_F(RecoverTest, EmptiesTheLogAndSaysHowManyPagesItHad)
{
    std::string const left = makeLog();
    EXPECT_EQ(output({"recover", left}), left + ": 2 pages of its write-ahead log moved into it\n");
    EXPECT_EQ(std::filesystem::file_size(left + "-wal"), 0U);
    EXPECT_THAT(readFile(left), HasSubstr("in the log"));
    EXPECT_EQ(output({"recover", left}), left + ": nothing to recover\n");
}

TEST_F(RecoverTest, RollsBackWhereTheJournalCannotBeDeleted)
{
    std::string const crashed = makeHotJournal();
    output({"recover", crashed}, keepingJournals());
    expectRolledBack(crashed);
#ifdef FIRAIM_TEST_FAILING_FILES
    EXPECT_EQ(readFile(crashed + "-journal").front(), '\0');
#endif
}

TEST_F(RecoverTest, RecordingRollsBackWhereTheJournalCannotBeDeleted)
{
    std::string const crashed = makeHotJournal();
    output({"record", crashed, "--code", "1"}, keepingJournals());
    EXPECT_EQ(RawDb(crashed).value("SELECT count(*) FROM FdbFaultTbl WHERE Description = 'before'"), "2000");
    EXPECT_EQ(RawDb(crashed).value("SELECT count(*) FROM FdbFaultTbl"), "2004");
}

TEST_F(RecoverTest, NamesAJournalThatItMayNotWrite)
{
    std::string const crashed = makeHotJournal();
    ASSERT_EQ(chmod((crashed + "-journal").c_str(), 0444), 0);
    WithoutRoot const user;
    Outcome const outcome = runTool({"recover", crashed});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("/crashed.db-journal: cannot be written: Permission denied"));
}

TEST_F(RecoverTest, RollsBackACopyAndLeavesTheFile)
{
    std::string const crashed = makeHotJournal();
    auto const before = filesIn(dir.path());
    std::string const copy = elsewhere.file("copy.db");
    EXPECT_EQ(output({"recover", crashed, "--to", copy}), copy + ": an unfinished transaction was rolled back\n");
    EXPECT_TRUE(filesIn(dir.path()) == before);
    EXPECT_THAT(filesIn(elsewhere.path()), testing::SizeIs(1)) << "the working folder is gone";
    expectRolledBack(copy);
}

TEST_F(RecoverTest, CopiesFromAMediumThatCannotBeWritten)
{
    std::string const crashed = makeHotJournal();
    std::string const left = makeLog();
    ASSERT_EQ(chmod(crashed.c_str(), 0444), 0);
    ASSERT_EQ(chmod(dir.path().c_str(), 0555), 0);
    {
        WithoutRoot const user;
        Outcome const outcome = runTool({"recover", crashed});
        EXPECT_EQ(outcome.status, 3);
        EXPECT_THAT(outcome.errors, HasSubstr("'firaim recover FILE --to COPY' recovers a copy"));
        output({"recover", crashed, "--to", elsewhere.file("journal.db")});
        EXPECT_THAT(output({"recover", left, "--to", elsewhere.file("log.db"), "--json"}),
                    HasSubstr("\"RolledBack\":false,\"LogPages\":2}"));
    }
    ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
    expectRolledBack(elsewhere.file("journal.db"));
    EXPECT_THAT(readFile(elsewhere.file("log.db")), HasSubstr("in the log"));
}

TEST_F(RecoverTest, NeverReplacesAFileByACopy)
{
    std::string const copy = elsewhere.file("copy.db");
    writeFile(copy, "precious");
    Outcome const outcome = runTool({"recover", path, "--to", copy});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("exists already"));
    EXPECT_EQ(readFile(copy), "precious");
    EXPECT_EQ(runTool({"recover", path, "--to", path}).status, 3);
    EXPECT_EQ(runTool({"recover", path, "--to", path + "-wal"}).status, 2);
}

TEST_F(RecoverTest, CopyBesideAnotherFilesJournalIsRefused)
{
    std::string const copy = elsewhere.file("copy.db");
    writeFile(copy + "-journal", "xyz");
    Outcome const outcome = runTool({"recover", path, "--to", copy});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("/copy.db-journal (3 bytes) is "));
    EXPECT_FALSE(exists(copy));
}

TEST_F(RecoverTest, LeavesNoCopyOfAFileThatCannotBeRecovered)
{
    std::string const foreign = dir.file("foreign.db");
    RawDb(foreign).exec("CREATE TABLE Other(a)");
    Outcome const outcome = runTool({"recover", foreign, "--to", elsewhere.file("copy.db")});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, testing::StartsWith("firaim: " + foreign + ": no fault database"));
    EXPECT_THAT(filesIn(elsewhere.path()), testing::IsEmpty());
}

TEST_F(RecoverTest, FailedReadOfTheMediumIsNamedAndLeavesNoCopy)
{
#ifndef FIRAIM_TEST_FAILING_FILES
    GTEST_SKIP() << "no library can be loaded before the run time of a sanitizer";
#else
    Setting setting;
    setting.preloaded = FIRAIM_TEST_FAILING_FILES;
    setting.environment = {{"FIRAIM_TEST_UNREADABLE", "/faults.db:5000"}};
    Outcome const outcome = runTool({"recover", path, "--to", elsewhere.file("copy.db")}, setting);
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("/faults.db: the medium failed to return"));
    EXPECT_THAT(filesIn(elsewhere.path()), testing::IsEmpty());
#endif
}
