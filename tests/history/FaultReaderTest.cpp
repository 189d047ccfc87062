#include "HistorySupport.h"

#include "Fixtures.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <limits>

using namespace firaim;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

class FaultReaderTest : public HistoryTest
{
protected:
    void open(ReaderOptions const& options = {}) { ASSERT_EQ(reader.open(path, options), HISTORY_OK) << problem(); }
    std::string problem() const { return reader.lastProblem(); }

    int openAs(std::string const& sql)
    {
        exec(sql);
        return reader.open(path);
    }

    /// Calls every operation of the reader once.
    void readEverything()
    {
        EXPECT_EQ(reader.fault(1, fault), HISTORY_OK) << problem();
        EXPECT_EQ(reader.statistics(statistics), HISTORY_OK) << problem();
        EXPECT_EQ(reader.statistic(1000, statistic), HISTORY_OK) << problem();
        EXPECT_EQ(reader.counts(counts), HISTORY_OK) << problem();
        EXPECT_EQ(reader.activeNow(faults), HISTORY_OK) << problem();
        EXPECT_EQ(reader.startups(startups), HISTORY_OK) << problem();
        EXPECT_EQ(reader.formatVersion(version), HISTORY_OK) << problem();
        EXPECT_EQ(reader.newestPosition(position), HISTORY_OK) << problem();
        EXPECT_EQ(reader.follow({}).next(fault, 0ms), HISTORY_OK) << problem();
        EXPECT_FALSE(keys({}).empty());
    }

    void addStatistic() const
    {
        exec("INSERT INTO FdbFaultStatisticTbl VALUES(NULL,1000,'name',2,3,4,'first','last','active',5,6,7)");
    }

    Fault fault;
    FaultStatistic statistic;
    std::vector<Fault> faults;
    std::vector<FaultStatistic> statistics;
    std::vector<Startup> startups;
    Counts counts;
    std::string version;
    FollowPosition position;
};

} // namespace

TEST_F(FaultReaderTest, ChangesNoByteAndLeavesNoFileBehind)
{
    addFaults(3000);
    addStatistic();
    auto const before = folder();
    open();
    readEverything();
    EXPECT_EQ(reader.close(), HISTORY_OK);
    EXPECT_TRUE(folder() == before);
}

TEST_F(FaultReaderTest, WorksWhereNothingCanBeWritten)
{
    addFaults(10);
    addStatistic();
    ReadOnlyMedium const medium(dir.path());
    WithoutRoot const nobody;
    open();
    readEverything();
    EXPECT_FALSE(reader.isImmutable());
}

TEST_F(FaultReaderTest, WorksOnAWriteAheadLogsFileWhereNothingCanBeWritten)
{
    addFaults(10);
    addStatistic();
    exec("PRAGMA journal_mode=WAL");
    ReadOnlyMedium const medium(dir.path());
    WithoutRoot const nobody;
    open();
    EXPECT_TRUE(reader.isImmutable());
    readEverything();
}

TEST_F(FaultReaderTest, ReadsAWriteAheadLogAndLeavesItUnchanged)
{
    RawDb raw(path);
    EXPECT_EQ(raw.value("PRAGMA journal_mode=WAL"), "wal");
    raw.exec("INSERT INTO FdbFaultTbl(Description) VALUES('in the log')");
    std::string const bytes = readFile(path);
    std::string const log = readFile(path + "-wal");
    open();
    EXPECT_EQ(reader.fault(1, fault), HISTORY_OK);
    EXPECT_EQ(fault.Description, "in the log");
    EXPECT_EQ(reader.close(), HISTORY_OK);
    EXPECT_EQ(readFile(path), bytes);
    EXPECT_EQ(readFile(path + "-wal"), log);
}

TEST_F(FaultReaderTest, NamesTheRemedyForTheJournalOfACrashedWriter)
{
    std::string const crashed = makeHotJournal();
    auto const before = folder();
    EXPECT_EQ(reader.open(crashed), HISTORY_HOT_JOURNAL);
    EXPECT_THAT(problem(), StartsWith(crashed + ": a writer was cut off"));
    EXPECT_THAT(problem(), HasSubstr("Run 'firaim recover' on it"));
    EXPECT_TRUE(folder() == before);
}

TEST_F(FaultReaderTest, TakesAnEmptiedFileBesideItsLogForDamagedAndExplainsHowToKeepTheLog)
{
    std::string const emptied = dir.file("emptied.db");
    {
        RawDb raw(path);
        EXPECT_EQ(raw.value("PRAGMA journal_mode=WAL"), "wal");
        raw.exec("INSERT INTO FdbFaultTbl(Description) VALUES('in the log')");
        writeFile(emptied + "-wal", readFile(path + "-wal"));
    }
    writeFile(emptied, "");
    EXPECT_EQ(reader.open(emptied), HISTORY_DAMAGED);
    EXPECT_THAT(problem(), StartsWith(emptied + ": it is empty"));
    EXPECT_THAT(problem(), HasSubstr("/emptied.db-wal' into another folder"));
}

TEST_F(FaultReaderTest, ReportsWhyAFileCannotBeOpened)
{
    std::string const missing = dir.file("missing.db");
    EXPECT_EQ(reader.open(missing), HISTORY_NO_FILE);
    EXPECT_EQ(problem(), missing + ": No such file or directory");
    EXPECT_EQ(reader.open(dir.path()), HISTORY_BAD_PATH);
    EXPECT_EQ(reader.open(""), HISTORY_BAD_PATH);
    writeFile(dir.file("text"), std::string(4096, 'x'));
    EXPECT_EQ(reader.open(dir.file("text")), HISTORY_FOREIGN_FILE);
    EXPECT_THAT(problem(), HasSubstr("it is no SQLite database"));
    writeFile(dir.file("empty"), "");
    EXPECT_EQ(reader.open(dir.file("empty")), HISTORY_FOREIGN_FILE);
    EXPECT_THAT(problem(), HasSubstr("no fault database: it has no table FdbFaultTbl"));
    EXPECT_EQ(reader.open(path), HISTORY_OK) << "a failed call leaves the reader usable";
}

TEST_F(FaultReaderTest, TakesAPathThatEndsInASlashForNoFile)
{
    auto const before = folder();
    EXPECT_EQ(reader.open(path + '/'), HISTORY_BAD_PATH);
    EXPECT_EQ(problem(), path + "/: Not a directory");
    EXPECT_EQ(reader.open(dir.path() + '/'), HISTORY_BAD_PATH);
    EXPECT_EQ(reader.open(dir.file("missing/")), HISTORY_NO_FILE);
    EXPECT_EQ(reader.follow({}).next(fault, 0ms), HISTORY_NO_FILE);
    EXPECT_TRUE(folder() == before);
}

TEST_F(FaultReaderTest, NamesAFileInItsProblemsAsTheCallerDoes)
{
    CurrentFolder const current(dir.path());
    EXPECT_EQ(reader.open("missing.db"), HISTORY_NO_FILE);
    EXPECT_EQ(problem(), "missing.db: No such file or directory");
    EXPECT_EQ(reader.open(""), HISTORY_BAD_PATH);
    EXPECT_EQ(problem(), "the name of the file is empty");
    EXPECT_EQ(reader.open(std::string("faults.db\0x", 11)), HISTORY_BAD_PATH);
    EXPECT_EQ(problem(), "faults.db: the name has a zero byte");
    exec("DROP TABLE FdbFaultTbl");
    EXPECT_EQ(reader.open("faults.db"), HISTORY_FOREIGN_FILE);
    EXPECT_EQ(problem(), "faults.db: no fault database: it has no table FdbFaultTbl");
}

TEST_F(FaultReaderTest, WaitsForALockWithABusyTimeoutThatOverflowsTheClock)
{
    RawDb other(path);
    other.exec("BEGIN EXCLUSIVE");
    static RawDb* locking;
    static int polls;
    locking = &other;
    polls = 0;
    ReaderOptions options;
    options.busyTimeout = std::chrono::milliseconds::max();
    options.isCancelled = []
    {
        if (++polls == 3)
        {
            locking->exec("COMMIT");
        }
        return false;
    };
    EXPECT_EQ(reader.open(path, options), HISTORY_OK) << problem();
}

TEST_F(FaultReaderTest, ReportsAMissingTable)
{
    EXPECT_EQ(openAs("DROP TABLE FdbFaultTbl"), HISTORY_FOREIGN_FILE);
    EXPECT_EQ(problem(), path + ": no fault database: it has no table FdbFaultTbl");
}

TEST_F(FaultReaderTest, ReportsAViewInPlaceOfATable)
{
    EXPECT_EQ(openAs("ALTER TABLE FdbFaultTbl RENAME TO other; CREATE VIEW FdbFaultTbl AS SELECT * FROM other"),
              HISTORY_FOREIGN_FILE);
    EXPECT_EQ(problem(), path + ": no fault database: FdbFaultTbl is a view");
}

TEST_F(FaultReaderTest, ReportsAnotherFormatVersion)
{
    EXPECT_EQ(openAs("UPDATE FdbVersionTbl SET Version = '2.0.0'"), HISTORY_VERSION_MISMATCH);
    EXPECT_EQ(problem(), path + ": format version 2.0.0 is not 1.0.0");
}

TEST_F(FaultReaderTest, ReportsAFileWithoutExactlyOneFormatVersion)
{
    EXPECT_EQ(openAs("INSERT INTO FdbVersionTbl VALUES(NULL,'FormatVersion','1.0.0')"), HISTORY_VERSION_MISMATCH);
    EXPECT_EQ(openAs("DELETE FROM FdbVersionTbl"), HISTORY_VERSION_MISMATCH);
    EXPECT_THAT(problem(), HasSubstr("the format version is missing or not the only one"));
}

TEST_F(FaultReaderTest, ReadsAFileOfAnyFormatVersionWithTheOption)
{
    ReaderOptions options;
    options.isAnyVersionRead = true;
    exec("UPDATE FdbVersionTbl SET Version = '2.0.0'");
    open(options);
    EXPECT_EQ(reader.formatVersion(version), HISTORY_OK);
    EXPECT_EQ(version, "2.0.0");
    exec("DELETE FROM FdbVersionTbl");
    EXPECT_EQ(reader.formatVersion(version), HISTORY_NOT_FOUND);
    EXPECT_EQ(version, "2.0.0");
}

TEST_F(FaultReaderTest, GivesUpOnALockedFileWhenItsBusyTimeoutEnds)
{
    LockingProcess const other(path);
    ReaderOptions options;
    options.busyTimeout = 10ms;
    EXPECT_EQ(reader.open(path, options), HISTORY_BUSY);
    EXPECT_THAT(problem(), HasSubstr("another process keeps it locked, try again"));
}

TEST_F(FaultReaderTest, IsCancelledWhileItWaits)
{
    LockingProcess const other(path);
    ReaderOptions options;
    options.busyTimeout = std::chrono::hours(1);
    options.isCancelled = [] { return true; };
    EXPECT_EQ(reader.open(path, options), HISTORY_CANCELLED);
}

TEST_F(FaultReaderTest, RefusesEveryCallUnlessItIsOpen)
{
    EXPECT_EQ(reader.close(), HISTORY_INVALID_STATE);
    EXPECT_EQ(reader.fault(1, fault), HISTORY_INVALID_STATE);
    EXPECT_EQ(reader.fault(std::numeric_limits<unsigned long long>::max(), fault), HISTORY_INVALID_STATE);
    EXPECT_EQ(reader.faults().next(fault), HISTORY_INVALID_STATE);
    EXPECT_EQ(reader.rows(HistoryTable::VERSIONS).next(), HISTORY_INVALID_STATE);
    EXPECT_EQ(reader.statistics(statistics), HISTORY_INVALID_STATE);
    EXPECT_EQ(reader.statistic(1, statistic), HISTORY_INVALID_STATE);
    EXPECT_EQ(reader.counts(counts), HISTORY_INVALID_STATE);
    EXPECT_EQ(reader.activeNow(faults), HISTORY_INVALID_STATE);
    EXPECT_EQ(reader.startups(startups), HISTORY_INVALID_STATE);
    EXPECT_EQ(reader.formatVersion(version), HISTORY_INVALID_STATE);
    EXPECT_EQ(reader.newestPosition(position), HISTORY_INVALID_STATE);
    EXPECT_EQ(reader.follow({}).next(fault, 0ms), HISTORY_BAD_PATH);
    open();
    EXPECT_EQ(reader.open(path), HISTORY_INVALID_STATE);
    EXPECT_EQ(reader.close(), HISTORY_OK);
    EXPECT_EQ(reader.open(path), HISTORY_OK);
}

TEST_F(FaultReaderTest, ReadsOneFaultByItsKey)
{
    addFaults(3);
    open();
    EXPECT_EQ(reader.fault(2, fault), HISTORY_OK);
    EXPECT_EQ(fault.Description, "fault 2");
    EXPECT_EQ(reader.fault(4, fault), HISTORY_NOT_FOUND);
    EXPECT_EQ(reader.fault(std::numeric_limits<unsigned long long>::max(), fault), HISTORY_NOT_FOUND);
    EXPECT_EQ(fault.Description, "fault 2");
}

TEST_F(FaultReaderTest, ReadsStatisticsInTheOrderOfTheirKeysAndByCode)
{
    exec("INSERT INTO FdbFaultStatisticTbl(EntryId, FaultCode, OccurenceCnt) VALUES(9, 5, 1), (3, 4294967295, 2), "
         "(7, 5, 3)");
    open();
    statistics.resize(5);
    ASSERT_EQ(reader.statistics(statistics), HISTORY_OK);
    ASSERT_EQ(statistics.size(), 3U);
    EXPECT_EQ(statistics[0].EntryId, 3U);
    EXPECT_EQ(statistics[1].EntryId, 7U);
    EXPECT_EQ(statistics[2].EntryId, 9U);
    EXPECT_EQ(reader.statistic(5, statistic), HISTORY_OK);
    EXPECT_EQ(statistic.EntryId, 7U);
    EXPECT_EQ(reader.statistic(4294967295U, statistic), HISTORY_OK);
    EXPECT_EQ(statistic.OccurenceCnt, 2U);
    EXPECT_EQ(reader.statistic(6, statistic), HISTORY_NOT_FOUND);
    EXPECT_EQ(statistic.EntryId, 3U);
}

TEST_F(FaultReaderTest, CountsBeyondWhatOneBatchHolds)
{
    exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 70000) INSERT INTO "
         "FdbFaultTbl(EntryId) SELECT i * 3 - 100 FROM n");
    exec("INSERT INTO FdbFaultTbl(EntryId) VALUES(9223372036854775807), (-9223372036854775808)");
    exec("INSERT INTO FdbFaultStatisticTbl(FaultActive) VALUES('active'), ('inactive'), ('active'), (NULL)");
    open();
    ASSERT_EQ(reader.counts(counts), HISTORY_OK) << problem();
    EXPECT_EQ(counts.faults, 70002U);
    EXPECT_EQ(counts.statistics, 4U);
    EXPECT_EQ(counts.activeStatistics, 2U);
}

TEST_F(FaultReaderTest, CountsNothingInAnEmptyFile)
{
    open();
    counts = {1, 2, 3};
    ASSERT_EQ(reader.counts(counts), HISTORY_OK);
    EXPECT_EQ(counts.faults + counts.statistics + counts.activeStatistics, 0U);
}

TEST_F(FaultReaderTest, FindsTheActiveTriplesByTheirNewestRows)
{
    exec("INSERT INTO FdbFaultTbl(EntryId, FaultCode, ModuleName, Parameter, Status) VALUES"
         "(1, 1, 'a', 'p', 'ErrorActive'), (2, 1, 'a', 'q', 'ErrorActive'), (3, 1, 'b', 'p', 'ErrorActive'), "
         "(4, 2, 'a', 'p', 'ErrorActive'), (5, 1, 'a', 'p', 'ErrorInactive'), (6, 2, 'a', 'p', 'ErrorActive'), "
         "(7, 3, 'a', 'p', 'ErrorInactive'), (8, 3, 'a', 'p', 'ErrorActive')");
    open();
    std::vector<Fault> active(1);
    ASSERT_EQ(reader.activeNow(active), HISTORY_OK);
    std::vector<unsigned long long> found;
    for (Fault const& row : active)
    {
        found.push_back(row.EntryId);
    }
    EXPECT_THAT(found, ElementsAre(2, 3, 6, 8));
}

TEST_F(FaultReaderTest, ListsTheStartupsOfTheFaults)
{
    exec("INSERT INTO FdbFaultTbl(EntryId, TimeStampUTC, RdbStartupId) VALUES(1, 11, 7), (2, 12, 4294967295), "
         "(3, 13, 2), (5, 15, 7)");
    open();
    ASSERT_EQ(reader.startups(startups), HISTORY_OK);
    std::vector<std::string> found;
    for (Startup const& startup : startups)
    {
        found.push_back(std::to_string(startup.startupId) + ": " + std::to_string(startup.faults) + ", " +
                        std::to_string(startup.firstKey) + "-" + std::to_string(startup.lastKey) + ", " +
                        std::to_string(startup.firstTime) + "-" + std::to_string(startup.lastTime));
    }
    EXPECT_THAT(found, ElementsAre("2: 1, 3-3, 13-13", "7: 2, 1-5, 11-15", "4294967295: 1, 2-2, 12-12"));
}

TEST_F(FaultReaderTest, LeavesItsResultsUnchangedWhenACallFails)
{
    addFaults(3);
    open();
    std::vector<Fault> active(2);
    statistics.resize(3);
    counts = {1, 2, 3};
    exec("DROP TABLE FdbFaultTbl; DROP TABLE FdbFaultStatisticTbl");
    EXPECT_EQ(reader.activeNow(active), HISTORY_FAILED);
    EXPECT_EQ(reader.statistics(statistics), HISTORY_FAILED);
    EXPECT_EQ(reader.counts(counts), HISTORY_FAILED);
    EXPECT_EQ(active.size(), 2U);
    EXPECT_EQ(statistics.size(), 3U);
    EXPECT_EQ(counts.activeStatistics, 3U);
    EXPECT_THAT(problem(), StartsWith(path + ": no such table"));
}
