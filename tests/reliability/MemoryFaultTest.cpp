// Each allocation in turn fails: results that a caller sees, and the content of the file.

#include "FailingMemory.h"
#include "FailingVfs.h"
#include "FaultWorkload.h"
#include "SilentConsole.h"

#include <db/Sqlite3Db.h>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

namespace
{

// A run in the emulator looks for errors in the code for that machine, for which a part of the allocations is enough.
#ifdef FIRAIM_TEST_IS_EMULATED
constexpr unsigned int kStride = 7;
constexpr char kStrideNote[] = " (one in 7, as each takes long here)";
#else
constexpr unsigned int kStride = 1;
constexpr char kStrideNote[] = "";
#endif

class MemoryFaultTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        FailingMemory::install();
        FailingVfs::install(); // Without waits for the disk. StorageFaultTest covers failing storage.
    }

    /// Makes each allocation in turn fail, or one in `kStride`, until the workload makes no more allocations.
    void failEach(FailingMemory::Kind kind, FaultWorkload::Start start, FaultPlan::Persistence persistence,
                  int dbgLevel)
    {
        runWorkload(kind, start, persistence, dbgLevel, 0); // The first run makes allocations that are kept.
        bool isStruck = true;
        for (unsigned int n = 1; isStruck && !HasFailure(); n += kStride)
        {
            SCOPED_TRACE("allocation " + std::to_string(n) + ", start " + std::to_string(start) + ", level " +
                         std::to_string(dbgLevel) + (persistence == FaultPlan::ONCE ? ", once" : ", until cleared"));
            long long const blocksBefore = FailingMemory::liveBlocks();
            long long const bytesBefore = sqlite3_memory_used();
            isStruck = runWorkload(kind, start, persistence, dbgLevel, n);
            EXPECT_EQ(FailingMemory::liveBlocks(), blocksBefore) << "a leak";
            EXPECT_EQ(sqlite3_memory_used(), bytesBefore) << "a leak in SQLite";
        }
    }

    void report(char const* what) const
    {
        std::printf("memory faults: %-14s %7u allocations failed in %6u workloads%s, %zu unacknowledged records "
                    "stored whole\n",
                    what, m_faults, m_workloads, kStrideNote, m_unacknowledged);
    }

    unsigned int m_faults = 0;
    unsigned int m_workloads = 0;
    std::size_t m_unacknowledged = 0;

private:
    /// Returns true when the `n`-th allocation was made, and failed.
    bool runWorkload(FailingMemory::Kind kind, FaultWorkload::Start start, FaultPlan::Persistence persistence,
                     int dbgLevel, unsigned int n)
    {
        SilentConsole const console;
        FaultPlan& plan = FailingMemory::plan(kind);
        FaultWorkload workload(plan, start,
                               kind == FailingMemory::OPERATOR_NEW ? FaultWorkload::MAY_THROW : FaultWorkload::FAILS,
                               dbgLevel);
        plan.arm(n, persistence);
        workload.run();
        plan.clear();
        unsigned int const fired = plan.fired();
        workload.goOn();
        workload.close();
        m_faults += fired;
        ++m_workloads;
        m_unacknowledged += workload.unacknowledged();
        return fired != 0;
    }
};

constexpr FaultWorkload::Start kStarts[] = {FaultWorkload::NEW_FILE, FaultWorkload::CRASHED_FILE,
                                            FaultWorkload::WAL_FILE};

TEST_F(MemoryFaultTest, SqliteWithoutMemoryLosesNothingAcknowledgedAndLeavesTheObjectUsable)
{
    for (FaultWorkload::Start const start : kStarts)
    {
        failEach(FailingMemory::SQLITE_MALLOC, start, FaultPlan::ONCE, 0);
        failEach(FailingMemory::SQLITE_MALLOC, start, FaultPlan::UNTIL_CLEARED, 0);
    }
    report("SQLite");
    EXPECT_GT(m_faults, 0U);
    EXPECT_EQ(m_unacknowledged, 0U);
}

TEST_F(MemoryFaultTest, LibraryWithoutMemoryLosesNothingAcknowledgedAndLeavesTheObjectUsable)
{
    for (FaultWorkload::Start const start : kStarts)
    {
        failEach(FailingMemory::OPERATOR_NEW, start, FaultPlan::ONCE, 0);
        failEach(FailingMemory::OPERATOR_NEW, start, FaultPlan::UNTIL_CLEARED, 0);
    }
    failEach(FailingMemory::OPERATOR_NEW, FaultWorkload::NEW_FILE, FaultPlan::ONCE, 2);
    report("operator new");
    EXPECT_GT(m_faults, 0U);
    EXPECT_EQ(m_unacknowledged, 0U);
}

/// Runs `operation` as the first use of SQLite while the `n`-th allocation fails. Returns true when there was one.
template <class Operation>
bool startWithoutMemory(unsigned int n, Operation operation)
{
    EXPECT_EQ(sqlite3_shutdown(), SQLITE_OK);
    FaultPlan& plan = FailingMemory::plan(FailingMemory::SQLITE_MALLOC);
    plan.arm(n, FaultPlan::ONCE);
    plan.resume();
    operation();
    plan.pause();
    plan.clear();
    return plan.fired() != 0;
}

TEST_F(MemoryFaultTest, CreateDbFailsWhenSqliteCannotStartAndSucceedsWhenItCan)
{
    SilentConsole const console;
    TempDir const dir;
    FaultDb db;
    unsigned int n = 1;
    for (; startWithoutMemory(n, [] { static_cast<void>(sqlite3_initialize()); }); ++n)
    {
        SCOPED_TRACE("allocation " + std::to_string(n));
        int code = RESULT_OK;
        startWithoutMemory(n, [&] { code = db.createDb(dir.file("faults.db"), true); });
        EXPECT_EQ(code, RESULT_FAILED);
        EXPECT_EQ(db.createDb(dir.file("faults.db"), true), RESULT_OK);
    }
    FailingVfs::install();
    std::printf("memory faults: %-14s %7u allocations failed\n", "SQLite's start", n - 1);
    EXPECT_GT(n, 1U);
}

/// Creates the process's singletons and a file while each allocation in turn fails. Returns the exit status.
int makeSingletonsWithoutMemory()
{
    TempDir const dir;
    std::string const path = dir.file("faults.db");
    SilentConsole const console;
    FaultPlan& plan = FailingMemory::plan(FailingMemory::OPERATOR_NEW);
    bool isStruck = true;
    int code = 0;
    unsigned int n = 0;
    while (isStruck)
    {
        plan.arm(++n, FaultPlan::ONCE);
        plan.resume();
        try
        {
            code = FaultDb::getInstance()->createDb(path, true);
        }
        catch (std::bad_alloc const&)
        {
        }
        plan.pause();
        isStruck = plan.fired() != 0;
    }
    plan.clear();
    std::printf("memory faults: %-14s %7u allocations failed\n", "first use", n - 1);
    std::fflush(stdout);
    return n > 1 ? code : EXIT_FAILURE;
}

TEST_F(MemoryFaultTest, SingletonsThatCannotBeMadeAreMadeByALaterCall)
{
    // Use a process that has no singletons yet. With the leak sanitizer, it also checks for leaks when it exits.
#ifdef FIRAIM_TEST_IS_EMULATED
    // The emulator cannot start the program again, so this process itself must not have singletons yet.
    ASSERT_EQ(FaultDb::m_pInstance, nullptr) << "run this test alone";
#else
    testing::FLAGS_gtest_death_test_style = "threadsafe";
#endif
    EXPECT_EXIT(std::exit(makeSingletonsWithoutMemory()), testing::ExitedWithCode(0), "");
}

} // namespace
