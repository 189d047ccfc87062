// Failing storage: what a caller sees, and what the file holds, when the calls below SQLite fail one after the other.

#include "FailingVfs.h"
#include "FaultWorkload.h"
#include "SilentConsole.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <string>

namespace
{

/// What came of all workloads of one test.
struct Counts
{
    unsigned int faults = 0;
    unsigned int workloads = 0;
    std::size_t unacknowledged = 0;
};

class StorageFaultTest : public testing::TestWithParam<FailingVfs::kind_t>
{
protected:
    static void SetUpTestSuite() { FailingVfs::install(); }

    /// Fails each call of the kind in turn, until the workload makes fewer calls than that.
    void failEach(FaultWorkload::start_t start, FaultPlan::persistence_t persistence)
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

    FaultWorkload::tolerance_t tolerance(FaultPlan::persistence_t persistence) const
    {
        bool const isHarmless = GetParam() == FailingVfs::SHORT_READ || GetParam() == FailingVfs::SHORT_WRITE;
        bool const isRepeated = GetParam() == FailingVfs::LOCK_BUSY && persistence == FaultPlan::ONCE;
        return isHarmless || isRepeated ? FaultWorkload::TOLERATES : FaultWorkload::FAILS;
    }

    /// Whether an operation can have stored its record by the time that a call of this kind fails: its last steps are
    /// to void the journal, which is written and synchronised, and to unlock the file.
    static bool isLateInCommit(FailingVfs::kind_t kind)
    {
        return kind == FailingVfs::FULL_DISK_MIDWAY || kind == FailingVfs::SYNC || kind == FailingVfs::UNLOCK;
    }

    Counts m_counts;
};

std::string nameOf(testing::TestParamInfo<FailingVfs::kind_t> const& info)
{
    std::string name;
    bool isStart = true;
    for (char const* c = FailingVfs::name(info.param); *c != '\0'; ++c)
    {
        name += isStart && *c != ' ' ? static_cast<char>(*c - 'a' + 'A') : *c;
        isStart = *c == ' ';
        if (isStart)
        {
            name.pop_back();
        }
    }
    return name;
}

TEST_P(StorageFaultTest, LosesNothingAcknowledgedAndLeavesTheObjectUsable)
{
    for (FaultWorkload::start_t const start :
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

INSTANTIATE_TEST_SUITE_P(Each, StorageFaultTest,
                         testing::Range(FailingVfs::OPEN, FailingVfs::KIND_COUNT, static_cast<FailingVfs::kind_t>(1)),
                         nameOf);

} // namespace
