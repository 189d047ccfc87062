// Renumbering and trimming on storage that fails at the end of a commit: the printed result must be true.

#include "ToolProcess.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <filesystem>
#include <memory>

namespace
{

enum FileSetup
{
    WITH_JOURNAL,
    WITH_LOG,
    WITH_LOG_AND_ANOTHER_PROCESS ///< another connection keeps the file open
};

/// Stands for another process that records immediately afterwards. A trigger records instead, so that it happens each
/// time.
char const* const kRecordAnother =
    "BEGIN INSERT INTO FdbFaultTbl(Description,Status,RdbStartupId) VALUES('meanwhile','ErrorInactive',2); END";

std::string nameOf(testing::TestParamInfo<FileSetup> const& file)
{
    char const* const names[] = {"WithJournal", "WithLog", "WithLogAndAnotherProcess"};
    return names[file.param];
}

char const kIsRenumbered[] = "SELECT (SELECT count(*) FROM FdbFaultTbl WHERE RdbStartupId = 2 AND EntryId <= 3) + "
                             "(SELECT count(*) FROM FdbFaultStatisticTbl WHERE RdbStartupId = 2) = 0";
char const kIsTrimmed[] = "SELECT group_concat(EntryId) = '3' FROM FdbFaultTbl WHERE EntryId <= 3";

class FailingSyncTest : public ToolTest, public testing::WithParamInterface<FileSetup>
{
protected:
    FailingSyncTest()
    {
        createSample();
        RawDb raw(path);
        raw.exec("UPDATE FdbFaultTbl SET Status = 'ErrorInactive'; UPDATE FdbFaultStatisticTbl SET FaultActive = "
                 "'inactive'");
        if (GetParam() != WITH_JOURNAL)
        {
            EXPECT_EQ(raw.value("PRAGMA journal_mode=WAL"), "wal");
        }
    }

    void SetUp() override
    {
#ifndef FIRAIM_TEST_FAILING_SYNC
        GTEST_SKIP() << "no library can be loaded before the run time of a sanitizer";
#endif
    }

    /// Runs the command on a copy of the file while the synchronisations `failing` fail. Sets `isDone` to whether the
    /// next program that opens the file finds the change.
    Outcome runOnCopy(std::vector<std::string> arguments, std::string const& failing, std::string const& isDoneQuery)
    {
        std::string const copy = dir.file("copy.db");
        for (char const* const suffix : {"", "-journal", "-wal", "-shm"})
        {
            std::filesystem::remove(copy + suffix);
        }
        std::filesystem::remove(failures());
        std::filesystem::copy(path, copy);
        auto other = std::make_unique<RawDb>(copy);
        if (GetParam() == WITH_LOG_AND_ANOTHER_PROCESS)
        {
            EXPECT_EQ(other->value("SELECT count(*) > 0 FROM FdbFaultTbl"), "1");
        }
        else
        {
            other.reset();
        }
        arguments.insert(arguments.begin() + 1, copy);
        Outcome outcome = runTool(arguments, settingFor(failing));
        other.reset();
        isDone = RawDb(copy).value(isDoneQuery) == "1";
        EXPECT_EQ(RawDb(copy).value("PRAGMA integrity_check"), "ok");
        return outcome;
    }

    bool hasFailed() const
    {
        return exists(failures());
    }

    /// Makes each synchronisation of the command fail, alone or with all later ones, and compares the printed result
    /// with the file.
    void tryEach(std::vector<std::string> const& arguments, std::string const& isDoneQuery)
    {
        int stored = 0;
        int notStored = 0;
        int notKnown = 0;
        for (char const* const rest : {"", "+"})
        {
            int call = 0;
            do
            {
                std::string const failing = std::to_string(++call) + rest;
                SCOPED_TRACE(failing);
                Outcome const outcome = runOnCopy(arguments, failing, isDoneQuery);
                bool const isNotKnown = outcome.errors.find("is not known") != std::string::npos;
                bool const isNotStored = outcome.errors.find("nothing of it was stored") != std::string::npos;
                if (outcome.status == 0)
                {
                    EXPECT_TRUE(isDone) << outcome.output;
                    EXPECT_FALSE(*rest == '+' && hasFailed()) << "no later synchronisation made the change durable";
                    stored += hasFailed() ? 1 : 0;
                }
                else
                {
                    EXPECT_EQ(outcome.status, 3);
                    EXPECT_EQ(outcome.output, "");
                    EXPECT_NE(isNotKnown, isNotStored) << outcome.errors;
                    EXPECT_FALSE(isNotStored && isDone) << outcome.errors;
                    EXPECT_FALSE(isNotKnown && *rest != '+') << outcome.errors;
                    notStored += isNotStored ? 1 : 0;
                    notKnown += isNotKnown ? 1 : 0;
                }
            } while (hasFailed());
        }
        std::printf("%s: stored despite the failure %d, not stored %d, unknown %d\n", arguments[0].c_str(), stored,
                    notStored, notKnown);
        EXPECT_GT(stored + notStored, 0);
        EXPECT_GT(notKnown, 0);
    }

    bool isDone = false;

private:
    std::string failures() const
    {
        return dir.file("failures");
    }

    Setting settingFor(std::string const& failing) const
    {
        Setting setting;
        setting.environment = {{"FIRAIM_TEST_FAILING_SYNC", failing}, {"FIRAIM_TEST_FAILED_SYNCS", failures()}};
#ifdef FIRAIM_TEST_FAILING_SYNC
        setting.preloaded = FIRAIM_TEST_FAILING_SYNC;
#endif
        return setting;
    }
};

class FailingSyncOfJournalTest : public FailingSyncTest
{
};

} // namespace

TEST_P(FailingSyncOfJournalTest, JournalReportsTheActualResultAndLosesNothing)
{
    std::string const before = GetParam() == WITH_LOG ? "wal" : "delete"; // The default of a connection.
    std::string const other = GetParam() == WITH_LOG ? "rollback" : "wal";
    int changed = 0;
    int failed = 0;
    for (char const* const rest : {"", "+"})
    {
        int call = 0;
        do
        {
            std::string const failing = std::to_string(++call) + rest;
            SCOPED_TRACE(failing);
            Outcome const outcome = runOnCopy({"journal", other}, failing, "SELECT count(*) = 3 FROM FdbFaultTbl");
            EXPECT_TRUE(isDone) << "the faults are there";
            bool const isChanged = RawDb(dir.file("copy.db")).value("PRAGMA journal_mode") != before;
            EXPECT_TRUE(outcome.status == 3 || isChanged);
            EXPECT_EQ(outcome.status == 3, !outcome.errors.empty());
            EXPECT_FALSE(isChanged && outcome.errors.find("not changed") != std::string::npos) << outcome.errors;
            changed += outcome.status == 0 ? 1 : 0;
            failed += outcome.status == 3 ? 1 : 0;
        } while (hasFailed());
    }
    EXPECT_GT(changed, 1);
    EXPECT_GT(failed, 1);
}

TEST_P(FailingSyncTest, RenumberReportsTheActualResult)
{
    tryEach({"renumber", "--from", "2", "--to", "5"}, kIsRenumbered);
}

TEST_P(FailingSyncTest, TrimReportsTheActualResult)
{
    tryEach({"trim", "--keep", "1"}, kIsTrimmed);
}

TEST_P(FailingSyncTest, RenumberReportsTheActualResultWhileOthersRecord)
{
    RawDb(path).exec(std::string("CREATE TRIGGER another AFTER UPDATE ON FdbFaultTbl WHEN new.EntryId = 3 ") +
                     kRecordAnother);
    tryEach({"renumber", "--from", "2", "--to", "5"}, kIsRenumbered);
}

TEST_P(FailingSyncTest, TrimReportsTheActualResultWhileOthersRecord)
{
    RawDb(path).exec(std::string("CREATE TRIGGER another AFTER DELETE ON FdbFaultTbl WHEN old.EntryId = 2 ") +
                     kRecordAnother);
    tryEach({"trim", "--keep", "1"}, kIsTrimmed);
}

TEST_P(FailingSyncTest, RenumberOfStatisticsAloneReportsTheActualResult)
{
    RawDb(path).exec("DELETE FROM FdbFaultTbl WHERE RdbStartupId = 2");
    tryEach({"renumber", "--from", "2", "--to", "5"}, kIsRenumbered);
}

INSTANTIATE_TEST_SUITE_P(Files, FailingSyncTest, testing::Values(WITH_JOURNAL, WITH_LOG, WITH_LOG_AND_ANOTHER_PROCESS),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Files, FailingSyncOfJournalTest, testing::Values(WITH_JOURNAL, WITH_LOG), nameOf);
