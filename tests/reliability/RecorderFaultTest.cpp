// A recorder on failing storage or memory: the result of a call agrees with the file, and the next call works.

#include "FailingMemory.h"
#include "FailingVfs.h"
#include "RecorderWorkload.h"
#include "SilentConsole.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

namespace
{

// A run in the emulator looks for errors in the code for that machine, for which a part of the allocations is enough.
#ifdef FIRAIM_TEST_IS_EMULATED
constexpr unsigned int kStride = 7;
#else
constexpr unsigned int kStride = 1;
#endif

class RecorderFaultTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        FailingMemory::install();
        FailingVfs::install();
    }

    RecorderFaultTest() { FailingVfs::select(FailingVfs::KIND_COUNT); }

    /// Makes each step that `plan` counts fail in turn, in each call of the recorder, until the call makes no more
    /// steps.
    void failEach(FaultPlan& plan, FaultPlan::Persistence persistence, unsigned int stride = 1)
    {
        for (int call = 0; call < RecorderWorkload::CALL_COUNT; ++call)
        {
            // The first run makes allocations that are kept.
            static_cast<void>(failOne(plan, persistence, static_cast<RecorderWorkload::Call>(call), 0));
            unsigned int fired = 1;
            for (unsigned int n = 1; fired != 0 && !HasFailure(); n += stride)
            {
                auto const called = static_cast<RecorderWorkload::Call>(call);
                SCOPED_TRACE(std::string(RecorderWorkload::name(called)) + ", failure " + std::to_string(n) +
                             (persistence == FaultPlan::ONCE ? ", once" : ", until cleared"));
                long long const blocksBefore = FailingMemory::liveBlocks();
                long long const bytesBefore = sqlite3_memory_used();
                fired = failOne(plan, persistence, called, n);
                EXPECT_EQ(FailingMemory::liveBlocks(), blocksBefore) << "a leak";
                EXPECT_EQ(sqlite3_memory_used(), bytesBefore) << "a leak in SQLite";
            }
        }
    }

    /// Repeats `run` on a new file. In the n-th run, the n-th step that `plan` counts fails. Ends when no step failed.
    /// `run` gets the path of the file and a function; only steps of calls through that function count.
    template <class Run>
    static void forEachStep(FaultPlan& plan, Run const& run)
    {
        unsigned int fired = 1;
        for (unsigned int n = 1; fired != 0 && !HasFailure(); ++n)
        {
            SCOPED_TRACE("failure " + std::to_string(n));
            TempDir const dir;
            run(dir.file("faults.db"),
                [&](auto const& call)
                {
                    plan.arm(n, FaultPlan::ONCE);
                    plan.resume();
                    call();
                    plan.pause();
                    plan.clear();
                    fired = plan.fired();
                });
        }
    }

    bool m_hasLog = false; ///< whether the files are in write-ahead-log mode
    unsigned int m_faults = 0;
    unsigned int m_tolerated = 0;
    unsigned int m_unknown = 0;

private:
    unsigned int failOne(FaultPlan& plan, FaultPlan::Persistence persistence, RecorderWorkload::Call call,
                         unsigned int n)
    {
        SilentConsole const console;
        RecorderWorkload workload(plan, call, m_hasLog);
        plan.arm(n, persistence);
        workload.run();
        plan.clear();
        workload.expectFileAsReported();
        workload.expectWorksOn();
        m_faults += plan.fired();
        m_tolerated += plan.fired() != 0 && workload.isDone() ? 1 : 0;
        m_unknown += workload.isUnknown() ? 1 : 0;
        return plan.fired();
    }
};

class RecorderStorageTest : public RecorderFaultTest, public testing::WithParamInterface<FailingVfs::Kind>
{
};

TEST_P(RecorderStorageTest, ResultAgreesWithTheFileAfterOneFailure)
{
    FailingVfs::select(GetParam());
    failEach(FailingVfs::plan(), FaultPlan::ONCE);
    std::printf("recorder faults: %-16s %5u calls failed once, %u tolerated\n", FailingVfs::name(GetParam()), m_faults,
                m_tolerated);
    EXPECT_GT(m_faults, 0U) << "no call of this kind was made";
    EXPECT_EQ(m_unknown, 0U) << "the file could be read";
}

TEST_P(RecorderStorageTest, ResultAgreesWithTheFileOrIsUnknownAfterLastingFailure)
{
    FailingVfs::select(GetParam());
    failEach(FailingVfs::plan(), FaultPlan::UNTIL_CLEARED);
    std::printf("recorder faults: %-16s %5u calls failed until cleared, %u unknown\n", FailingVfs::name(GetParam()),
                m_faults, m_unknown);
    EXPECT_GT(m_faults, 0U) << "no call of this kind was made";
}

INSTANTIATE_TEST_SUITE_P(Each, RecorderStorageTest,
                         // Without REMOVE, as the recorder keeps the journal and removes no file.
                         testing::Values(FailingVfs::OPEN, FailingVfs::READ, FailingVfs::SHORT_READ, FailingVfs::WRITE,
                                         FailingVfs::SHORT_WRITE, FailingVfs::FULL_DISK, FailingVfs::FULL_DISK_MIDWAY,
                                         FailingVfs::TRUNCATE, FailingVfs::SYNC, FailingVfs::LOCK_BUSY,
                                         FailingVfs::LOCK_ERROR, FailingVfs::CHECK_LOCK, FailingVfs::UNLOCK,
                                         FailingVfs::ACCESS, FailingVfs::FILE_SIZE),
                         FailingVfs::testNameOf);

/// On files in write-ahead-log mode.
class RecorderStorageTestWithALog : public RecorderStorageTest
{
protected:
    RecorderStorageTestWithALog() { m_hasLog = true; }

    void print(char const* persistence) const
    {
        std::printf("recorder faults: %-16s %5u calls failed %s with a log, %u tolerated, %u unknown\n",
                    FailingVfs::name(GetParam()), m_faults, persistence, m_tolerated, m_unknown);
    }
};

TEST_P(RecorderStorageTestWithALog, ResultAgreesWithTheFileAfterOneFailure)
{
    FailingVfs::select(GetParam());
    failEach(FailingVfs::plan(), FaultPlan::ONCE);
    print("once");
    EXPECT_GT(m_faults, 0U) << "no call of this kind was made";
    EXPECT_EQ(m_unknown, 0U) << "the file could be read";
}

TEST_P(RecorderStorageTestWithALog, ResultAgreesWithTheFileOrIsUnknownAfterLastingFailure)
{
    FailingVfs::select(GetParam());
    failEach(FailingVfs::plan(), FaultPlan::UNTIL_CLEARED);
    print("until cleared");
    EXPECT_GT(m_faults, 0U) << "no call of this kind was made";
}

INSTANTIATE_TEST_SUITE_P(Each, RecorderStorageTestWithALog,
                         // The calls that matter most with a log; the others take too long for what they would tell.
                         testing::Values(FailingVfs::WRITE, FailingVfs::FULL_DISK_MIDWAY, FailingVfs::SYNC,
                                         FailingVfs::MAP_SHARED, FailingVfs::LOCK_SHARED),
                         FailingVfs::testNameOf);

TEST_F(RecorderFaultTest, ResultAgreesWithTheFileWhenSqliteHasNoMemory)
{
    failEach(FailingMemory::plan(FailingMemory::SQLITE_MALLOC), FaultPlan::ONCE, kStride);
    failEach(FailingMemory::plan(FailingMemory::SQLITE_MALLOC), FaultPlan::UNTIL_CLEARED, kStride);
    std::printf("recorder faults: SQLite's memory  %u allocations failed, %u tolerated\n", m_faults, m_tolerated);
    EXPECT_GT(m_faults, 0U);
}

TEST_F(RecorderFaultTest, ResultAgreesWithTheFileWhenTheRecorderHasNoMemory)
{
    failEach(FailingMemory::plan(FailingMemory::OPERATOR_NEW), FaultPlan::ONCE, kStride);
    failEach(FailingMemory::plan(FailingMemory::OPERATOR_NEW), FaultPlan::UNTIL_CLEARED, kStride);
    std::printf("recorder faults: operator new     %u allocations failed, %u tolerated\n", m_faults, m_tolerated);
    EXPECT_GT(m_faults, 0U);
}

TEST_F(RecorderFaultTest, RecorderThatIsNotOpenThrowsNothingWithoutMemory)
{
    FaultPlan& plan = FailingMemory::plan(FailingMemory::OPERATOR_NEW);
    auto recorder = std::make_unique<firaim::FaultRecorder>();
    firaim::FaultEvent event;
    event.code = 1ULL << 40;
    std::uint64_t left = 0;
    std::vector<unsigned long long> keys;
    plan.arm(1, FaultPlan::UNTIL_CLEARED);
    plan.resume();
    EXPECT_LT(recorder->record(event).result, 0);
    EXPECT_LT(recorder->raise(event).result, 0);
    EXPECT_LT(recorder->clearCode(event, keys), 0);
    EXPECT_LT(recorder->post(event), 0);
    EXPECT_LT(recorder->flush(left), 0);
    EXPECT_LT(recorder->endCycle(), 0);
    EXPECT_LT(recorder->close(), 0);
    recorder.reset(); // An exception from the destructor would end the process.
    plan.pause();
    plan.clear();
    EXPECT_GT(plan.fired(), 0U);
}

TEST_F(RecorderFaultTest, TripleThatAnInterruptedReadingFoundActiveIsReadAgain)
{
    FailingVfs::select(FailingVfs::LOCK_BUSY);
    FaultPlan& plan = FailingVfs::plan();
    firaim::FaultEvent event;
    event.code = 7;
    event.module = "m";
    firaim::FaultEvent other;
    other.code = 8;
    auto const run = [&](std::string const& path, auto const& failOneStep)
    {
        firaim::FaultRecorder recorder;
        ASSERT_EQ(recorder.open(path), firaim::HISTORY_OK);
        ASSERT_EQ(recorder.raise(event).key, 1U);
        ASSERT_EQ(recorder.close(), firaim::HISTORY_OK);
        RawDb raw(path);
        raw.exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 25000) INSERT INTO "
                 "FdbFaultTbl(FaultCode, Status) SELECT 1, 'ErrorInactive' FROM n");
        ASSERT_EQ(recorder.open(path), firaim::HISTORY_OK);
        failOneStep([&] { static_cast<void>(recorder.clear(other, std::chrono::milliseconds(0))); });
        raw.exec("DELETE FROM FdbFaultTbl WHERE EntryId = 1");
        EXPECT_EQ(recorder.record(other).result, firaim::HISTORY_OK) << recorder.lastProblem();
        EXPECT_EQ(recorder.raise(event).result, firaim::HISTORY_OK) << recorder.lastProblem();
    };
    forEachStep(plan, run);
}

TEST_F(RecorderFaultTest, PruningGoesOnAndHoldsNoLockAfterAnAllocationFailed)
{
    FaultPlan& plan = FailingMemory::plan(FailingMemory::OPERATOR_NEW);
    firaim::FaultEvent event;
    event.code = 7;
    event.codeName = "name";
    event.module = "module";
    firaim::RecorderOptions options;
    options.keepNewest = 10;
    auto const run = [&](std::string const& path, auto const& failOneStep)
    {
        firaim::FaultRecorder recorder;
        ASSERT_EQ(recorder.open(path), firaim::HISTORY_OK);
        std::vector<firaim::Receipt> receipts;
        ASSERT_EQ(recorder.recordAll(std::vector<firaim::FaultEvent>(100, event), receipts), firaim::HISTORY_OK);
        ASSERT_EQ(recorder.close(), firaim::HISTORY_OK);
        ASSERT_EQ(recorder.open(path, options), firaim::HISTORY_OK);
        ASSERT_EQ(recorder.record(event).result, firaim::HISTORY_OK);
        // The tests above check its result.
        failOneStep([&] { static_cast<void>(recorder.record(event)); });
        {
            RawDb other(path);
            other.exec("UPDATE FdbVersionTbl SET Version = Version");
        }
        std::uint64_t const pruned = recorder.counters().pruned;
        EXPECT_EQ(recorder.record(event).result, firaim::HISTORY_OK) << recorder.lastProblem();
        EXPECT_GT(recorder.counters().pruned, pruned);
    };
    forEachStep(plan, run);
}

} // namespace
