// The power fails after each operation on the disk while a hot journal is rolled back that cannot be deleted, and while
// a fault is recorded after that.

#include "PowerCutSupport.h"
#include "SilentConsole.h"

#include <fdb/FaultDb.h>
#include <history/FaultRecorder.h>

#include <iostream>

namespace
{

using namespace firaim;

constexpr std::size_t kRandomStates = 5;
constexpr int kRows = 300;

/// The parameter tells whether the facade opens the file first, and so rolls it back.
class KeptJournalPowerCut : public testing::TestWithParam<bool>
{
protected:
    KeptJournalPowerCut()
    {
        leaveHotJournal();
        auto& vfs = DiskModelVfs::getInstance();
        vfs.start(m_directory.path());
        m_crashed = vfs.operations();
        vfs.keepJournals(true);
        recordOne();
        vfs.keepJournals(false);
        auto const& operations = vfs.operations();
        m_operations.assign(operations.begin() + static_cast<std::ptrdiff_t>(m_crashed.size()), operations.end());
        vfs.stop();
        EXPECT_TRUE(exists(m_path + "-journal")) << "it was deleted";
    }

    void cutThePower(bool isDiskLying)
    {
        SilentConsole const silence;
        DiskModel disk;
        for (DiskOperation const& operation : m_crashed)
        {
            disk.apply(operation);
        }
        disk.synchronise();
        for (std::size_t index = 0; index <= m_operations.size(); ++index)
        {
            if (index % kCutStride == 0 || index == m_operations.size())
            {
                cut(disk, index >= m_recorded);
            }
            bool const isSynchronising =
                index < m_operations.size() && (m_operations[index].kind == DiskOperation::SYNC_FILE ||
                                                m_operations[index].kind == DiskOperation::SYNC_DIRECTORY);
            if (index < m_operations.size() && !(isDiskLying && isSynchronising))
            {
                disk.apply(m_operations[index]);
            }
        }
    }

    std::size_t m_states = 0;
    std::size_t m_losses = 0;

private:
    /// Ends a large transaction as a power cut would, with changed pages in the file.
    void leaveHotJournal()
    {
        FaultRecorder recorder;
        EXPECT_EQ(recorder.open(m_path), HISTORY_OK);
        std::vector<FaultEvent> const events(kRows, eventOf("before"));
        std::vector<Receipt> receipts;
        EXPECT_EQ(recorder.recordAll(events, receipts), HISTORY_OK);
        EXPECT_EQ(recorder.close(), HISTORY_OK);
        RawDb raw(m_path);
        raw.exec("PRAGMA cache_size=5; BEGIN; UPDATE FdbFaultTbl SET Description = 'half done'");
        std::map<std::string, std::string> const files = filesIn(m_directory.path());
        raw.exec("ROLLBACK");
        for (auto const& [name, bytes] : files)
        {
            writeFile(m_directory.file(name), bytes);
        }
        EXPECT_NE(readFile(m_path).find("half done"), std::string::npos);
    }

    static FaultEvent eventOf(std::string const& description)
    {
        FaultEvent event;
        event.code = 7;
        event.description = description;
        return event;
    }

    void recordOne()
    {
        SilentConsole const silence;
        if (GetParam())
        {
            FaultDb facade;
            EXPECT_EQ(facade.openDb(m_path, false), RESULT_OK);
            EXPECT_EQ(facade.closeDb(), RESULT_OK);
        }
        FaultRecorder recorder;
        EXPECT_EQ(recorder.open(m_path), HISTORY_OK) << recorder.lastProblem();
        EXPECT_EQ(recorder.record(eventOf("after")).result, HISTORY_OK) << recorder.lastProblem();
        m_recorded = DiskModelVfs::getInstance().operations().size() - m_crashed.size();
        EXPECT_EQ(recorder.close(), HISTORY_OK);
    }

    void cut(DiskModel const& disk, bool isRecorded)
    {
        tryState(disk.synchronised(), isRecorded);
        tryState(disk.current(), isRecorded);
        for (std::size_t i = 0; i < kRandomStates; ++i)
        {
            tryState(disk.anyState(m_states), isRecorded);
        }
    }

    void tryState(DiskModel::Files const& files, bool isRecorded)
    {
        ++m_states;
        layOut(files, m_laidOut);
        std::string const path = m_laidOut.file("faults.db");
        FaultRecorder recorder;
        bool const isOpen = recorder.open(path) == HISTORY_OK;
        m_losses += isOpen && isWhole(path) && holds(path, isRecorded) ? 0 : 1;
    }

    static bool holds(std::string const& path, bool isRecorded)
    {
        RawDb raw(path);
        std::string const after = raw.value("SELECT count(*) FROM FdbFaultTbl WHERE Description = 'after'");
        return raw.value("SELECT count(*) FROM FdbFaultTbl WHERE Description = 'before'") == std::to_string(kRows) &&
               raw.value("SELECT count(*) FROM FdbFaultTbl WHERE Description = 'half done'") == "0" &&
               (after == "1" || (after == "0" && !isRecorded));
    }

    TempDir const m_directory;
    TempDir const m_laidOut;
    std::string const m_path = m_directory.file("faults.db");
    std::vector<DiskOperation> m_crashed; ///< how the files came to be that the crash left
    std::vector<DiskOperation> m_operations;
    std::size_t m_recorded = 0; ///< number of operations until the fault was acknowledged
};

} // namespace

TEST_P(KeptJournalPowerCut, TheTransactionStaysUndoneAndNothingAcknowledgedIsLost)
{
    cutThePower(false);
    std::cout << "power cuts, a journal that cannot be deleted: " << m_states << " states opened, " << m_losses
              << " losses" << std::endl;
    EXPECT_GT(m_states, kRandomStates);
    EXPECT_EQ(m_losses, 0U);
}

// Control: it shows that the harness detects losses.
TEST_P(KeptJournalPowerCut, LossesOnADiskThatIgnoresSynchronisationAreCaught)
{
    cutThePower(true);
    EXPECT_GT(m_losses, 0U);
}

INSTANTIATE_TEST_SUITE_P(RolledBackBy, KeptJournalPowerCut, testing::Bool(),
                         [](testing::TestParamInfo<bool> const& opener)
                         { return opener.param ? "TheFacade" : "TheRecorder"; });
