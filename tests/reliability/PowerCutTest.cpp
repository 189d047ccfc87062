// The power fails after each operation on the disk, and the library opens the files that are left.

#include "DiskModelVfs.h"
#include "PowerCutSupport.h"
#include "PowerCutWorkload.h"
#include "TestSupport.h"

#include <db/Sqlite3Db.h>
#include <fdb/FaultDb.h>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace
{

constexpr int kOperationCount = 360;
constexpr int kControlOperationCount = 60;
constexpr std::size_t kRandomStates = 5;
constexpr char kLog[] = "PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=30";

/// The errors in a state.
enum Loss
{
    LOSS_NONE,
    LOSS_REFUSED,  ///< the library does not serve the file
    LOSS_DAMAGED,  ///< SQLite finds the file damaged
    LOSS_CONTENTS, ///< an acknowledged operation is missing, or the file holds a partial or an unknown one
    LOSS_COUNT
};

constexpr char const* kLossNames[LOSS_COUNT] = {"no loss", "file refused", "file damaged", "content lost"};

/// One state of the disk, opened by the library.
class Recovery
{
public:
    explicit Recovery(std::string const& path) : m_path(path) {}

    ~Recovery() { static_cast<void>(m_db.closeDb()); } // Fails in states in which the database could not be opened.

    Recovery(Recovery const&) = delete;
    Recovery& operator=(Recovery const&) = delete;

    /// Checks the file after a cut between two operations, or during an operation on an existing file.
    Loss checkService(std::vector<Content> const& allowed)
    {
        return m_db.openDb(m_path, false) == RESULT_OK ? checkContent(allowed) : LOSS_REFUSED;
    }

    /// Checks the file after a cut during `createDb`: it may be unusable, but creating it again must succeed.
    Loss checkCreation(std::vector<Content> const& allowed)
    {
        int const opened = m_db.openDb(m_path, false);
        if (opened == RESULT_OK)
        {
            Loss const loss = checkContent(allowed);
            if (loss != LOSS_NONE || m_db.closeDb() != RESULT_OK)
            {
                return loss == LOSS_NONE ? LOSS_REFUSED : loss;
            }
        }
        else if (opened != RESULT_INVALID_STATE && opened != RESULT_FAILED && opened != RESULT_VERSION_MISMATCH)
        {
            return LOSS_REFUSED;
        }
        Fault fault = makeFault();
        if (m_db.createDb(m_path, true) != RESULT_OK || m_db.openDb(m_path, false) != RESULT_OK ||
            m_db.insert(fault) != RESULT_OK)
        {
            return LOSS_REFUSED;
        }
        Content content;
        content.faults[1] = std::make_shared<Fault const>(fault);
        return fault.EntryId == 1 ? checkContent({content}) : LOSS_CONTENTS;
    }

private:
    Loss checkContent(std::vector<Content> const& allowed)
    {
        if (!isWhole(m_path))
        {
            return LOSS_DAMAGED;
        }
        FaultTbl faults;
        FaultStatisticTbl statistics;
        if (m_db.getFaultTbl(faults) < 0 || m_db.getFaultStatisticTbl(statistics) < 0)
        {
            return LOSS_REFUSED;
        }
        bool const isAllowed =
            std::any_of(allowed.begin(), allowed.end(),
                        [&](Content const& content)
                        { return isSame(content.faults, faults) && isSame(content.statistics, statistics); });
        return isAllowed ? LOSS_NONE : LOSS_CONTENTS;
    }

    std::string const m_path;
    FaultDb m_db;
};

/// Writes the states of a disk as files, lets the library open each, and counts the losses.
class States
{
public:
    /// Tries the states of `disk` at a cut during `underWay`; all earlier operations have returned. Each `seed` gives
    /// other random states.
    void tryAll(DiskModel const& disk, Act const& underWay, std::size_t seed)
    {
        ++m_cuts;
        if (!disk.isPending())
        {
            tryState("nothing pending", m_nothingPending, disk.current(), underWay, seed);
            return;
        }
        tryState("nothing pending kept", m_synchronised, disk.synchronised(), underWay, seed);
        tryState("everything pending kept", m_current, disk.current(), underWay, seed);
        for (std::size_t i = 0; i < kRandomStates; ++i)
        {
            tryState("random state", m_random, disk.anyState(seed * kRandomStates + i), underWay, seed);
        }
    }

    std::size_t cuts() const { return m_cuts; }
    std::size_t opened() const { return m_nothingPending + m_synchronised + m_current + m_random; }
    std::size_t losses(Loss kind) const { return m_losses[kind]; }
    std::size_t losses() const { return opened() - m_losses[LOSS_NONE]; }
    std::string const& firstLosses() const { return m_firstLosses; }

    /// Prints the numbers of the run and adds them to the test's record.
    void print(std::string const& title) const
    {
        std::cout << "power cuts, " << title << ": " << m_cuts << " cut points";
        if (kCutStride > 1)
        {
            std::cout << " (one in " << kCutStride << " of them, to save time)";
        }
        std::cout << ", " << opened() << " states opened (" << m_nothingPending << " with nothing pending, "
                  << m_synchronised << " nothing pending kept, " << m_current << " everything pending kept, "
                  << m_random << " random), losses: " << losses(LOSS_CONTENTS) << " of content, "
                  << losses(LOSS_DAMAGED) << " damaged, " << losses(LOSS_REFUSED) << " refused" << std::endl;
        testing::Test::RecordProperty("cutPoints", std::to_string(m_cuts));
        testing::Test::RecordProperty("statesOpened", std::to_string(opened()));
        testing::Test::RecordProperty("losses", std::to_string(losses()));
    }

private:
    void tryState(char const* kind, std::size_t& count, DiskModel::Files const& files, Act const& underWay,
                  std::size_t seed)
    {
        ++count;
        layOut(files, m_directory);
        Recovery recovery(m_directory.file(kFileName));
        Loss const loss =
            underWay.isCreation ? recovery.checkCreation(underWay.contents) : recovery.checkService(underWay.contents);
        ++m_losses[loss];
        if (loss != LOSS_NONE && losses() <= 10)
        {
            m_firstLosses += std::string(kLossNames[loss]) + " at cut " + std::to_string(seed) + " in " +
                             underWay.name + ", " + kind + "\n";
        }
    }

    TempDir const m_directory;
    std::size_t m_cuts = 0;
    std::size_t m_nothingPending = 0;
    std::size_t m_synchronised = 0;
    std::size_t m_current = 0;
    std::size_t m_random = 0;
    std::size_t m_losses[LOSS_COUNT] = {};
    std::string m_firstLosses;
};

/// Iterates over the cuts of a workload.
class Cuts
{
public:
    explicit Cuts(Workload const& workload) : m_workload(workload), m_disk(workload.firstDisk())
    {
        m_over.name = "nothing";
        m_over.contents = {workload.acts().back().contents.back()};
        passActs();
    }

    DiskModel const& disk() const { return m_disk; }

    /// The operation during which the power fails.
    Act const& underWay() const { return m_act < m_workload.acts().size() ? m_workload.acts()[m_act] : m_over; }

    std::size_t index() const { return m_index; }
    bool isLast() const { return m_index == m_workload.operations().size(); }

    void next()
    {
        m_disk.apply(m_workload.operations()[m_index]);
        ++m_index;
        passActs();
    }

private:
    void passActs()
    {
        while (m_act < m_workload.acts().size() && m_workload.acts()[m_act].end <= m_index)
        {
            ++m_act;
        }
    }

    Workload const& m_workload;
    DiskModel m_disk;
    Act m_over;
    std::size_t m_index = 0;
    std::size_t m_act = 0;
};

void tryEveryCut(Workload const& workload, States& states, std::size_t firstSeed = 0)
{
    for (Cuts cuts(workload);; cuts.next())
    {
        if (cuts.index() % kCutStride == 0 || cuts.isLast())
        {
            states.tryAll(cuts.disk(), cuts.underWay(), firstSeed + cuts.index());
        }
        if (cuts.isLast())
        {
            return;
        }
    }
}

class PowerCutTest : public testing::Test
{
protected:
    /// Runs the workload and cuts the power at every operation on the disk.
    void cutThePower(std::string const& title, std::string const& pragmas, int operationCount)
    {
        Workload workload(dir.path(), pragmas);
        {
            Console const silence;
            workload.run(operationCount);
            tryEveryCut(workload, states);
        }
        states.print(title + ", " + std::to_string(workload.acts().size()) + " operations");
    }

    /// Chooses a state that a cut leaves; none: the cut is skipped.
    using Choose = std::optional<DiskModel::Files> (*)(Cuts const&);
    using GoOn = void (Workload::*)(Act const&);

    /// Runs the workload. After some of the cuts, runs `goOn` and cuts the power again at each of its operations on the
    /// disk.
    void cutThePowerTwice(std::string const& title, std::string const& pragmas, Choose choose, GoOn goOn)
    {
        std::size_t firstCuts = 0;
        {
            Console const silence;
            Workload workload(dir.path(), pragmas);
            workload.run(kOperationCount);
            for (Cuts cuts(workload); !cuts.isLast() && !HasFailure(); cuts.next())
            {
                if (auto const files = choose(cuts))
                {
                    ++firstCuts;
                    cutAgain(cuts, *files, pragmas, goOn);
                }
            }
        }
        states.print(title + ", after " + std::to_string(firstCuts) + " first cuts");
    }

    /// Chooses a state at some of the cuts, of each kind in turn.
    template <std::size_t Stride>
    static std::optional<DiskModel::Files> someStates(Cuts const& cuts)
    {
        if (cuts.index() % Stride != 0)
        {
            return std::nullopt;
        }
        switch (cuts.index() / Stride % 3)
        {
        case 0:
            return cuts.disk().synchronised();
        case 1:
            return cuts.disk().current();
        default:
            return cuts.disk().anyState(cuts.index());
        }
    }

    /// Chooses states in which the file is damaged without its journal.
    static std::optional<DiskModel::Files> halfWrittenFiles(Cuts const& cuts)
    {
        constexpr std::size_t kStride = 29;
        if (cuts.index() % kStride != 0)
        {
            return std::nullopt;
        }
        auto const files = cuts.disk().anyState(cuts.index());
        auto const file = files.find(kFileName);
        if (file == files.end() || files.size() == 1 || cuts.underWay().isCreation)
        {
            return std::nullopt;
        }
        TempDir const directory;
        layOut({*file}, directory);
        return isWhole(directory.file(kFileName)) ? std::nullopt : std::make_optional(files);
    }

    States states;

private:
    void cutAgain(Cuts const& cuts, DiskModel::Files const& files, std::string const& pragmas, GoOn goOn)
    {
        layOut(files, dirAfterCut);
        Workload workload(dirAfterCut.path(), pragmas);
        (workload.*goOn)(cuts.underWay());
        constexpr std::size_t kSeedsForEach = 1000;
        tryEveryCut(workload, states, (cuts.index() + 1) * kSeedsForEach);
    }

    TempDir const dir;
    TempDir const dirAfterCut;
};

} // namespace

TEST_F(PowerCutTest, AcknowledgedOperationsOutlastEveryCut)
{
    cutThePower("as delivered", "", kOperationCount);
    EXPECT_GT(states.opened(), 0U);
    EXPECT_EQ(states.losses(), 0U) << states.firstLosses();
}

TEST_F(PowerCutTest, AcknowledgedOperationsOutlastASecondCutDuringOrAfterRecovery)
{
    cutThePowerTwice("during and after recovery", "", someStates<61>, &Workload::resume);
    EXPECT_GT(states.opened(), 0U);
    EXPECT_EQ(states.losses(), 0U) << states.firstLosses();
}

TEST_F(PowerCutTest, AcknowledgedOperationsOutlastASecondCutWithALog)
{
    cutThePowerTwice("write-ahead log, during and after recovery", kLog, someStates<61>, &Workload::resume);
    EXPECT_GT(states.opened(), 0U);
    EXPECT_EQ(states.losses(), 0U) << states.firstLosses();
}

// The old file may return, but only together with the journal that it needs.
TEST_F(PowerCutTest, AHalfWrittenFileIsReplacedOrStillRecovered)
{
    cutThePowerTwice("replacing a half-written file", "", halfWrittenFiles, &Workload::replace);
    EXPECT_GT(states.opened(), 0U);
    EXPECT_EQ(states.losses(), 0U) << states.firstLosses();
}

TEST_F(PowerCutTest, AcknowledgedOperationsOutlastEveryCutWithALog)
{
    cutThePower("write-ahead log", kLog, kOperationCount / 2);
    EXPECT_GT(states.opened(), 0U);
    EXPECT_EQ(states.losses(), 0U) << states.firstLosses();
}

// Controls: they show that the harness detects losses.

TEST_F(PowerCutTest, LossesWithoutSynchronisationAreCaught)
{
    cutThePower("control with synchronous=OFF", "PRAGMA synchronous=OFF", kControlOperationCount);
    EXPECT_GT(states.losses(LOSS_CONTENTS), 0U);
    EXPECT_GT(states.losses(LOSS_DAMAGED), 0U);
}

// SQLite unlinks the journal and does not synchronise the directory, so the journal returns and rolls back an
// acknowledged operation. The file stays whole, as SQLite promises: the model is not stricter than a disk.
TEST_F(PowerCutTest, LossesWithADeletedJournalAreCaughtAndTheFileStaysWhole)
{
    cutThePower("control with SQLite's default journal", "PRAGMA journal_mode=DELETE; PRAGMA synchronous=FULL",
                kControlOperationCount);
    EXPECT_GT(states.losses(LOSS_CONTENTS), 0U);
    EXPECT_EQ(states.losses(LOSS_DAMAGED), 0U) << states.firstLosses();
    EXPECT_EQ(states.losses(LOSS_REFUSED), 0U) << states.firstLosses();
}

// The same journal mode, but SQLite synchronises the directory after each removal: so only this caused the losses
// above.
TEST_F(PowerCutTest, NothingIsLostWithAJournalThatIsDeletedForGood)
{
    cutThePower("control with a journal deleted for good", "PRAGMA journal_mode=DELETE; PRAGMA synchronous=EXTRA",
                kControlOperationCount);
    EXPECT_EQ(states.losses(), 0U) << states.firstLosses();
}
