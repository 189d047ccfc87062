// The power fails after each operation on the disk while a recorder sets a damaged file aside.

#include "PowerCutSupport.h"
#include "SilentConsole.h"

#include <history/FaultRecorder.h>

#include <algorithm>
#include <iostream>

namespace
{

using namespace firaim;

constexpr char kFileName[] = "faults.db";
constexpr std::size_t kPage = 4096;
constexpr std::size_t kRandomStates = 5;

RecorderOptions settingAside()
{
    RecorderOptions options;
    options.setAsideCode = 4711;
    return options;
}

FaultEvent eventOf(std::uint64_t code)
{
    FaultEvent event;
    event.code = code;
    event.description = std::string(300, 'd');
    return event;
}

/// Lets SQLite roll back the journal, so that the file has the content that a program reads.
void rollBack(std::string const& path)
{
    RawDb const raw(path);
    // Rolls back the journal first, then fails if the file is damaged.
    static_cast<void>(sqlite3_exec(raw.handle(), "SELECT count(*) FROM sqlite_master", nullptr, nullptr, nullptr));
}

/// The parameter is the page that is damaged.
class SetAsidePowerCut : public testing::TestWithParam<std::size_t>
{
protected:
    SetAsidePowerCut()
    {
        FaultRecorder recorder;
        EXPECT_EQ(recorder.open(m_path), HISTORY_OK);
        std::vector<FaultEvent> const events(60, eventOf(7));
        std::vector<Receipt> receipts;
        EXPECT_EQ(recorder.recordAll(events, receipts), HISTORY_OK);
        EXPECT_EQ(recorder.close(), HISTORY_OK);
        m_damaged = readFile(m_path);
        m_damaged.replace((GetParam() - 1) * kPage, kPage, kPage, '\x5a');
        writeFile(m_path, m_damaged);
    }

    /// Sets the file aside, and records the operations on the disk.
    void setAside()
    {
        auto& vfs = DiskModelVfs::getInstance();
        vfs.start(m_directory.path());
        for (DiskOperation const& operation : vfs.operations())
        {
            m_disk.apply(operation);
        }
        m_disk.synchronise();
        std::size_t const first = vfs.operations().size();
        FaultRecorder recorder;
        EXPECT_EQ(recorder.open(m_path, settingAside()), HISTORY_OK) << recorder.lastProblem();
        EXPECT_EQ(recorder.close(), HISTORY_OK);
        m_operations.assign(vfs.operations().begin() + static_cast<std::ptrdiff_t>(first), vfs.operations().end());
        vfs.stop();
        EXPECT_TRUE(isCopyWhole(filesIn(m_directory.path())));
    }

    void cutThePower()
    {
        for (std::size_t index = 0; index <= m_operations.size(); ++index)
        {
            if (index % kCutStride == 0 || index == m_operations.size())
            {
                SCOPED_TRACE("cut " + std::to_string(index));
                ++cuts;
                tryState(m_disk.synchronised());
                tryState(m_disk.current());
                for (std::size_t i = 0; i < kRandomStates; ++i)
                {
                    tryState(m_disk.anyState(index * kRandomStates + i));
                }
            }
            if (index < m_operations.size())
            {
                m_disk.apply(m_operations[index]);
            }
        }
    }

    std::size_t cuts = 0;
    std::size_t states = 0;
    std::size_t copied = 0; ///< number of states with a whole copy

private:
    bool isCopyWhole(DiskModel::Files const& files) const
    {
        return std::any_of(files.begin(), files.end(),
                           [this](auto const& file)
                           { return file.first.find(".aside-") != std::string::npos && file.second == m_damaged; });
    }

    void tryState(DiskModel::Files const& files)
    {
        ++states;
        layOut(files, m_laidOut);
        std::string const path = m_laidOut.file(kFileName);
        if (isCopyWhole(files))
        {
            ++copied;
        }
        else
        {
            rollBack(path);
            EXPECT_TRUE(readFile(path) == m_damaged) << "neither the file nor a copy of it is whole";
            layOut(files, m_laidOut);
        }
        FaultRecorder recorder;
        EXPECT_EQ(recorder.open(path, settingAside()), HISTORY_OK) << recorder.lastProblem();
        EXPECT_EQ(recorder.record(eventOf(8)).result, HISTORY_OK) << recorder.lastProblem();
        EXPECT_EQ(recorder.close(), HISTORY_OK);
        EXPECT_TRUE(isWhole(path));
        EXPECT_TRUE(isCopyWhole(filesIn(m_laidOut.path())));
        EXPECT_EQ(RawDb(path).value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "4711,8");
    }

    TempDir const m_directory;
    TempDir const m_laidOut;
    std::string const m_path = m_directory.file(kFileName);
    std::string m_damaged;
    DiskModel m_disk;
    std::vector<DiskOperation> m_operations;
};

} // namespace

TEST_P(SetAsidePowerCut, LeavesTheDamagedFileAsItWasOrAWholeCopyOfIt)
{
    {
        SilentConsole const silence;
        setAside();
        cutThePower();
    }
    std::cout << "recorder power cuts, setting aside a file with page " << GetParam() << " damaged: " << cuts
              << " cut points, " << states << " states opened, " << copied << " of them with a whole copy" << std::endl;
    EXPECT_GT(copied, 0U);
    EXPECT_LT(copied, states);
}

INSTANTIATE_TEST_SUITE_P(DamagedPages, SetAsidePowerCut, testing::Values(1, 2), testing::PrintToStringParamName());
