// A recorder whose file was renamed while another file got its name, beside a transaction in that other file. SQLite
// finds the journal and the log by the name, so it would use those of the other file.

#include "RecorderFixtures.h"

#include <filesystem>
#include <functional>
#include <memory>

namespace
{

using namespace firaim;
using testing::HasSubstr;
using Journal = RecorderOptions::Journal;

namespace fs = std::filesystem;

/// The parameters are the journals of the renamed file and of the other one.
class FaultRecorderMovedTest : public FaultRecorderTest,
                               public testing::WithParamInterface<std::tuple<Journal, Journal>>
{
protected:
    static constexpr int kOldFaults = 200; ///< more pages than the other file has
    static constexpr int kNewFaults = 20;

    FaultRecorderMovedTest()
    {
        fs::create_directory(m_now);
        m_options.journal = std::get<0>(GetParam());
        m_options.isCancelled = onWait;
    }

    ~FaultRecorderMovedTest() override { s_onWait = nullptr; }

    /// Opens the file and records into it.
    void openAndRecord()
    {
        ASSERT_EQ(recorder.open(m_path, m_options), HISTORY_OK) << recorder.lastProblem();
        ASSERT_NO_FATAL_FAILURE(recordInto(recorder, kOldFaults));
    }

    static void recordInto(FaultRecorder& to, int count)
    {
        for (int i = 0; i < count; ++i)
        {
            ASSERT_EQ(to.record(longEvent()).result, HISTORY_OK) << to.lastProblem();
        }
    }

    static FaultEvent longEvent()
    {
        FaultEvent event = eventOf(1);
        event.description = std::string(500, 'x');
        return event;
    }

    /// Renames the folder of the file, creates another file of its name, and begins a transaction there, which stays
    /// open.
    void replace()
    {
        fs::rename(m_now, m_pulled);
        fs::create_directory(m_now);
        RecorderOptions options;
        options.journal = std::get<1>(GetParam());
        FaultRecorder other;
        ASSERT_EQ(other.open(m_path, options), HISTORY_OK) << other.lastProblem();
        ASSERT_NO_FATAL_FAILURE(recordInto(other, kNewFaults));
        m_other = std::make_unique<RawDb>(m_path);
        m_other->exec("PRAGMA wal_autocheckpoint = 0");
        m_other->exec("UPDATE FdbFaultTbl SET ModuleName = 'other'"); // A log keeps this.
        m_other->exec("PRAGMA cache_size = 1");                       // The journal is complete before the commit.
        m_other->exec("BEGIN IMMEDIATE");
        m_other->exec("UPDATE FdbFaultTbl SET Description = 'y'");
    }

    void expectOldFileIsWhole() const
    {
        RawDb old(m_oldPath);
        EXPECT_EQ(old.value("PRAGMA integrity_check"), "ok");
        EXPECT_EQ(old.value("SELECT count(*) FROM FdbFaultTbl WHERE ModuleName = 'module'"),
                  std::to_string(kOldFaults));
    }

    /// Ends the transaction in the new file, and records into it.
    void expectNewFileIsWhole()
    {
        m_other->exec("COMMIT");
        EXPECT_EQ(recorder.record(eventOf(2)).result, HISTORY_OK) << recorder.lastProblem();
        EXPECT_EQ(m_other->value("PRAGMA integrity_check"), "ok");
        EXPECT_EQ(m_other->value("SELECT count(*) FROM FdbFaultTbl"), std::to_string(kNewFaults + 1));
        EXPECT_EQ(m_other->value("SELECT count(*) FROM FdbFaultTbl WHERE ModuleName = 'other' AND Description = 'y'"),
                  std::to_string(kNewFaults));
    }

    void expectMoved(int result) const
    {
        EXPECT_EQ(result, HISTORY_FAILED);
        EXPECT_THAT(recorder.lastProblem(), HasSubstr("removed or renamed while it was open"));
    }

    static bool onWait()
    {
        if (auto const action = std::exchange(s_onWait, nullptr))
        {
            action();
        }
        return false;
    }

    std::string const m_now = dir.file("now");
    std::string const m_pulled = dir.file("pulled");
    std::string const m_path = m_now + "/faults.db";
    std::string const m_oldPath = m_pulled + "/faults.db";
    RecorderOptions m_options;
    std::unique_ptr<RawDb> m_other;
    /// For the next wait of the recorder. RecorderOptions takes a plain function only.
    static inline std::function<void()> s_onWait;
};

TEST_P(FaultRecorderMovedTest, RecordUsesNoJournalOfAnotherFile)
{
    ASSERT_NO_FATAL_FAILURE(openAndRecord());
    ASSERT_NO_FATAL_FAILURE(replace());
    expectMoved(recorder.record(eventOf(2)).result);
    expectOldFileIsWhole();
    expectNewFileIsWhole();
}

TEST_P(FaultRecorderMovedTest, ReadingForARaiseUsesNoJournalOfAnotherFile)
{
    ASSERT_NO_FATAL_FAILURE(openAndRecord());
    ASSERT_NO_FATAL_FAILURE(replace());
    expectMoved(recorder.raise(eventOf(2)).result);
    expectOldFileIsWhole();
    expectNewFileIsWhole();
}

TEST_P(FaultRecorderMovedTest, WaitingRecordUsesNoJournalOfAnotherFile)
{
    ASSERT_NO_FATAL_FAILURE(openAndRecord());
    RawDb writer(m_path);
    writer.exec("BEGIN IMMEDIATE");
    s_onWait = [&]
    {
        replace();
        writer.exec("ROLLBACK"); // The recorder could go on in the renamed file.
    };
    expectMoved(recorder.record(eventOf(2)).result);
    expectOldFileIsWhole();
    expectNewFileIsWhole();
}

/// Opening a file with a log does not wait.
using FaultRecorderMovedOpeningTest = FaultRecorderMovedTest;

TEST_P(FaultRecorderMovedOpeningTest, OpeningThatWaitsUsesNoJournalOfAnotherFile)
{
    {
        FaultRecorder first;
        ASSERT_EQ(first.open(m_path, m_options), HISTORY_OK) << first.lastProblem();
        ASSERT_NO_FATAL_FAILURE(recordInto(first, kOldFaults));
    }
    RawDb writer(m_path);
    writer.exec("BEGIN EXCLUSIVE");
    s_onWait = [&]
    {
        replace();
        writer.exec("ROLLBACK");
    };
    EXPECT_EQ(recorder.open(m_path, m_options), HISTORY_BUSY);
    expectOldFileIsWhole();
    m_other->exec("COMMIT");
    EXPECT_EQ(recorder.open(m_path, m_options), HISTORY_OK) << recorder.lastProblem();
    EXPECT_EQ(m_other->value("PRAGMA integrity_check"), "ok");
    EXPECT_EQ(m_other->value(kCountOfFaults), std::to_string(kNewFaults));
}

constexpr Journal kJournals[] = {RecorderOptions::ROLLBACK_JOURNAL, RecorderOptions::WRITE_AHEAD_LOG};

INSTANTIATE_TEST_SUITE_P(Journals, FaultRecorderMovedTest,
                         testing::Combine(testing::ValuesIn(kJournals), testing::ValuesIn(kJournals)));
INSTANTIATE_TEST_SUITE_P(Journals, FaultRecorderMovedOpeningTest,
                         testing::Combine(testing::Values(RecorderOptions::ROLLBACK_JOURNAL),
                                          testing::ValuesIn(kJournals)));

} // namespace
