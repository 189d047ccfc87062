// A recorder on storage that fails temporarily.

#include "FailingVfs.h"

#include "TestSupport.h"

#include <history/FaultRecorder.h>

#include <cstdio>
#include <filesystem>

namespace
{

using namespace firaim;

FaultEvent eventOf(std::uint64_t code)
{
    FaultEvent event;
    event.code = code;
    event.status = FAULT_INACTIVE;
    event.module = "module";
    event.description.assign(20000, 'x');
    return event;
}

class RecorderStorageTest : public testing::Test
{
protected:
    RecorderStorageTest() { FailingVfs::install(); }
    ~RecorderStorageTest() override { FailingVfs::plan().clear(); }

    TempDir dir;
};

/// Only the pruning reads the overflow pages of a long text, to release them.
TEST_F(RecorderStorageTest, PruningThatCannotReadFailsNoRecording)
{
    constexpr unsigned int kRows = 60;
    unsigned int failures = 0;
    unsigned int unpruned = 0;
    for (unsigned int n = 1; n <= 40; ++n)
    {
        SCOPED_TRACE(n);
        std::string const file = dir.file(std::to_string(n));
        {
            FaultRecorder first;
            ASSERT_EQ(first.open(file), HISTORY_OK);
            for (unsigned int i = 0; i < kRows; ++i)
            {
                ASSERT_EQ(first.record(eventOf(1)).result, HISTORY_OK);
            }
        }
        RecorderOptions options;
        options.keepNewest = 10;
        FaultRecorder recorder;
        ASSERT_EQ(recorder.open(file, options), HISTORY_OK);
        ASSERT_EQ(recorder.raise(eventOf(2)).result, HISTORY_OK);
        FailingVfs::select(FailingVfs::READ);
        FailingVfs::plan().arm(n, FaultPlan::ONCE);
        FailingVfs::plan().resume();
        Receipt const receipt = recorder.record(eventOf(1));
        FailingVfs::plan().pause();
        FailingVfs::plan().clear();
        failures += FailingVfs::plan().fired();
        unpruned += FailingVfs::plan().fired() != 0 && receipt.result == HISTORY_OK ? 1 : 0;
        RawDb raw(file);
        EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
        EXPECT_EQ(raw.value("SELECT max(EntryId) FROM FdbFaultTbl"),
                  std::to_string(kRows + (receipt.result == HISTORY_OK ? 2 : 1)));
        EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK) << recorder.lastProblem();
        EXPECT_LT(std::stoi(raw.value("SELECT count(*) FROM FdbFaultTbl")), static_cast<int>(kRows));
    }
    EXPECT_GT(failures, 10U);
    EXPECT_GT(unpruned, 10U) << "too few failures were in the pruning";
    std::printf("recorder faults: pruning         %5u reads failed, %u of them while rows were removed\n", failures,
                unpruned);
}

/// Storage fails from some call on and works again later: then each posted event is recorded once.
TEST_F(RecorderStorageTest, PostedEventsOutliveStorageThatFailsForAWhile)
{
    for (FailingVfs::Kind const kind : {FailingVfs::WRITE, FailingVfs::FULL_DISK, FailingVfs::FULL_DISK_MIDWAY,
                                        FailingVfs::SYNC, FailingVfs::LOCK_BUSY, FailingVfs::READ, FailingVfs::OPEN})
    {
        for (unsigned int const n : {1U, 3U, 6U})
        {
            SCOPED_TRACE(std::string(FailingVfs::name(kind)) + ' ' + std::to_string(n));
            std::string const file = dir.file(std::to_string(kind) + '-' + std::to_string(n));
            RecorderOptions options;
            options.onLost = [](std::uint64_t count) { ADD_FAILURE() << count << " are lost"; };
            FaultRecorder recorder;
            ASSERT_EQ(recorder.open(file, options), HISTORY_OK);
            FailingVfs::select(kind);
            FailingVfs::plan().arm(n, FaultPlan::UNTIL_CLEARED);
            FailingVfs::plan().resume();
            for (std::uint64_t i = 0; i < 20; ++i)
            {
                ASSERT_EQ(recorder.post(eventOf(i)), HISTORY_QUEUED);
            }
            std::uint64_t left = 0;
            static_cast<void>(recorder.flush(left, std::chrono::milliseconds(50))); // May succeed.
            FailingVfs::plan().pause();
            FailingVfs::plan().clear();
            EXPECT_EQ(recorder.flush(left, std::chrono::minutes(1)), HISTORY_OK) << recorder.lastProblem();
            EXPECT_EQ(left, 0U);
            EXPECT_EQ(recorder.close(), HISTORY_OK);
            RawDb raw(file);
            EXPECT_EQ(raw.value("SELECT count(*) || ' ' || count(DISTINCT FaultCode) FROM FdbFaultTbl"), "20 20");
        }
    }
}

/// Another program repairs the file after its reset has failed: the incident was not stored, so it must not be counted.
TEST_F(RecorderStorageTest, IncidentOfAResetThatFailedIsForgotten)
{
    constexpr std::size_t kPage = 4096;
    constexpr std::uint32_t kIncident = 4711;
    unsigned int failures = 0;
    for (unsigned int n = 1;; ++n)
    {
        SCOPED_TRACE(n);
        std::string const file = dir.file(std::to_string(n));
        {
            FaultEvent active = eventOf(kIncident);
            active.status = FAULT_ACTIVE;
            FaultRecorder first;
            ASSERT_EQ(first.open(file), HISTORY_OK);
            ASSERT_EQ(first.record(active).result, HISTORY_OK);
        }
        RecorderOptions options;
        options.setAsideCode = kIncident;
        FaultRecorder recorder;
        ASSERT_EQ(recorder.open(file, options), HISTORY_OK);
        std::string const sound = readFile(file);
        writeFile(file, std::string(sound).replace(0, kPage, kPage, '\x5a'));
        ASSERT_EQ(recorder.record(eventOf(1)).result, HISTORY_DAMAGED);
        FailingVfs::select(FailingVfs::WRITE);
        FailingVfs::plan().arm(n, FaultPlan::ONCE);
        FailingVfs::plan().resume();
        Receipt const receipt = recorder.record(eventOf(1));
        FailingVfs::plan().pause();
        FailingVfs::plan().clear();
        if (FailingVfs::plan().fired() == 0)
        {
            break;
        }
        if (receipt.result == HISTORY_OK || readFile(file).front() != '\x5a')
        {
            continue; // The reset succeeded; another call failed.
        }
        ++failures;
        std::filesystem::remove(file + "-journal");
        writeFile(file, sound);
        EXPECT_EQ(recorder.endCycle(), HISTORY_OK) << recorder.lastProblem();
        EXPECT_EQ(RawDb(file).value("SELECT FaultActiveCycleCnt FROM FdbFaultStatisticTbl"), "2");
    }
    EXPECT_GT(failures, 0U);
}

/// Tests with failing synchronisation. The parameter is true for a file in write-ahead-log mode.
class RecorderSyncTest : public RecorderStorageTest, public testing::WithParamInterface<bool>
{
protected:
    /// Opens a new file, with one fault of code 1.
    void openNew(FaultRecorder& recorder, RecorderOptions const& options = {})
    {
        path = dir.file(std::to_string(++files));
        ASSERT_EQ(recorder.open(path), HISTORY_OK);
        ASSERT_EQ(recorder.close(), HISTORY_OK);
        RawDb(path).exec(GetParam() ? "PRAGMA journal_mode = WAL; PRAGMA user_version = -7"
                                    : "PRAGMA user_version = -7");
        ASSERT_EQ(recorder.open(path, options), HISTORY_OK);
        ASSERT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK);
    }

    /// Makes the `n`-th synchronisation from now fail.
    static void beginFailing(unsigned int n, FaultPlan::Persistence persistence)
    {
        FailingVfs::select(FailingVfs::SYNC);
        FailingVfs::plan().arm(n, persistence);
        FailingVfs::plan().resume();
    }

    static void endFailing()
    {
        FailingVfs::plan().pause();
        FailingVfs::plan().clear();
    }

    std::string codes() const { return RawDb(path).value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"); }

    std::string path;
    unsigned int files = 0;
};

TEST_P(RecorderSyncTest, NothingIsAcknowledgedBeforeALaterSyncHasSucceeded)
{
    unsigned int acknowledged = 0;
    unsigned int unknown = 0;
    for (FaultPlan::Persistence const persistence : {FaultPlan::ONCE, FaultPlan::UNTIL_CLEARED})
    {
        for (unsigned int n = 1, fired = 1; fired != 0; ++n)
        {
            SCOPED_TRACE(std::to_string(n) + (persistence == FaultPlan::ONCE ? ", once" : ", until cleared"));
            FaultRecorder recorder;
            openNew(recorder);
            beginFailing(n, persistence);
            int const result = recorder.record(eventOf(2)).result;
            endFailing();
            fired = FailingVfs::plan().fired();
            std::string const stored = codes();
            EXPECT_EQ(recorder.record(eventOf(3)).result, HISTORY_OK) << recorder.lastProblem();
            EXPECT_EQ(codes(), stored + ",3");
            EXPECT_EQ(RawDb(path).value("PRAGMA user_version"), "-7");
            EXPECT_TRUE(result == HISTORY_UNKNOWN || stored == (result == HISTORY_OK ? "1,2" : "1")) << result;
            if (fired != 0 && result == HISTORY_OK)
            {
                EXPECT_GT(FailingVfs::plan().passedAfterFailure(), 0U) << "the row may be in the page cache only";
                ++acknowledged;
            }
            unknown += result == HISTORY_UNKNOWN ? 1 : 0;
        }
    }
    EXPECT_EQ(acknowledged, 1U) << "only the last sync of a commit failed";
    EXPECT_GT(unknown, 0U) << "the last sync of a commit and all later ones failed";
}

TEST_P(RecorderSyncTest, PostedEventThatIsFoundIsRecordedOnceALaterSyncHasSucceeded)
{
    for (unsigned int n = 1, fired = 1; fired != 0; ++n)
    {
        SCOPED_TRACE(n);
        FaultRecorder recorder;
        openNew(recorder);
        beginFailing(n, FaultPlan::UNTIL_CLEARED);
        ASSERT_EQ(recorder.post(eventOf(2)), HISTORY_QUEUED);
        std::uint64_t left = 0;
        int result = HISTORY_BUSY;
        while (result == HISTORY_BUSY) // The first try has not ended yet.
        {
            result = recorder.flush(left, std::chrono::milliseconds(50));
        }
        FailingVfs::plan().pause();
        fired = FailingVfs::plan().fired();
        EXPECT_EQ(result, fired == 0 ? HISTORY_OK : HISTORY_FAILED);
        FailingVfs::plan().clear();
        FailingVfs::plan().resume();
        EXPECT_EQ(recorder.flush(left, std::chrono::minutes(1)), HISTORY_OK) << recorder.lastProblem();
        FailingVfs::plan().pause();
        EXPECT_TRUE(fired == 0 || FailingVfs::plan().passedAfterFailure() > 0);
        EXPECT_EQ(codes(), "1,2");
    }
}

TEST_P(RecorderSyncTest, GroupThatHasRemovedRowsOfItsOwnIsFound)
{
    std::vector<FaultEvent> const events(20, eventOf(2));
    RecorderOptions options;
    options.keepNewest = 5;
    unsigned int acknowledged = 0;
    for (unsigned int n = 1, fired = 1; fired != 0; ++n)
    {
        SCOPED_TRACE(n);
        FaultRecorder recorder;
        openNew(recorder, options);
        beginFailing(n, FaultPlan::ONCE);
        std::vector<Receipt> receipts;
        int const result = recorder.recordAll(events, receipts);
        endFailing();
        fired = FailingVfs::plan().fired();
        EXPECT_EQ(RawDb(path).value("SELECT max(EntryId) FROM FdbFaultTbl"), result == HISTORY_OK ? "21" : "1");
        acknowledged += fired != 0 && result == HISTORY_OK ? 1 : 0;
    }
    // The large group also fills the log, whose checkpoint synchronises twice, after the commit.
    EXPECT_EQ(acknowledged, GetParam() ? 3U : 1U) << "no failed commit had stored it";
}

INSTANTIATE_TEST_SUITE_P(Each, RecorderSyncTest, testing::Bool(),
                         [](auto const& set) { return set.param ? "WriteAheadLog" : "RollbackJournal"; });

/// Sets a file aside on failing storage. The parameters are the damaged page and the kind of failing calls.
class SetAsideStorageTest : public RecorderStorageTest,
                            public testing::WithParamInterface<std::tuple<std::size_t, FailingVfs::Kind>>
{
protected:
    SetAsideStorageTest()
    {
        constexpr std::size_t kPage = 4096;
        FaultRecorder recorder;
        EXPECT_EQ(recorder.open(path), HISTORY_OK);
        EXPECT_EQ(recorder.record(eventOf(7)).result, HISTORY_OK);
        EXPECT_EQ(recorder.close(), HISTORY_OK);
        damaged = readFile(path);
        damaged.replace((std::get<0>(GetParam()) - 1) * kPage, kPage, kPage, '\x5a');
        options.setAsideCode = 4711;
    }

    /// Opens the damaged file while the `n`-th call fails. Returns true when a call failed. Clears the plan.
    bool openWithFailure(unsigned int n, FaultPlan::Persistence persistence)
    {
        std::filesystem::remove_all(dir.path());
        std::filesystem::create_directory(dir.path());
        writeFile(path, damaged);
        FailingVfs::select(std::get<1>(GetParam()));
        FailingVfs::plan().arm(n, persistence);
        FailingVfs::plan().resume();
        {
            FaultRecorder recorder;
            static_cast<void>(recorder.open(path, options, std::chrono::milliseconds(50)));
        }
        FailingVfs::plan().pause();
        FailingVfs::plan().clear();
        return FailingVfs::plan().fired() != 0;
    }

    void expectSetAsideOnce()
    {
        FaultRecorder recorder;
        EXPECT_EQ(recorder.open(path, options), HISTORY_OK) << recorder.lastProblem();
        EXPECT_EQ(recorder.record(eventOf(8)).result, HISTORY_OK) << recorder.lastProblem();
        EXPECT_EQ(recorder.close(), HISTORY_OK);
        RawDb raw(path);
        EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
        EXPECT_EQ(raw.value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "4711,8");
        std::size_t copies = 0;
        for (auto const& [name, bytes] : filesIn(dir.path()))
        {
            if (name.find(".aside-") != std::string::npos)
            {
                ++copies;
                EXPECT_TRUE(bytes == damaged) << "the copy is not whole";
            }
        }
        EXPECT_EQ(copies, 1U) << "there must be one copy after any number of tries";
    }

    std::string const path = dir.file("faults.db");
    std::string damaged;
    RecorderOptions options;
};

TEST_P(SetAsideStorageTest, FailureLeavesTheDamagedFileOrAWholeCopyOfItAndTheNextTrySucceeds)
{
    unsigned int failures = 0;
    for (FaultPlan::Persistence const persistence : {FaultPlan::ONCE, FaultPlan::UNTIL_CLEARED})
    {
        for (unsigned int n = 1; openWithFailure(n, persistence); ++n)
        {
            SCOPED_TRACE(n);
            ++failures;
            expectSetAsideOnce();
        }
    }
    std::printf("setting aside: page %zu damaged, %-16s %4u calls failed\n", std::get<0>(GetParam()),
                FailingVfs::name(std::get<1>(GetParam())), failures);
    EXPECT_GT(failures, 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Each, SetAsideStorageTest,
    testing::Combine(testing::Values(1, 2),
                     testing::Values(FailingVfs::OPEN, FailingVfs::READ, FailingVfs::SHORT_READ, FailingVfs::WRITE,
                                     FailingVfs::SHORT_WRITE, FailingVfs::FULL_DISK, FailingVfs::FULL_DISK_MIDWAY,
                                     FailingVfs::TRUNCATE, FailingVfs::SYNC, FailingVfs::LOCK_BUSY,
                                     FailingVfs::LOCK_ERROR, FailingVfs::REMOVE, FailingVfs::FILE_SIZE)),
    [](auto const& set)
    { return FailingVfs::testName(std::get<1>(set.param)) + "OnPage" + std::to_string(std::get<0>(set.param)); });

} // namespace
