#include "Fixtures.h"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <functional>
#include <initializer_list>
#include <stdexcept>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

/// A version table whose column ids a test chooses.
class TblWithColumns : public SqlTbl<FdbVersion>
{
public:
    explicit TblWithColumns(std::initializer_list<unsigned short> ids) : SqlTbl<FdbVersion>("T")
    {
        for (unsigned short const id : ids)
        {
            addColumn(id, ("c" + std::to_string(id)).c_str(), COLUMN_TYPE_STRING, &m_record.Component, m_sqlVarchar);
        }
    }
    void init(std::string const&) override {}
};

/// A table with a hook that is called while rows are decoded.
class TblWithHook : public SqlTbl<FdbVersion>
{
public:
    TblWithHook() : SqlTbl<FdbVersion>("T")
    {
        addColumn(0, "c0", COLUMN_TYPE_CUSTOM, &m_record.Component, m_sqlVarchar);
    }
    void init(std::string const&) override {}
    void convertValueFromStr(columnValueType_t, std::string const&, void*) const override { onCell(); }

    std::function<void()> onCell;
};

class TableAccess : public Sqlite3DbTest
{
protected:
    TableAccess() : handle(sqlite->openDb(path))
    {
        versions.init("");
        faults.init("");
        statistics.init("");
    }

    std::string storedStatement(std::string const& table)
    {
        return RawDb(path).value("SELECT sql FROM sqlite_master WHERE name='" + table + "'");
    }

    int read(std::string const& query) { return sqlite->getTbl<FdbVersion, FdbVersion>(handle, query, out, &versions); }

    std::string const path = dir.file("a.db");
    short const handle;
    FdbSqlVersionTbl versions{"FdbVersionTbl"};
    FdbSqlFaultTbl faults{"FdbFaultTbl"};
    FdbSqlFaultStatisticTbl statistics{"FdbFaultStatisticTbl"};
    std::vector<FdbVersion> out = std::vector<FdbVersion>(2);
};

class ReadingVersions : public TableAccess
{
protected:
    ReadingVersions()
    {
        sqlite->createTbl(handle, versions);
        sqlite->execute(handle, "INSERT INTO FdbVersionTbl VALUES(1,'a','1'),(2,'b','2'),(3,'c','3')");
    }
};

} // namespace

TEST_F(TableAccess, FaultTableIsStoredWithItsExactStatement)
{
    ASSERT_EQ(sqlite->createTbl<Fault>(handle, faults), 0);
    EXPECT_EQ(storedStatement("FdbFaultTbl"),
              "CREATE TABLE \"FdbFaultTbl\" (\"EntryId\" INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL,"
              "\"DateTimeString\" VARCHAR,\"FaultCode\" INTEGER,\"FaultCodeName\" VARCHAR,\"ModuleName\" VARCHAR,"
              "\"Parameter\" VARCHAR,\"TimeStampUTC\" INTEGER,\"TimeZone\" VARCHAR,\"Status\" VARCHAR,"
              "\"Description\" VARCHAR,\"DiagSignalsDumpFileName\" VARCHAR,\"LoggerUpTime\" INTEGER,"
              "\"LoggerLifeTime\" INTEGER,\"CfgBackupFile\" VARCHAR,\"RdbStartupId\" INTEGER,"
              "\"SystemDateTimeString\" VARCHAR)");
}

TEST_F(TableAccess, StatisticTableIsStoredWithItsExactStatement)
{
    ASSERT_EQ(sqlite->createTbl<FaultStatistic>(handle, statistics), 0);
    EXPECT_EQ(storedStatement("FdbFaultStatisticTbl"),
              "CREATE TABLE \"FdbFaultStatisticTbl\" (\"EntryId\" INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL,"
              "\"FaultCode\" INTEGER,\"FaultCodeName\" VARCHAR,\"TimeFirstOccurredUTC\" INTEGER,"
              "\"TimeLastOccurredUTC\" INTEGER,\"TimeZoneFirstOccurred\" VARCHAR,\"TimeZoneLastOccurred\" VARCHAR,"
              "\"OccurenceCnt\" INTEGER,\"FaultActive\" VARCHAR,\"FaultActiveCycleCnt\" INTEGER,"
              "\"FaultEntryId\" INTEGER,\"RdbStartupId\" INTEGER)");
}

TEST_F(TableAccess, VersionTableIsStoredWithItsExactStatement)
{
    ASSERT_EQ(sqlite->createTbl<FdbVersion>(handle, versions), 0);
    EXPECT_EQ(storedStatement("FdbVersionTbl"),
              "CREATE TABLE \"FdbVersionTbl\" (\"VersionEntryId\" INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL,"
              "\"Component\" VARCHAR,\"Version\" VARCHAR)");
}

TEST_F(TableAccess, ColumnsAreWrittenInTheOrderOfTheirIds)
{
    ASSERT_EQ(sqlite->createTbl<FdbVersion>(handle, TblWithColumns{2, 0, 1}), 0);
    EXPECT_EQ(storedStatement("T"), "CREATE TABLE \"T\" (\"c0\" VARCHAR,\"c1\" VARCHAR,\"c2\" VARCHAR)");
}

TEST_F(TableAccess, ColumnsThatAreNotValidAreCreatedToo)
{
    TblWithColumns tbl{0, 1};
    tbl.m_columns.at(1).valid = false;
    ASSERT_EQ(sqlite->createTbl<FdbVersion>(handle, tbl), 0);
    EXPECT_EQ(storedStatement("T"), "CREATE TABLE \"T\" (\"c0\" VARCHAR,\"c1\" VARCHAR)");
}

TEST_F(TableAccess, ColumnIsFoundByItsIdAndNotByItsKey)
{
    TblWithColumns tbl{0, 1};
    tbl.m_columns.at(0).id = 1;
    tbl.m_columns.at(1).id = 0;
    ASSERT_EQ(sqlite->createTbl<FdbVersion>(handle, tbl), 0);
    EXPECT_EQ(storedStatement("T"), "CREATE TABLE \"T\" (\"c1\" VARCHAR,\"c0\" VARCHAR)");
}

TEST_F(TableAccess, GapInTheColumnIdsIsReportedAndNothingIsCreated)
{
    EXPECT_EQ(sqlite->createTbl<FdbVersion>(handle, TblWithColumns{0, 1, 3}), -1);
    EXPECT_EQ(console.take(), "[ERROR] SQL3::createTbl() failed to get column: 2 from tbl: T\n");
    EXPECT_EQ(RawDb(path).value("SELECT count(*) FROM sqlite_master"), "0");
}

TEST_F(TableAccess, EmptyColumnModelIsRefusedBySqlite)
{
    EXPECT_EQ(sqlite->createTbl<FdbVersion>(handle, TblWithColumns{}), -2);
    EXPECT_EQ(console.take(), "[ERROR] SQL3::execute() Sql Execute failed: near \")\": syntax error Err=1\n");
}

TEST_F(TableAccess, TableThatExistsIsRefusedWithTheLineOfExecuteOnly)
{
    ASSERT_EQ(sqlite->createTbl<FdbVersion>(handle, versions), 0);
    EXPECT_EQ(sqlite->createTbl<FdbVersion>(handle, versions), -2);
    EXPECT_EQ(console.take(),
              "[ERROR] SQL3::execute() Sql Execute failed: table \"FdbVersionTbl\" already exists Err=1\n");
}

TEST_F(TableAccess, CreationOnAnInvalidHandleReturnsWhatExecuteReturns)
{
    EXPECT_EQ(sqlite->createTbl<FdbVersion>(-1, versions), -1);
    EXPECT_EQ(console.take(), "");
}

TEST_F(TableAccess, CreationIsSilentWithoutTheDebugSwitch)
{
    ASSERT_EQ(sqlite->createTbl<FdbVersion>(handle, versions), 0);
    EXPECT_EQ(console.take(), "");
}

TEST_F(TableAccess, CreationLogsTheTableAndTheStatementWithTheDebugSwitch)
{
    sqlite->m_debug = 1;
    ASSERT_EQ(sqlite->createTbl<FdbVersion>(handle, versions), 0);
    EXPECT_THAT(console.takeLines(),
                ElementsAre("[DEBUG] SQL3::createTbl() create Table: FdbVersionTbl",
                            "[DEBUG] SQL3::createTbl() CREATE TABLE \"FdbVersionTbl\" (\"VersionEntryId\" INTEGER "
                            "PRIMARY KEY AUTOINCREMENT NOT NULL,\"Component\" VARCHAR,\"Version\" VARCHAR)"));
}

TEST_F(ReadingVersions, RowsComeInSqlitesOrderAndTheWorkingRecordHoldsTheLast)
{
    EXPECT_EQ(read("SELECT * FROM FdbVersionTbl ORDER BY VersionEntryId DESC"), 3);
    ASSERT_EQ(out.size(), 3U);
    EXPECT_EQ(out[0].Component, "c");
    EXPECT_EQ(out[2].Component, "a");
    EXPECT_EQ(members(versions.m_record), members(out[2]));
}

TEST_F(ReadingVersions, RoomForAllRowsIsReserved)
{
    read("SELECT * FROM FdbVersionTbl");
    EXPECT_EQ(out.capacity(), 3U);
}

TEST_F(ReadingVersions, QueryThatMatchesNothingEmptiesTheVector)
{
    EXPECT_EQ(read("SELECT * FROM FdbVersionTbl WHERE 0"), 0);
    EXPECT_THAT(out, IsEmpty());
}

TEST_F(ReadingVersions, StatementWithoutColumnsEmptiesTheVector)
{
    EXPECT_EQ(read("CREATE TABLE u(a)"), 0);
    EXPECT_THAT(out, IsEmpty());
}

TEST_F(ReadingVersions, MissingTableIsReportedAndTheVectorIsLeftAlone)
{
    EXPECT_EQ(read("SELECT * FROM Missing"), -2);
    EXPECT_EQ(console.take(), "[ERROR] SQL3::getTbl() Sql Query failed: no such table: Missing Err=1\n");
    EXPECT_EQ(out.size(), 2U);
}

TEST_F(ReadingVersions, FailedQueryReleasesItsMessage)
{
    read("SELECT * FROM Missing");
    sqlite3_int64 const before = sqlite3_memory_used();
    read("SELECT * FROM Missing");
    EXPECT_EQ(sqlite3_memory_used(), before);
}

TEST_F(ReadingVersions, InvalidHandleFailsSilentlyAndLeavesTheVectorAlone)
{
    for (short const invalid : {short(-1), short(handle + 1)})
    {
        EXPECT_EQ((sqlite->getTbl<FdbVersion, FdbVersion>(invalid, "SELECT 1", out, &versions)), -1);
    }
    sqlite->m_dbHandles[20].state = 2;
    EXPECT_EQ((sqlite->getTbl<FdbVersion, FdbVersion>(20, "SELECT 1", out, &versions)), -1);
    EXPECT_EQ(out.size(), 2U);
    EXPECT_EQ(console.take(), "");
}

TEST_F(ReadingVersions, DoneIsLoggedOnlyAboveTheLevelThatTheFacadeSets)
{
    sqlite->m_debug = 1;
    read("SELECT * FROM FdbVersionTbl");
    EXPECT_EQ(console.take(), "");
    sqlite->m_debug = 2;
    read("SELECT * FROM FdbVersionTbl");
    EXPECT_EQ(console.take(), "[DEBUG] SQL3::getTbl() Done\n");
}

TEST_F(ReadingVersions, RowWithCellsThatDoNotConvertIsStillAppended)
{
    EXPECT_EQ(read("SELECT 'x', 'c', 'v'"), 1);
    ASSERT_EQ(out.size(), 1U);
    EXPECT_EQ(out[0].VersionEntryId, 0);
    EXPECT_EQ(out[0].Version, "v");
    EXPECT_EQ(console.take(), "[ERROR] Casting value x\n");
}

TEST_F(ReadingVersions, MissingCellsOfAShortRowAreReadAsNullAndNotFromTheNextRow)
{
    EXPECT_EQ(read("SELECT VersionEntryId FROM FdbVersionTbl"), 3);
    ASSERT_EQ(out.size(), 3U);
    EXPECT_EQ(out[0].VersionEntryId, 1);
    EXPECT_EQ(out[0].Component, "n/a");
    EXPECT_EQ(out[2].VersionEntryId, 3);
    EXPECT_EQ(out[2].Version, "n/a");
}

TEST_F(ReadingVersions, CellsBeyondTheLastColumnAreIgnored)
{
    EXPECT_EQ(read("SELECT *, 'more', 'and more' FROM FdbVersionTbl"), 3);
    ASSERT_EQ(out.size(), 3U);
    EXPECT_EQ(out[1].VersionEntryId, 2);
    EXPECT_EQ(out[1].Version, "2");
}

TEST_F(TableAccess, ResultIsReleasedWhenDecodingThrows)
{
    TblWithHook tbl;
    tbl.onCell = [] { throw std::runtime_error("from the hook"); };
    auto const readOnce = [&] { sqlite->getTbl<FdbVersion, FdbVersion>(handle, "SELECT 'x'", out, &tbl); };
    EXPECT_THROW(readOnce(), std::runtime_error);
    sqlite3_int64 const before = sqlite3_memory_used();
    EXPECT_THROW(readOnce(), std::runtime_error);
    EXPECT_EQ(sqlite3_memory_used(), before);
}

TEST_F(TableAccess, ResultOfAConnectionThatAHookClosedIsNotReleased)
{
#ifdef __SANITIZE_ADDRESS__
    __lsan::ScopedDisabler const leakIsExpected;
#endif
    ASSERT_EQ(sqlite->closeDb(sqlite->openDb(path)), 0);
    sqlite3_int64 const before = sqlite3_memory_used();
    short const own = sqlite->openDb(path);
    TblWithHook tbl;
    tbl.onCell = [&] { EXPECT_EQ(sqlite->closeDb(own), 0); };
    EXPECT_EQ((sqlite->getTbl<FdbVersion, FdbVersion>(own, "SELECT 'x'", out, &tbl)), 1);
    EXPECT_GT(sqlite3_memory_used(), before);
}
