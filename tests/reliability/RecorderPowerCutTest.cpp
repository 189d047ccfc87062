// The power fails after each of a recorder's operations on the disk, and a recorder opens the files that are left.

#include "PowerCutSupport.h"
#include "RecorderCutRun.h"
#include "SilentConsole.h"

#include <algorithm>
#include <iostream>

namespace
{

using namespace firaim;

constexpr std::size_t kRandomStates = 4;
constexpr std::uint64_t kLaterCode = 4711;

/// Checks states of the disk after each cut.
class RecorderPowerCut : public testing::Test
{
protected:
    RecorderPowerCut() { m_run.run(); }

    /// Cuts the power at every operation on the disk.
    void cutThePower()
    {
        SilentConsole const silence;
        DiskModel disk;
        auto const& operations = m_run.operations();
        for (std::size_t index = 0; index < operations.size(); ++index)
        {
            if (index % kCutStride == 0)
            {
                cut(disk, index);
            }
            disk.apply(operations[index]);
        }
        cut(disk, operations.size());
    }

    /// Does the same at some of the operations, with a disk that ignores synchronisation once the file was created.
    void cutThePowerOfADiskThatLies()
    {
        constexpr std::size_t kStride = 5;
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
            if (index >= first && index % kStride == 0)
            {
                cut(disk, index);
            }
            auto const kind = operations[index].kind;
            if (kind != DiskOperation::SYNC_FILE && kind != DiskOperation::SYNC_DIRECTORY)
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
                  << " losses" << std::endl;
    }

    RecorderCutRun m_run;
    std::size_t m_cuts = 0;
    std::size_t m_states = 0;
    std::size_t m_losses = 0;
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
        std::size_t const count = index < m_run.calls().front().end ? 1 : kRandomStates;
        for (std::size_t i = 0; i < count; ++i)
        {
            tryState(disk.anyState(index * kRandomStates + i), index, "random state");
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
        if (!isWhole(path))
        {
            return "SQLite finds damage";
        }
        std::optional<Recorded> const content = readRecorded(path);
        if (!content || !call.allows(*content))
        {
            return "neither what was there nor what the call leaves";
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

    TempDir const m_directory;
};

} // namespace

TEST_F(RecorderPowerCut, LosesNothingThatWasAcknowledgedAndSplitsNoCall)
{
    cutThePower();
    print("as delivered");
    EXPECT_GT(m_states, m_cuts);
    EXPECT_EQ(m_losses, 0U) << m_firstLosses;
}

// Control: it shows that the harness detects losses.
TEST_F(RecorderPowerCut, LossesOnADiskThatIgnoresSynchronisationAreCaught)
{
    cutThePowerOfADiskThatLies();
    print("control with a disk that ignores synchronisations");
    EXPECT_GT(m_losses, 0U);
}
