// Each call below SQLite fails in turn: results that a caller sees, and the content of the file.

#include "FailingVfs.h"
#include "FaultWorkload.h"
#include "SilentConsole.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <string>

namespace
{

/// Sums over all workloads of a test.
struct Counts
{
    unsigned int faults = 0;
    unsigned int workloads = 0;
    std::size_t unacknowledged = 0;
};

class StorageFaultTest : public testing::TestWithParam<FailingVfs::Kind>
{
protected:
    static void SetUpTestSuite() { FailingVfs::install(); }

    /// Makes each call of the kind fail in turn, until the workload makes no more calls.
    void failEach(FaultWorkload::Start start, FaultPlan::Persistence persistence)
    {
        FailingVfs::select(GetParam());
        FaultPlan& plan = FailingVfs::plan();
        unsigned int fired = 1;
        for (unsigned int n = 1; fired != 0 && !HasFailure(); ++n)
        {
            SCOPED_TRACE("call " + std::to_string(n) + ", start " + std::to_string(start) +
                         (persistence == FaultPlan::ONCE ? ", once" : ", until cleared"));
            SilentConsole const console;
            FaultWorkload workload(plan, start, tolerance(persistence), 0);
            plan.arm(n, persistence);
            workload.run();
            plan.clear();
            fired = plan.fired();
            workload.goOn();
            workload.close();
            m_counts.faults += fired;
            ++m_counts.workloads;
            m_counts.unacknowledged += workload.unacknowledged();
        }
    }

    FaultWorkload::Tolerance tolerance(FaultPlan::Persistence persistence) const
    {
        bool const isHarmless = GetParam() == FailingVfs::SHORT_READ || GetParam() == FailingVfs::SHORT_WRITE;
        bool const isRepeated = GetParam() == FailingVfs::LOCK_BUSY && persistence == FaultPlan::ONCE;
        return isHarmless || isRepeated ? FaultWorkload::TOLERATES : FaultWorkload::FAILS;
    }

    /// Returns true when the record may be stored before a call of this kind fails: the last steps of a commit are to
    /// invalidate the journal, by a write and a synchronisation, and to unlock the file.
    static bool isLateInCommit(FailingVfs::Kind kind)
    {
        return kind == FailingVfs::FULL_DISK_MIDWAY || kind == FailingVfs::SYNC || kind == FailingVfs::UNLOCK;
    }

    Counts m_counts;
};

TEST_P(StorageFaultTest, LosesNothingAcknowledgedAndLeavesTheObjectUsable)
{
    for (FaultWorkload::Start const start :
         {FaultWorkload::NEW_FILE, FaultWorkload::CRASHED_FILE, FaultWorkload::WAL_FILE})
    {
        failEach(start, FaultPlan::ONCE);
        failEach(start, FaultPlan::UNTIL_CLEARED);
    }
    std::printf("storage faults: %-16s %6u calls failed in %5u workloads, %zu unacknowledged records stored whole\n",
                FailingVfs::name(GetParam()), m_counts.faults, m_counts.workloads, m_counts.unacknowledged);
    EXPECT_GT(m_counts.faults, 0U) << "no call of this kind was made";
    EXPECT_TRUE(m_counts.unacknowledged == 0 || isLateInCommit(GetParam()));
}

/// A file that another connection has locked. Waits are only added up, so no time passes.
class LockedFileTest : public testing::Test
{
protected:
    static constexpr unsigned int kRows = 5;

    static void SetUpTestSuite() { FailingVfs::install(); }

    LockedFileTest()
    {
        FailingVfs::select(FailingVfs::KIND_COUNT);
        EXPECT_EQ(db.createDb(path, false), 0);
        EXPECT_EQ(db.openDb(path, false), 0);
        for (unsigned int i = 1; i <= kRows; ++i)
        {
            Fault fault = makeFault(i);
            FaultStatistic statistic = makeStatistic(i);
            fault.RdbStartupId = statistic.RdbStartupId = 1;
            EXPECT_EQ(db.insert(fault), 0);
            EXPECT_EQ(db.insert(statistic), 0);
        }
        static_cast<void>(FailingVfs::takeSleptMs());
    }
    ~LockedFileTest() override { EXPECT_EQ(db.closeDb(), 0); }

    TempDir const dir;
    std::string const path = dir.file("faults.db");
    SilentConsole const console;
    FaultDb db;
};

TEST_F(LockedFileTest, IsWaitedForUntilTheLockIsReleased)
{
    constexpr int kTries = 1000;
    RawDb other(path);
    other.exec("BEGIN IMMEDIATE");
    FailingVfs::whenSlept(kTries, [&other] { other.exec("COMMIT"); });
    Fault fault = makeFault(kRows + 1);
    EXPECT_EQ(db.insert(fault), 0);
    EXPECT_LT(FailingVfs::takeSleptMs(), 2 * kTries)
        << "pauses must be short, or a waiting call misses the gap between two writers";
}

TEST_F(LockedFileTest, IsGivenUpAfterFiveSeconds)
{
    RawDb other(path);
    other.exec("BEGIN IMMEDIATE");
    Fault fault = makeFault(kRows + 1);
    EXPECT_EQ(db.insert(fault), -2);
    EXPECT_EQ(FailingVfs::takeSleptMs(), 5000);
    EXPECT_EQ(db.insert(fault), -2);
    EXPECT_EQ(FailingVfs::takeSleptMs(), 5000) << "each operation has its own busy timeout";
    other.exec("COMMIT");
    EXPECT_EQ(db.insert(fault), 0);
}

TEST_F(LockedFileTest, IsWaitedForOnceByARenumberingOfManyRows)
{
    RawDb other(path);
    other.exec("BEGIN IMMEDIATE");
    EXPECT_EQ(db.updateRdbStartup(2, 1), 0);
    EXPECT_EQ(FailingVfs::takeSleptMs(), 5000);
    EXPECT_EQ(other.value("SELECT count(*) FROM FdbFaultTbl WHERE RdbStartupId=1"), std::to_string(kRows));
    Fault fault = makeFault(kRows + 1);
    EXPECT_EQ(db.insert(fault), -2);
    EXPECT_EQ(FailingVfs::takeSleptMs(), 5000) << "later operations have their own busy timeout";
    other.exec("COMMIT");
    EXPECT_EQ(db.updateRdbStartup(2, 1), 0);
    EXPECT_EQ(other.value("SELECT count(*) FROM FdbFaultTbl WHERE RdbStartupId=2"), std::to_string(kRows));
    EXPECT_EQ(other.value("SELECT count(*) FROM FdbFaultStatisticTbl WHERE RdbStartupId=2"), std::to_string(kRows));
}

TEST_F(LockedFileTest, IsWaitedForByEachRowOfARenumberingWhileRowsGetThrough)
{
    constexpr int kTries = 400;
    RawDb other(path);
    other.exec("BEGIN IMMEDIATE");
    long long slept = 0;
    for (unsigned int id = 2; id < 12; ++id)
    {
        FailingVfs::whenSlept(kTries, [&other] { other.exec("COMMIT"); });
        EXPECT_EQ(db.updateRdbStartup(id, id - 1), 0);
        EXPECT_EQ(other.value("SELECT count(*) FROM FdbFaultTbl WHERE RdbStartupId=" + std::to_string(id)),
                  std::to_string(kRows));
        slept += FailingVfs::takeSleptMs();
        other.exec("BEGIN IMMEDIATE");
    }
    EXPECT_GT(slept, 5000) << "the waits are too short to show the difference";
}

INSTANTIATE_TEST_SUITE_P(Each, StorageFaultTest,
                         testing::Range(FailingVfs::OPEN, FailingVfs::KIND_COUNT, static_cast<FailingVfs::Kind>(1)),
                         FailingVfs::testNameOf);

} // namespace
