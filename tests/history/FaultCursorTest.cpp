#include "HistorySupport.h"

#include "AllocationSupport.h"
#include "Fixtures.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <limits>
#include <new>
#include <numeric>

using namespace firaim;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace
{

class FaultCursorTest : public HistoryTest
{
protected:
    void open() { ASSERT_EQ(reader.open(path), HISTORY_OK) << reader.lastProblem(); }

    /// The keys of the faults that match a query, newest first. `ask` fills in the query.
    std::vector<unsigned long long> found(void (*ask)(FaultQuery&))
    {
        FaultQuery query;
        ask(query);
        return keys(query);
    }

    static FaultQuery oldestFirst()
    {
        FaultQuery query;
        query.order = FaultQuery::OLDEST_FIRST;
        return query;
    }

    /// Damages the leaf page of the fault table that holds this description.
    void damagePageOf(std::string const& description) const
    {
        std::string bytes = readFile(path);
        std::size_t const page = bytes.find(description) / 4096 * 4096;
        bytes.replace(page, 8, std::string(8, '\xee'));
        writeFile(path, bytes);
    }
};

std::vector<unsigned long long> numbers(int count)
{
    std::vector<unsigned long long> all(static_cast<std::size_t>(count));
    std::iota(all.begin(), all.end(), 1);
    return all;
}

} // namespace

TEST_F(FaultCursorTest, GivesEveryFaultOnceInEitherOrder)
{
    for (int const count : {0, 1, 15, 16, 17, 48, 3000})
    {
        exec("DELETE FROM FdbFaultTbl; DELETE FROM sqlite_sequence");
        addFaults(count);
        if (count == 0)
        {
            exec("DELETE FROM FdbFaultTbl");
        }
        open();
        std::vector<unsigned long long> expected = numbers(count);
        EXPECT_EQ(keys(oldestFirst()), expected) << count;
        std::reverse(expected.begin(), expected.end());
        EXPECT_EQ(keys({}), expected) << count;
        EXPECT_EQ(reader.close(), HISTORY_OK);
    }
}

TEST_F(FaultCursorTest, FindsTheSmallestAndTheLargestPossibleKey)
{
    exec("INSERT INTO FdbFaultTbl(EntryId, Description) VALUES(9223372036854775807, 'last'), "
         "(-9223372036854775808, 'first')");
    open();
    RowCursor rows = reader.rows(HistoryTable::FAULTS);
    ASSERT_EQ(rows.next(), HISTORY_OK);
    EXPECT_EQ(rows.key(), std::numeric_limits<std::int64_t>::min());
    ASSERT_EQ(rows.next(), HISTORY_OK);
    EXPECT_EQ(rows.key(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(rows.next(), HISTORY_END);
    EXPECT_EQ(rows.next(), HISTORY_END);
}

TEST_F(FaultCursorTest, FiltersByEachCriterion)
{
    exec("INSERT INTO FdbFaultTbl(EntryId, FaultCode, ModuleName, Parameter, TimeStampUTC, Status, Description, "
         "FaultCodeName, DiagSignalsDumpFileName, CfgBackupFile, RdbStartupId) VALUES"
         "(1, 10, 'm', 'p', 1000000000000, 'ErrorActive', 'Overheat', '', '', '', 1),"
         "(2, 20, 'M', 'needle', 1000000001000, 'ErrorInactive', '', '', '', '', 2),"
         "(3, 4294967295, 'n', 'p', 1000000002000, 'ErrorActive', 'x', 'NEEDLE name', '', '', 4294967295),"
         "(4, 10, 'Needle', 'p', 0, 'ErrorActive', '', '', 'a/Needle.bin', 'b', 1),"
         "(5, 30, '', '', 1000000003000, 'ErrorInactive', '', '', '', 'xneEDlex', 3)");
    open();
    EXPECT_THAT(found([](FaultQuery& query) { query.codes = {10}; }), ElementsAre(4, 1));
    EXPECT_THAT(found([](FaultQuery& query) { query.codes = {30, 4294967295U}; }), ElementsAre(5, 3));
    EXPECT_THAT(found([](FaultQuery& query) { query.modules = {"m"}; }), ElementsAre(1));
    EXPECT_THAT(found([](FaultQuery& query) { query.modules = {"", "M"}; }), ElementsAre(5, 2));
    EXPECT_THAT(found([](FaultQuery& query) { query.startups = {4294967295U, 2}; }), ElementsAre(3, 2));
    EXPECT_THAT(found([](FaultQuery& query) { query.isActiveOnly = true; }), ElementsAre(4, 3, 1));
    EXPECT_THAT(found([](FaultQuery& query) { query.since = 1000000001000; }), ElementsAre(5, 3, 2));
    EXPECT_THAT(found([](FaultQuery& query) { query.until = 1000000001000; }), ElementsAre(1));
    EXPECT_THAT(found([](FaultQuery& query) { query.text = "nEedle"; }), ElementsAre(5, 4, 3, 2));
    EXPECT_THAT(found([](FaultQuery& query) { query.text = ""; }), ElementsAre(5, 4, 3, 2, 1));
    EXPECT_THAT(found([](FaultQuery& query) { query.text = "%"; }), IsEmpty());
    EXPECT_THAT(found([](FaultQuery& query) { query.modules = {"x' OR '1'='1"}; }), IsEmpty());
    EXPECT_THAT(found([](FaultQuery& query) { query.afterKey = 3; }), ElementsAre(5, 4));
    EXPECT_THAT(found([](FaultQuery& query) { query.beforeKey = 3; }), ElementsAre(2, 1));
    EXPECT_THAT(found([](FaultQuery& query) { query.afterKey = std::numeric_limits<std::int64_t>::max(); }), IsEmpty());
    EXPECT_THAT(found([](FaultQuery& query) { query.beforeKey = std::numeric_limits<std::int64_t>::min(); }),
                IsEmpty());
    EXPECT_THAT(found([](FaultQuery& query) { query.limit = 2; }), ElementsAre(5, 4));
    EXPECT_THAT(found([](FaultQuery& query) { query.limit = 0; }), IsEmpty());
}

TEST_F(FaultCursorTest, FiltersByTheGivenUnitOfTime)
{
    exec("INSERT INTO FdbFaultTbl(EntryId, TimeStampUTC) VALUES(1, 5000), (2, 6000)");
    open();
    FaultQuery query;
    query.timeUnit = TimeUnit::SECONDS;
    query.since = 5500 * 1000;
    EXPECT_THAT(keys(query), ElementsAre(2));
    query.timeUnit = TimeUnit::MILLISECONDS;
    query.since = 5500;
    EXPECT_THAT(keys(query), ElementsAre(2));
    query.since = 5500 * 1000;
    EXPECT_THAT(keys(query), IsEmpty());
}

TEST_F(FaultCursorTest, FiltersByAllCriteriaTogether)
{
    addFaults(1000);
    open();
    FaultQuery query = oldestFirst();
    query.codes = {1001};
    query.modules = {"module"};
    query.startups = {2, 3};
    query.isActiveOnly = true;
    query.since = 1772366400000 + 250;
    query.until = 1772366400000 + 350;
    query.text = "FAULT 3";
    query.afterKey = 310;
    query.beforeKey = 340;
    query.limit = 4;
    EXPECT_THAT(keys(query), ElementsAre(313, 316, 319, 322));
}

TEST_F(FaultCursorTest, GoesOnFromItsPosition)
{
    addFaults(100);
    open();
    FaultQuery query = oldestFirst();
    query.codes = {1001};
    std::vector<unsigned long long> pieces;
    for (int round = 0; round < 200; ++round)
    {
        query.limit = 3;
        FaultCursor cursor = reader.faults(query);
        EXPECT_FALSE(cursor.position());
        Fault fault;
        int result = HISTORY_OK;
        while ((result = cursor.next(fault)) == HISTORY_OK)
        {
            pieces.push_back(fault.EntryId);
        }
        ASSERT_EQ(result, HISTORY_END);
        if (!cursor.position())
        {
            break;
        }
        query.afterKey = cursor.position();
    }
    query.limit.reset();
    query.afterKey.reset();
    EXPECT_EQ(pieces, keys(query));
    EXPECT_EQ(query.codes.size(), 1U);
}

TEST_F(FaultCursorTest, HoldsNoLockBetweenTwoCalls)
{
    addFaults(2000);
    open();
    FaultCursor cursor = reader.faults(oldestFirst());
    Fault fault;
    for (int rows = 0; rows < 2000; ++rows)
    {
        ASSERT_EQ(cursor.next(fault), HISTORY_OK);
        if (rows % 100 == 0)
        {
            LockingProcess const other(path); // Fails the test if the file is locked.
        }
    }
    EXPECT_EQ(cursor.next(fault), HISTORY_END);
}

TEST_F(FaultCursorTest, GoesOnAfterALockHasEnded)
{
    addFaults(100);
    ReaderOptions options;
    options.busyTimeout = 1ms;
    ASSERT_EQ(reader.open(path, options), HISTORY_OK);
    FaultCursor cursor = reader.faults(oldestFirst());
    Fault fault;
    ASSERT_EQ(cursor.next(fault), HISTORY_OK);
    {
        LockingProcess const other(path);
        int result = HISTORY_OK;
        while (result == HISTORY_OK)
        {
            result = cursor.next(fault);
        }
        EXPECT_EQ(result, HISTORY_BUSY);
        EXPECT_EQ(cursor.next(fault), HISTORY_BUSY);
    }
    unsigned long long const last = fault.EntryId;
    ASSERT_EQ(cursor.next(fault), HISTORY_OK) << reader.lastProblem();
    EXPECT_EQ(fault.EntryId, last + 1);
}

TEST_F(FaultCursorTest, ReadsNoFaultThatWasAddedAfterItsStart)
{
    addFaults(1000);
    open();
    FaultCursor cursor = reader.faults(oldestFirst());
    Fault fault;
    ASSERT_EQ(cursor.next(fault), HISTORY_OK);
    addFaults(1000);
    int rows = 1;
    while (cursor.next(fault) == HISTORY_OK)
    {
        ++rows;
    }
    EXPECT_EQ(rows, 1000);
}

TEST_F(FaultCursorTest, OutlivesItsReader)
{
    addFaults(100);
    open();
    FaultCursor cursor = reader.faults(oldestFirst());
    EXPECT_EQ(reader.close(), HISTORY_OK);
    Fault fault;
    int rows = 0;
    while (cursor.next(fault) == HISTORY_OK)
    {
        ++rows;
    }
    EXPECT_EQ(rows, 100);
}

TEST_F(FaultCursorTest, ShowsCellsAsTheFileHoldsThem)
{
    exec("INSERT INTO FdbFaultTbl(EntryId, FaultCode, Description, TimeStampUTC, LoggerUpTime, ModuleName) VALUES"
         "(5, -3, 'a' || char(0) || 'b', 2.5, x'0102', NULL)");
    open();
    FaultCursor cursor = reader.faults();
    Fault fault;
    ASSERT_EQ(cursor.next(fault), HISTORY_OK);
    RowCursor const& row = cursor.row();
    EXPECT_EQ(cursor.key(), 5);
    EXPECT_EQ(row.cellCount(), 16U);
    EXPECT_EQ(row.type(0), RowCursor::CELL_INTEGER);
    EXPECT_EQ(row.integer(0), 5);
    EXPECT_EQ(row.integer(2), -3);
    EXPECT_EQ(row.type(4), RowCursor::CELL_NULL);
    EXPECT_EQ(row.type(6), RowCursor::CELL_REAL);
    EXPECT_EQ(row.real(6), 2.5);
    EXPECT_EQ(row.bytes(6), "2.5");
    EXPECT_EQ(row.type(9), RowCursor::CELL_TEXT);
    EXPECT_EQ(row.bytes(9), std::string("a\0b", 3));
    EXPECT_EQ(row.type(11), RowCursor::CELL_BLOB);
    EXPECT_EQ(row.bytes(11), "\x01\x02");
    EXPECT_EQ(row.integer(9), 0);
    EXPECT_EQ(row.real(9), 0);
    EXPECT_EQ(row.bytes(0), "");
}

TEST_F(FaultCursorTest, ReadsAColumnThatTheFileLacksAsNull)
{
    exec("DROP TABLE FdbFaultTbl; CREATE TABLE FdbFaultTbl(rowid TEXT, FaultCode INTEGER, Status TEXT); "
         "INSERT INTO FdbFaultTbl(_rowid_, rowid, FaultCode, Status) VALUES(4, 'x', 7, 'ErrorActive')");
    open();
    FaultCursor cursor = reader.faults();
    Fault fault;
    ASSERT_EQ(cursor.next(fault), HISTORY_OK) << reader.lastProblem();
    EXPECT_EQ(cursor.row().type(0), RowCursor::CELL_NULL);
    EXPECT_EQ(static_cast<unsigned int>(fault.FaultCode), 7U);
    EXPECT_EQ(fault.Description, "n/a");
    EXPECT_EQ(fault.TimeStampUTC, 0U);
    EXPECT_EQ(fault.Status, FAULT_ACTIVE);
}

TEST_F(FaultCursorTest, ReadsARowThatIsLargerThanABatch)
{
    exec("INSERT INTO FdbFaultTbl(Description) VALUES('before'), (hex(zeroblob(2000000))), ('after')");
    open();
    FaultCursor cursor = reader.faults(oldestFirst());
    Fault fault;
    ASSERT_EQ(cursor.next(fault), HISTORY_OK);
    ASSERT_EQ(cursor.next(fault), HISTORY_OK);
    EXPECT_EQ(fault.Description.size(), 4000000U);
    ASSERT_EQ(cursor.next(fault), HISTORY_OK);
    EXPECT_EQ(fault.Description, "after");
    EXPECT_EQ(cursor.next(fault), HISTORY_END);
}

TEST_F(FaultCursorTest, ReadsFaultsBeforeADamagedPageAndThenFails)
{
    addFaults(3000);
    damagePageOf("fault 2000");
    open();
    FaultCursor cursor = reader.faults(oldestFirst());
    Fault fault;
    int result = HISTORY_OK;
    unsigned long long rows = 0;
    while ((result = cursor.next(fault)) == HISTORY_OK)
    {
        ASSERT_EQ(fault.EntryId, ++rows);
    }
    EXPECT_EQ(result, HISTORY_DAMAGED);
    EXPECT_GT(rows, 1900U);
    EXPECT_LT(rows, 2000U);
    EXPECT_THAT(reader.lastProblem(), HasSubstr("'firaim check' tells what is damaged"));
    EXPECT_EQ(cursor.next(fault), HISTORY_DAMAGED);
    EXPECT_EQ(fault.EntryId, rows);
}

TEST_F(FaultCursorTest, ReportsItsProgress)
{
    addFaults(100);
    open();
    for (FaultQuery::Order const order : {FaultQuery::OLDEST_FIRST, FaultQuery::NEWEST_FIRST})
    {
        RowCursor rows = reader.rows(HistoryTable::FAULTS, order);
        EXPECT_EQ(rows.progress(), 0.0);
        for (int row = 0; row < 25; ++row)
        {
            ASSERT_EQ(rows.next(), HISTORY_OK);
        }
        EXPECT_DOUBLE_EQ(rows.progress(), 0.25);
        while (rows.next() == HISTORY_OK)
        {
        }
        EXPECT_EQ(rows.progress(), 1.0);
    }
}

TEST_F(FaultCursorTest, HoldsNoLockAndGoesOnAfterMemoryRanOut)
{
    addFaults(100);
    open();
    FaultCursor cursor = reader.faults(oldestFirst());
    std::vector<unsigned long long> found;
    Fault fault;
    while (found.size() < 16 && cursor.next(fault) == HISTORY_OK)
    {
        found.push_back(fault.EntryId);
    }
    bool hasRunOut = false;
    try
    {
        // The next batch is larger, so memory runs out in the middle of it.
        RefusedAllocations const refused;
        static_cast<void>(cursor.next(fault));
    }
    catch (std::bad_alloc const&)
    {
        hasRunOut = true;
    }
    ASSERT_TRUE(hasRunOut);
    exec("UPDATE FdbVersionTbl SET Version = Version");
    while (cursor.next(fault) == HISTORY_OK)
    {
        found.push_back(fault.EntryId);
    }
    EXPECT_EQ(found, numbers(100));
}
