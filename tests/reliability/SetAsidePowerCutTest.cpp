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
constexpr char kLogSuffix[] = "-wal";
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

/// A damaged file, and what lies beside it.
struct Damage
{
    std::size_t page; ///< the page of the file that is damaged
    bool hasLog;      ///< whether a write-ahead log holds the last commit
};

class SetAsidePowerCut : public testing::TestWithParam<Damage>
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
        if (GetParam().hasLog)
        {
            recordIntoLog();
        }
        m_damaged = readFile(m_path);
        m_damaged.replace((GetParam().page - 1) * kPage, kPage, kPage, '\x5a');
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
        EXPECT_EQ(RawDb(m_path).value("SELECT count(*) FROM FdbFaultTbl"), "1"); // Copies a log into the file.
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
    void recordIntoLog()
    {
        EXPECT_EQ(RawDb(m_path).value("PRAGMA journal_mode=WAL"), "wal");
        FaultRecorder recorder;
        EXPECT_EQ(recorder.open(m_path), HISTORY_OK);
        EXPECT_EQ(recorder.record(eventOf(7)).result, HISTORY_OK);
        std::string const file = readFile(m_path);
        m_log = readFile(m_path + kLogSuffix);
        EXPECT_NE(m_log, "");
        EXPECT_EQ(recorder.close(), HISTORY_OK);
        // As after a crash: closing may have emptied the log.
        writeFile(m_path, file);
        writeFile(m_path + kLogSuffix, m_log);
    }

    bool isLog(std::string const& bytes) const { return bytes.compare(0, m_log.size(), m_log) == 0; }

    bool isCopyWhole(DiskModel::Files const& files) const
    {
        auto const isCopied = [&](std::string const& name, auto const& isWhole)
        {
            return std::any_of(files.begin(), files.end(),
                               [&](auto const& file)
                               { return file.first.find(name + ".aside-") == 0 && isWhole(file.second); });
        };
        return isCopied(kFileName, [this](std::string const& bytes) { return bytes == m_damaged; }) &&
               (m_log.empty() || isCopied(std::string(kFileName) + kLogSuffix,
                                          [this](std::string const& bytes) { return isLog(bytes); }));
    }

    /// Whether the file, and its log if it has one, are as they were.
    bool isUnchanged(DiskModel::Files const& files, std::string const& path) const
    {
        if (m_log.empty())
        {
            rollBack(path);
            return readFile(path) == m_damaged;
        }
        auto const file = files.find(kFileName);
        auto const log = files.find(std::string(kFileName) + kLogSuffix);
        return file != files.end() && file->second == m_damaged && log != files.end() && isLog(log->second);
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
            EXPECT_TRUE(isUnchanged(files, path)) << "neither the file nor a copy of it is whole";
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
    std::string m_log; ///< the log beside the damaged file; empty: there is none
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
    std::cout << "recorder power cuts, setting aside a file with page " << GetParam().page << " damaged"
              << (GetParam().hasLog ? " beside a write-ahead log: " : ": ") << cuts << " cut points, " << states
              << " states opened, " << copied << " of them with a whole copy" << std::endl;
    EXPECT_GT(copied, 0U);
    EXPECT_LT(copied, states);
}

INSTANTIATE_TEST_SUITE_P(DamagedPages, SetAsidePowerCut,
                         testing::Values(Damage{1, false}, Damage{2, false}, Damage{1, true}, Damage{2, true}),
                         [](auto const& tested) {
                             return "Page" + std::to_string(tested.param.page) +
                                    (tested.param.hasLog ? "BesideALog" : "");
                         });
