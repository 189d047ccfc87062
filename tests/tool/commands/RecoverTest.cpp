// firaim recover: in place, in a folder where nothing can be deleted, and on a copy.

#include "ToolProcess.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace
{

using testing::HasSubstr;

class RecoverTest : public ToolTest
{
protected:
    RecoverTest() { createSample(); }

    /// Copies the file and its journal in the middle of a large transaction, as a power cut would leave them. Returns
    /// the path of the copy.
    std::string makeHotJournal()
    {
        RawDb raw(path);
        raw.exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000) INSERT INTO "
                 "FdbFaultTbl(Description) SELECT 'before' FROM n");
        raw.exec("PRAGMA cache_size=5; BEGIN; UPDATE FdbFaultTbl SET Description = 'half done'");
        std::string crashed = dir.file("crashed.db");
        std::filesystem::copy(path, crashed);
        std::filesystem::copy(path + "-journal", crashed + "-journal");
        raw.exec("ROLLBACK");
        EXPECT_THAT(readFile(crashed), HasSubstr("half done"));
        return crashed;
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
        setting.environment = {{"FIRAIM_TEST_KEPT", "-journal"}};
#endif
        return setting;
    }
};

} // namespace

TEST_F(RecoverTest, RollsBackAHotJournal)
{
    std::string const crashed = makeHotJournal();
    output({"recover", crashed});
    expectRolledBack(crashed);
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
