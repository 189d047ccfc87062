// The power fails after each of a recorder's operations on the disk, and a recorder opens the files that are left.

#include "PowerCutSupport.h"
#include "RecorderCutRun.h"
#include "SilentConsole.h"

#include <algorithm>
#include <iostream>
#include <set>

namespace
{

using namespace firaim;

constexpr std::size_t kControlStride = 5 * kCutStride;
constexpr std::uint64_t kLaterCode = 4711;
constexpr char kContentLost[] = "neither what was there nor what the call leaves";

/// Checks states of the disk after each cut.
class RecorderPowerCut : public testing::Test
{
protected:
    explicit RecorderPowerCut(RecorderCutRun::Journal journal, std::string const& pragma = {})
        : m_run(journal, pragma), m_randomStates(m_run.hasLog() ? 5 : 4)
    {
        m_run.run();
    }

    /// Cuts the power at every operation on the disk, or at one in `stride` of them.
    void cutThePower(std::size_t stride = kCutStride)
    {
        SilentConsole const silence;
        DiskModel disk;
        auto const& operations = m_run.operations();
        for (std::size_t index = 0; index < operations.size(); ++index)
        {
            if (index % stride == 0)
            {
                cut(disk, index);
            }
            disk.apply(operations[index]);
        }
        cut(disk, operations.size());
    }

    /// Does the same at some of the operations, with a disk that ignores some synchronisations once the file was
    /// created.
    void cutThePowerOfADiskThatIgnores(std::set<DiskOperation::Kind> const& ignored)
    {
        SilentConsole const silence;
        DiskModel disk;
        auto const& operations = m_run.operations();
        std::size_t const first = m_run.calls().front().end;
        for (std::size_t index = 0; index < operations.size(); ++index)
        {
            if (index == first)
            {
                disk.synchronise();
            }
            if (index >= first && index % kControlStride == 0)
            {
                cut(disk, index);
            }
            if (index < first || ignored.count(operations[index].kind) == 0)
            {
                disk.apply(operations[index]);
            }
        }
    }

    void print(std::string const& title) const
    {
        std::cout << "recorder power cuts, " << title << ": " << m_run.calls().size() << " calls, " << m_run.rows()
                  << " rows, " << m_run.pruned() << " of them removed; " << m_cuts << " of "
                  << m_run.operations().size() + 1 << " cut points, " << m_states << " states opened, " << m_losses
                  << " losses; " << m_run.databaseSynchronisations() << " synchronisations of the file, "
                  << m_run.logStarts() << " starts of a log" << std::endl;
    }

    RecorderCutRun m_run;
    std::size_t m_cuts = 0;
    std::size_t m_states = 0;
    std::size_t m_losses = 0;
    std::size_t m_damages = 0; ///< the losses in which the file could not be used
    std::string m_firstLosses;

private:
    void cut(DiskModel const& disk, std::size_t index)
    {
        ++m_cuts;
        tryState(disk.current(), index, "everything pending kept");
        if (!disk.isPending())
        {
            return;
        }
        tryState(disk.synchronised(), index, "nothing pending kept");
        // Fewer states during creation, as a recorder waits half a second when it finds a journal without its file.
        std::size_t const count = index < m_run.calls().front().end ? 1 : m_randomStates;
        for (std::size_t i = 0; i < count; ++i)
        {
            tryState(disk.anyState(index * m_randomStates + i), index, "random state");
        }
    }

    void tryState(DiskModel::Files const& files, std::size_t index, char const* kind)
    {
        // A call has returned if its last operation was before the cut.
        auto const isUnderWay = [index](RecorderCutRun::Call const& call) { return call.end > index; };
        auto const& calls = m_run.calls();
        auto const found = std::find_if(calls.begin(), calls.end(), isUnderWay);
        RecorderCutRun::Call over = calls.back();
        over.before = over.after;
        RecorderCutRun::Call const& call = found != calls.end() ? *found : over;
        ++m_states;
        layOut(files, m_directory);
        std::string const problem = problemAfter(call);
        if (!problem.empty())
        {
            ++m_losses;
            m_damages += problem != kContentLost ? 1U : 0U;
            m_firstLosses +=
                m_losses > 10 ? ""
                              : problem + " at cut " + std::to_string(index) + " in " + call.name + ", " + kind + '\n';
        }
    }

    /// Describes the error in the files that a cut during `call` left; empty if there is none.
    std::string problemAfter(RecorderCutRun::Call const& call) const
    {
        std::string const path = m_directory.file(RecorderCutRun::kFileName);
        FaultRecorder recorder;
        int const opened = recorder.open(path);
        if (opened != HISTORY_OK)
        {
            return std::string("open gives ") + historyResultName(opened);
        }
        m_run.checkpointEarly();
        if (!isWhole(path))
        {
            return "SQLite finds damage";
        }
        std::optional<Recorded> const content = readRecorded(path);
        if (!content || !call.allows(*content))
        {
            return kContentLost;
        }
        FaultEvent event;
        event.code = kLaterCode;
        event.description = "after the cut";
        Receipt const receipt = recorder.record(event);
        std::optional<Recorded> const later = readRecorded(path);
        bool const isRecorded = receipt.result == HISTORY_OK && later && later->counts.count(kLaterCode) == 1 &&
                                later->counts.at(kLaterCode) == 1 && later->faults.size() > content->faults.size() &&
                                later->faults.compare(0, content->faults.size(), content->faults) == 0;
        return isRecorded ? "" : "cannot record on";
    }

    std::size_t const m_randomStates; ///< at each cut; more with a log, where a commit has fewer cuts
    TempDir const m_directory;
};

class RecorderPowerCutWith : public RecorderPowerCut, public testing::WithParamInterface<RecorderCutRun::Journal>
{
protected:
    RecorderPowerCutWith() : RecorderPowerCut(GetParam()) {}

    static char const* name(RecorderCutRun::Journal journal)
    {
        return journal == RecorderOptions::WRITE_AHEAD_LOG ? "write-ahead log" : "rollback journal";
    }
};

class RecorderPowerCutWithLog : public RecorderPowerCut
{
protected:
    RecorderPowerCutWithLog() : RecorderPowerCut(RecorderOptions::WRITE_AHEAD_LOG) {}
};

class RecorderPowerCutWithNormalLog : public RecorderPowerCut
{
protected:
    RecorderPowerCutWithNormalLog() : RecorderPowerCut(RecorderOptions::WRITE_AHEAD_LOG, "PRAGMA synchronous=NORMAL") {}
};

} // namespace

TEST_P(RecorderPowerCutWith, LosesNothingThatWasAcknowledgedAndSplitsNoCall)
{
    cutThePower();
    print(name(GetParam()));
    EXPECT_GT(m_states, m_cuts);
    EXPECT_EQ(m_losses, 0U) << m_firstLosses;
}

// Control: it shows that the harness detects losses.
TEST_P(RecorderPowerCutWith, LossesOnADiskThatIgnoresSynchronisationAreCaught)
{
    cutThePowerOfADiskThatIgnores({DiskOperation::SYNC_FILE, DiskOperation::SYNC_DIRECTORY});
    print(std::string(name(GetParam())) + ", control with a disk that ignores synchronisations");
    EXPECT_GT(m_losses, 0U);
}

// Control: a log is a new file, and its name is lost unless the folder is synchronised.
TEST_F(RecorderPowerCutWithLog, LossesOnADiskThatIgnoresSynchronisationOfTheFolderAreCaught)
{
    cutThePowerOfADiskThatIgnores({DiskOperation::SYNC_DIRECTORY});
    print("write-ahead log, control with a disk that ignores synchronisations of the folder");
    EXPECT_GT(m_losses, 0U);
}

// Control: without a synchronisation of the log at each commit, acknowledged faults are lost, but the file stays whole,
// as SQLite promises: the model is not stricter than a disk.
TEST_F(RecorderPowerCutWithNormalLog, LossesAreCaughtAndTheFileStaysWhole)
{
    cutThePower(kControlStride);
    print("write-ahead log, control with synchronous=NORMAL");
    EXPECT_GT(m_losses, 0U);
    EXPECT_EQ(m_damages, 0U) << m_firstLosses;
}

INSTANTIATE_TEST_SUITE_P(EachJournal, RecorderPowerCutWith,
                         testing::Values(RecorderOptions::ROLLBACK_JOURNAL, RecorderOptions::WRITE_AHEAD_LOG),
                         [](auto const& tested)
                         { return tested.param == RecorderOptions::WRITE_AHEAD_LOG ? "Log" : "Rollback"; });
