// Recording into a file with a write-ahead log.

#include "DamageSupport.h"

#include <history/FaultReader.h>

#include <cerrno>
#include <set>

#include <sqlite3.h>
#include <unistd.h>

namespace
{

using namespace firaim;
using namespace std::chrono_literals;

constexpr std::uintmax_t kLongestLog = 512 * 1024; ///< that is kept; see ConnectionSettings.cpp

class FaultRecorderLogTest : public DamageTest
{
protected:
    static RecorderOptions withLog()
    {
        RecorderOptions options;
        options.journal = RecorderOptions::WRITE_AHEAD_LOG;
        return options;
    }

    void record(unsigned int count)
    {
        for (unsigned int i = 0; i < count; ++i)
        {
            ASSERT_EQ(recorder.record(eventOf(1 + i % 50)).result, HISTORY_OK) << recorder.lastProblem();
        }
    }

    std::uintmax_t logSize() const { return std::filesystem::file_size(path + "-wal"); }

    /// Copies the file without its log. Returns the path of the copy.
    std::string copyAlone() const
    {
        std::string copy = dir.file("copy.db");
        std::filesystem::copy(path, copy, std::filesystem::copy_options::overwrite_existing);
        return copy;
    }

    /// Copies the file with its log, as a kill of the recorder leaves them. Returns the path of the copy.
    std::string copyWithLog() const
    {
        std::string copy = copyAlone();
        std::filesystem::copy(path + "-wal", copy + "-wal", std::filesystem::copy_options::overwrite_existing);
        return copy;
    }

    /// The numbers of the pages that the frames of a log hold.
    static std::set<std::size_t> pagesIn(std::string const& log)
    {
        constexpr std::size_t kLogHeader = 32;
        constexpr std::size_t kFrameHeader = 24;
        std::set<std::size_t> pages;
        for (std::size_t frame = kLogHeader; frame < log.size(); frame += kFrameHeader + kPage)
        {
            bool const isOfThisLog = log.compare(frame + 8, 8, log, 16, 8) == 0; // The salts, which each log changes.
            if (isOfThisLog)
            {
                pages.insert(static_cast<unsigned char>(log[frame + 3])); // A small file: one byte is enough.
            }
        }
        return pages;
    }

    /// Opens a copy for recording. Returns the number of its faults.
    static std::string recoveredFaults(std::string const& copy)
    {
        {
            FaultRecorder next;
            EXPECT_EQ(next.open(copy), HISTORY_OK) << next.lastProblem();
        }
        EXPECT_EQ(RawDb(copy).value("PRAGMA integrity_check"), "ok");
        return RawDb(copy).value(kCountOfFaults);
    }
};

/// While the object lives, there is no room for a write to this file.
class FullDisk
{
public:
    explicit FullDisk(std::string const& path)
    {
        EXPECT_EQ(stat(path.c_str(), &s_full), 0);
        for (char const* const name : {"pwrite", "pwrite64"}) // SQLite uses one of them.
        {
            EXPECT_EQ(vfs().xSetSystemCall(&vfs(), name, reinterpret_cast<sqlite3_syscall_ptr>(writeUnlessFull)),
                      SQLITE_OK);
        }
    }
    ~FullDisk() { vfs().xSetSystemCall(&vfs(), nullptr, nullptr); }
    FullDisk(FullDisk const&) = delete;
    FullDisk& operator=(FullDisk const&) = delete;

    static int refusals() { return s_refusals; }

private:
    static sqlite3_vfs& vfs() { return *sqlite3_vfs_find(nullptr); }

    static ssize_t writeUnlessFull(int descriptor, void const* bytes, std::size_t size, off_t offset)
    {
        struct stat status = {};
        if (fstat(descriptor, &status) == 0 && status.st_ino == s_full.st_ino && status.st_dev == s_full.st_dev)
        {
            ++s_refusals;
            errno = ENOSPC;
            return -1;
        }
        return pwrite(descriptor, bytes, size, offset);
    }

    static inline struct stat s_full = {};
    static inline int s_refusals = 0;
};

TEST_F(FaultRecorderLogTest, NewFileHasTheJournalOfTheOptions)
{
    open(withLog());
    EXPECT_EQ(value("PRAGMA journal_mode"), "wal");
    std::string const other = dir.file("other.db");
    FaultRecorder usual;
    ASSERT_EQ(usual.open(other), HISTORY_OK);
    EXPECT_NE(RawDb(other).value("PRAGMA journal_mode"), "wal");
}

TEST_F(FaultRecorderLogTest, ExistingFileKeepsItsRollbackJournal)
{
    createWithFacade();
    open(withLog());
    record(1);
    EXPECT_NE(value("PRAGMA journal_mode"), "wal");
}

TEST_F(FaultRecorderLogTest, NewFileIsAFaultDatabaseWithoutItsLog)
{
    open(withLog());
    EXPECT_EQ(recoveredFaults(copyAlone()), "0");
}

TEST_F(FaultRecorderLogTest, AfterCloseTheFileAloneHoldsEverything)
{
    open(withLog());
    record(10);
    EXPECT_GT(logSize(), 0U);
    ASSERT_EQ(recorder.close(), HISTORY_OK);
    EXPECT_EQ(logSize(), 0U);
    EXPECT_EQ(RawDb(copyAlone()).value(kCountOfFaults), "10");
}

TEST_F(FaultRecorderLogTest, AfterAKillTheLogHoldsWhatTheFileLacks)
{
    open(withLog());
    record(10);
    EXPECT_EQ(recoveredFaults(copyWithLog()), "10");
}

TEST_F(FaultRecorderLogTest, LogIsBounded)
{
    open(withLog());
    record(300);
    EXPECT_LE(logSize(), kLongestLog);
    EXPECT_NE(RawDb(copyAlone()).value(kCountOfFaults), "0") << "checkpoints have copied the log";
}

TEST_F(FaultRecorderLogTest, ReaderOfOldContentDelaysTheCheckpointOnly)
{
    open(withLog());
    record(1);
    {
        RawDb reader(path);
        reader.exec("BEGIN");
        ASSERT_EQ(reader.value(kCountOfFaults), "1");
        record(300);
        EXPECT_GT(logSize(), kLongestLog);
        EXPECT_EQ(reader.value(kCountOfFaults), "1");
        reader.exec("COMMIT");
    }
    record(3); // The first commit empties the log, the next one begins it anew and shortens it.
    EXPECT_LE(logSize(), kLongestLog);
    EXPECT_EQ(value(kCountOfFaults), "304");
}

TEST_F(FaultRecorderLogTest, CheckpointThatFailsIsRepeatedByALaterCommit)
{
    open(withLog());
    {
        FullDisk const disk(path);
        record(200);
        EXPECT_GT(FullDisk::refusals(), 1);
        EXPECT_GT(logSize(), kLongestLog);
        EXPECT_EQ(recoveredFaults(copyWithLog()), "200");
    }
    record(3);
    EXPECT_LE(logSize(), kLongestLog);
    EXPECT_EQ(value(kCountOfFaults), "203");
}

TEST_F(FaultRecorderLogTest, CloseOnAFullDiskSucceedsAndLeavesTheLog)
{
    open(withLog());
    record(10);
    {
        FullDisk const disk(path);
        EXPECT_EQ(recorder.close(), HISTORY_OK);
    }
    EXPECT_EQ(recoveredFaults(copyWithLog()), "10");
}

TEST_F(FaultRecorderLogTest, CloseBesideAReaderOfOldContentSucceedsAtOnce)
{
    open(withLog());
    RawDb reader(path);
    reader.exec("BEGIN");
    ASSERT_EQ(reader.value(kCountOfFaults), "0");
    record(10);
    EXPECT_EQ(recorder.close(), HISTORY_OK);
    reader.exec("COMMIT");
    EXPECT_EQ(value(kCountOfFaults), "10");
}

TEST_F(FaultRecorderLogTest, InterruptedCheckpointIsRepeatedFromTheLog)
{
    open(withLog());
    record(10);
    std::set<std::size_t> const pages = pagesIn(readFile(path + "-wal"));
    ASSERT_GT(pages.size(), 1U);
    for (std::size_t const page : pages)
    {
        std::string const copy = copyWithLog();
        overwrite(copy, (page - 1) * kPage, std::string(kPage / 2, '\x5a')); // Half a page of the checkpoint.
        EXPECT_EQ(recoveredFaults(copy), "10") << page;
    }
}

TEST_F(FaultRecorderLogTest, FramesOfALogWithADamagedHeaderAreIgnored)
{
    open(withLog());
    record(10);
    std::string const copy = copyWithLog();
    overwrite(copy + "-wal", 16, "salt");
    EXPECT_EQ(recoveredFaults(copy), "0");
}

TEST_F(FaultRecorderLogTest, LogOfAnotherFileIsServedOrSetAside)
{
    open(withLog());
    record(10);
    RecorderOptions options = settingAside();
    for (int faults = 0; faults < 200; faults += 50)
    {
        // SQLite cannot tell whose log it is, and applies it.
        std::string const other = dir.file("other" + std::to_string(faults) + ".db");
        {
            FaultRecorder own;
            ASSERT_EQ(own.open(other), HISTORY_OK);
            for (int i = 0; i < faults; ++i)
            {
                ASSERT_EQ(own.record(eventOf(7)).result, HISTORY_OK);
            }
        }
        std::filesystem::copy(path + "-wal", other + "-wal");
        FaultReader reader;
        EXPECT_THAT(reader.open(other), testing::AnyOf(HISTORY_OK, HISTORY_DAMAGED));
        FaultRecorder next;
        EXPECT_EQ(next.open(other, options), HISTORY_OK) << next.lastProblem();
        Receipt receipt = next.record(eventOf(8));
        for (int tries = 0; receipt.result == HISTORY_DAMAGED && tries < 3; ++tries)
        {
            receipt = next.record(eventOf(8));
        }
        EXPECT_EQ(receipt.result, HISTORY_OK) << next.lastProblem();
    }
}

TEST_F(FaultRecorderLogTest, RenamedFileTakesItsFaultsAlong)
{
    open(withLog());
    record(10);
    std::string const renamed = dir.file("renamed.db");
    std::filesystem::rename(path, renamed);
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_FAILED);
    EXPECT_EQ(RawDb(renamed).value(kCountOfFaults), "10");
    record(2);
    EXPECT_EQ(value(kCountOfFaults), "2");
}

TEST_F(FaultRecorderLogTest, LogOfAReplacedFileIsNotAppliedToTheNewOne)
{
    std::string const next = dir.file("next.db");
    {
        FaultRecorder other;
        ASSERT_EQ(other.open(next), HISTORY_OK);
        ASSERT_EQ(other.record(eventOf(77)).result, HISTORY_OK);
    }
    open(withLog());
    record(10);
    std::filesystem::rename(path, dir.file("old.db"));
    std::filesystem::rename(next, path);
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_FAILED);
    EXPECT_EQ(recorder.record(eventOf(78)).result, HISTORY_OK) << recorder.lastProblem();
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "77,78");
    EXPECT_EQ(RawDb(dir.file("old.db")).value(kCountOfFaults), "10");
}

TEST_F(FaultRecorderLogTest, RemovedFileLeavesItsLogAside)
{
    open(withLog());
    record(10);
    std::string const log = readFile(path + "-wal");
    std::filesystem::remove(path);
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_FAILED);
    EXPECT_EQ(recorder.record(eventOf(2)).result, HISTORY_OK) << recorder.lastProblem();
    ASSERT_EQ(copies().size(), 1U);
    EXPECT_EQ(copies().begin()->second, log);
}

TEST_F(FaultRecorderLogTest, DamagedFileIsSetAsideWithItsLogAndKeepsItsMode)
{
    RecorderOptions options = settingAside();
    options.journal = RecorderOptions::WRITE_AHEAD_LOG;
    open(options);
    record(10);
    ASSERT_EQ(recorder.close(), HISTORY_OK);
    destroyPage(value("SELECT rootpage FROM sqlite_master WHERE name = 'FdbFaultTbl'"));
    open(options);
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK) << recorder.lastProblem();
    expectAnew("2");
    EXPECT_EQ(value("PRAGMA journal_mode"), "wal");
    EXPECT_GE(copies().size(), 1U);
}

TEST_F(FaultRecorderLogTest, RecordersOfSeveralProcessesLoseNothing)
{
    open(withLog());
    std::vector<pid_t> children;
    for (std::uint64_t code = 1; code <= 3; ++code)
    {
        children.push_back(startChild(
            [&, code]
            {
                FaultRecorder own;
                EXPECT_EQ(own.open(path, {}, 30s), HISTORY_OK) << own.lastProblem();
                for (int i = 0; i < 100; ++i)
                {
                    EXPECT_EQ(own.record(eventOf(code), 30s).result, HISTORY_OK) << own.lastProblem();
                }
                EXPECT_EQ(own.close(), HISTORY_OK);
            }));
    }
    for (pid_t const child : children)
    {
        expectSuccess(child);
    }
    EXPECT_EQ(value("SELECT group_concat(OccurenceCnt) FROM FdbFaultStatisticTbl"), "100,100,100");
    EXPECT_EQ(value("SELECT count(DISTINCT EntryId) FROM FdbFaultTbl"), "300");
    EXPECT_LE(logSize(), kLongestLog);
}

} // namespace
