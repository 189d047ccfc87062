#include "Fixtures.h"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <limits>
#include <stdexcept>

#include <sys/stat.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace
{

/// A callback object that keeps what it was given, and does what a test wants of it.
class RowCollector : public Sqlite3DbCallback
{
public:
    int dataBaseQueryCb(sqlite3DbCbCgf_t* cfg, int argc, char** argv, char** colNames) override
    {
        lastCfg = *cfg;
        RawDb::row_t row;
        names.clear();
        for (int i = 0; i < argc; ++i)
        {
            row.push_back(argv[i] != nullptr ? std::optional<std::string>(argv[i]) : std::nullopt);
            names.emplace_back(colNames[i]);
        }
        rows.push_back(row);
        if (throws)
        {
            throw std::runtime_error("from the callback");
        }
        return result;
    }

    sqlite3DbCbCgf_t lastCfg{};
    std::vector<RawDb::row_t> rows;
    std::vector<std::string> names;
    bool throws = false;
    int result = 0;
};

class OpenedDb : public Sqlite3DbTest
{
protected:
    OpenedDb() : handle(sqlite->openDb(path))
    {
        EXPECT_EQ(sqlite->execute(handle, "CREATE TABLE t(a,b)"), 0);
        console.take();
    }

    sqlite3* connection() const { return sqlite->m_dbHandles.at(handle).db; }

    std::string pragma(std::string const& name) const
    {
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(connection(), ("PRAGMA " + name).c_str(), -1, &statement, nullptr);
        EXPECT_EQ(sqlite3_step(statement), SQLITE_ROW);
        std::string value = reinterpret_cast<char const*>(sqlite3_column_text(statement, 0));
        sqlite3_finalize(statement);
        return value;
    }

    int dbConfig(int option) const
    {
        int value = -1;
        sqlite3_db_config(connection(), option, -1, &value);
        return value;
    }

    std::string const path = dir.file("a.db");
    short const handle;
    RowCollector rows;
    int kind = 7;
};

} // namespace

TEST_F(Sqlite3DbTest, InstanceIsTheSameForEveryArgument)
{
    EXPECT_EQ(Sqlite3Db::getInstance(0), Sqlite3Db::getInstance(1));
}

TEST_F(Sqlite3DbTest, DebugSwitchStartsOff)
{
    Sqlite3Db const own;
    EXPECT_EQ(own.m_debug, 0);
}

TEST_F(Sqlite3DbTest, DefaultRegistryEntryIsUnusable)
{
    Sqlite3Db::DbHandle const entry;
    EXPECT_EQ(entry.dbId, -1);
    EXPECT_EQ(entry.dbPath, "");
    EXPECT_EQ(entry.db, nullptr);
    EXPECT_EQ(entry.state, 0);
    EXPECT_EQ(entry.reserved, 0);
}

TEST_F(Sqlite3DbTest, MembersOfARegistryEntryStandInTheirOrder)
{
    Sqlite3Db::DbHandle const entry;
    std::vector<void const*> const members = {&entry.dbId, &entry.dbPath, &entry.db, &entry.state, &entry.reserved};
    EXPECT_TRUE(std::is_sorted(members.begin(), members.end()));
}

TEST_F(Sqlite3DbTest, DebugSwitchStandsBeforeTheRegistry)
{
    EXPECT_LT(static_cast<void*>(&sqlite->m_debug), static_cast<void*>(&sqlite->m_dbHandles));
}

TEST_F(Sqlite3DbTest, HandlesCountFromZero)
{
    Sqlite3Db own;
    EXPECT_EQ(own.openDb(dir.file("a.db")), 0);
    EXPECT_EQ(own.openDb(dir.file("b.db")), 1);
    EXPECT_EQ(own.closeDb(0), 0);
    EXPECT_EQ(own.closeDb(1), 0);
}

TEST_F(Sqlite3DbTest, OpenRegistersPathAndUsableState)
{
    short const handle = sqlite->openDb(dir.file("a.db"));
    Sqlite3Db::DbHandle const& entry = sqlite->m_dbHandles.at(handle);
    EXPECT_EQ(entry.dbId, handle);
    EXPECT_EQ(entry.dbPath, dir.file("a.db"));
    EXPECT_EQ(entry.state, 1);
}

TEST_F(Sqlite3DbTest, NumberJustClosedIsNotTheNextOneGivenOut)
{
    short const first = sqlite->openDb(dir.file("a.db"));
    ASSERT_EQ(sqlite->closeDb(first), 0);
    EXPECT_NE(sqlite->openDb(dir.file("a.db")), first);
}

TEST_F(Sqlite3DbTest, NumberJustClosedIsPassedOverAfterTheNumbersHaveWrapped)
{
    Sqlite3Db own;
    ASSERT_EQ(own.openDb(dir.file("a.db")), 0);
    own.m_nextHandle = std::numeric_limits<short>::max();
    ASSERT_EQ(own.openDb(dir.file("a.db")), std::numeric_limits<short>::max());
    ASSERT_EQ(own.closeDb(0), 0);
    EXPECT_EQ(own.openDb(dir.file("a.db")), 1);
    EXPECT_EQ(own.closeDb(1), 0);
    EXPECT_EQ(own.closeDb(std::numeric_limits<short>::max()), 0);
}

TEST_F(Sqlite3DbTest, OnlyFreeNumberIsGivenOutEvenIfJustClosed)
{
    Sqlite3Db own;
    for (int handle = 1; handle <= std::numeric_limits<short>::max(); ++handle)
    {
        own.m_dbHandles[static_cast<short>(handle)].state = 1;
    }
    ASSERT_EQ(own.openDb(dir.file("a.db")), 0);
    ASSERT_EQ(own.closeDb(0), 0);
    EXPECT_EQ(own.openDb(dir.file("a.db")), 0);
    EXPECT_EQ(own.closeDb(0), 0);
}

TEST_F(Sqlite3DbTest, OpenIsNegativeWhenAllHandlesAreInUse)
{
    Sqlite3Db own;
    for (int handle = 0; handle <= std::numeric_limits<short>::max(); ++handle)
    {
        own.m_dbHandles[static_cast<short>(handle)].state = 1;
    }
    EXPECT_EQ(own.openDb(dir.file("a.db")), -1);
    EXPECT_EQ(console.take(),
              "[ERROR] SQL3::openDb() Failed to open: " + dir.file("a.db") + " all handles are in use\n");
    EXPECT_FALSE(exists(dir.file("a.db")));
}

TEST_F(Sqlite3DbTest, OpenCreatesAMissingFileEmpty)
{
    EXPECT_GE(sqlite->openDb(dir.file("new.db")), 0);
    EXPECT_EQ(readFile(dir.file("new.db")), "");
    EXPECT_EQ(console.take(), "");
}

TEST_F(Sqlite3DbTest, OpenOfADirectoryFailsAndNamesIt)
{
    EXPECT_EQ(sqlite->openDb(dir.path()), -2);
    EXPECT_EQ(console.take(),
              "[ERROR] SQL3::openDb() Failed to open: " + dir.path() + " unable to open database file Err=14\n");
    EXPECT_THAT(sqlite->m_dbHandles, IsEmpty());
}

TEST_F(Sqlite3DbTest, OpenInNoDirectoryFailsAndCreatesNothing)
{
    std::string const path = dir.file("missing/a.db");
    EXPECT_EQ(sqlite->openDb(path), -2);
    EXPECT_EQ(console.take(),
              "[ERROR] SQL3::openDb() Failed to open: " + path + " unable to open database file Err=14\n");
    EXPECT_FALSE(exists(dir.file("missing")));
}

TEST_F(Sqlite3DbTest, OpenInAnUnwritableDirectoryFailsAndCreatesNothing)
{
    ASSERT_EQ(chmod(dir.path().c_str(), 0555), 0);
    {
        WithoutRoot const user;
        EXPECT_EQ(sqlite->openDb(dir.file("a.db")), -2);
    }
    EXPECT_THAT(console.take(), StartsWith("[ERROR] SQL3::openDb() Failed to open: " + dir.file("a.db")));
    EXPECT_FALSE(exists(dir.file("a.db")));
}

TEST_F(Sqlite3DbTest, OpenOfAnEmptyNameFails)
{
    EXPECT_EQ(sqlite->openDb(""), -2);
}

TEST_F(Sqlite3DbTest, OpenOfANameWithAZeroByteFailsAndCreatesNothing)
{
    EXPECT_EQ(sqlite->openDb(dir.file("a.db") + std::string("\0x", 2)), -2);
    EXPECT_FALSE(exists(dir.file("a.db")));
}

TEST_F(Sqlite3DbTest, NamesThatSqliteTreatsSpeciallyMeanFiles)
{
    CurrentFolder const folder(dir.path());
    for (std::string const name : {":memory:", "file:b.db?mode=memory", "plain.db"})
    {
        short const handle = sqlite->openDb(name);
        EXPECT_EQ(sqlite->execute(handle, "CREATE TABLE t(a)"), 0) << name;
        EXPECT_TRUE(exists(dir.file(name))) << name;
    }
}

TEST_F(Sqlite3DbTest, OpeningAndClosingAForeignOrDamagedFileLeavesItsBytes)
{
    std::string valid;
    {
        RawDb raw(dir.file("valid.db"));
        raw.exec("CREATE TABLE t(a); INSERT INTO t VALUES(hex(randomblob(9000)))");
    }
    valid = readFile(dir.file("valid.db"));
    struct
    {
        char const* name;
        std::string bytes;
    } const files[] = {{"a text", "no database at all, but longer than a hundred bytes: " + std::string(200, 'x')},
                       {"empty", ""},
                       {"short", "SQLite"},
                       {"truncated", valid.substr(0, 5000)},
                       {"damaged schema", valid.substr(0, 100) + std::string(4000, '\xff') + valid.substr(4100)},
                       {"a database of another program", valid}};
    for (auto const& file : files)
    {
        std::string const path = dir.file("foreign.db");
        writeFile(path, file.bytes);
        short const handle = sqlite->openDb(path);
        EXPECT_GE(handle, 0) << file.name;
        EXPECT_EQ(sqlite->closeDb(handle), 0) << file.name;
        EXPECT_EQ(readFile(path), file.bytes) << file.name;
        EXPECT_FALSE(exists(path + "-journal")) << file.name;
    }
}

TEST_F(Sqlite3DbTest, StatementOnAFileThatIsNoDatabaseFailsWithSqlitesMessage)
{
    writeFile(dir.file("text.db"), std::string(1000, 'x'));
    short const handle = sqlite->openDb(dir.file("text.db"));
    EXPECT_EQ(sqlite->execute(handle, "CREATE TABLE t(a)"), -2);
    EXPECT_EQ(console.take(), "[ERROR] SQL3::execute() Sql Execute failed: file is not a database Err=26\n");
}

TEST_F(Sqlite3DbTest, FileInWriteAheadLogModeIsLeftAlone)
{
    std::string const path = dir.file("wal.db");
    RawDb raw(path);
    raw.exec("PRAGMA journal_mode=WAL; CREATE TABLE t(a); INSERT INTO t VALUES(1)");
    // A copy with its log, as it is after a crash; the original's log is emptied when its last connection closes.
    std::string const copy = dir.file("copy.db");
    writeFile(copy, readFile(path));
    writeFile(copy + "-wal", readFile(path + "-wal"));
    std::string const before = readFile(copy);

    short const handle = sqlite->openDb(copy);
    ASSERT_GE(handle, 0);
    EXPECT_EQ(RawDb(path).value("PRAGMA journal_mode"), "wal");
    EXPECT_EQ(sqlite->closeDb(handle), 0);
    EXPECT_EQ(readFile(copy), before);
    EXPECT_EQ(RawDb(copy).value("SELECT count(*) FROM t"), "1");
}

TEST_F(Sqlite3DbTest, ReadOnlyFileOpensAndReadsAndRefusesWrites)
{
    std::string const path = dir.file("a.db");
    RawDb(path).exec("CREATE TABLE t(a); INSERT INTO t VALUES(1)");
    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    std::string const before = readFile(path);
    {
        WithoutRoot const user;
        short const handle = sqlite->openDb(path);
        RowCollector rows;
        int kind = 0;
        EXPECT_EQ(sqlite->execute(handle, "SELECT a FROM t", {&rows, &kind}), 0);
        EXPECT_THAT(rows.rows, ElementsAre(RawDb::row_t{"1"}));
        EXPECT_EQ(sqlite->execute(handle, "INSERT INTO t VALUES(2)"), -2);
    }
    EXPECT_EQ(console.take(),
              "[ERROR] SQL3::execute() Sql Execute failed: attempt to write a readonly database Err=8\n");
    EXPECT_EQ(readFile(path), before);
}

TEST_F(Sqlite3DbTest, OpenGivesUpOnAFileThatAnotherProcessKeepsLocked)
{
    std::string const path = dir.file("a.db");
    RawDb(path).exec("CREATE TABLE t(a)");
    {
        LockingProcess const other(path);
        EXPECT_EQ(sqlite->openDb(path), -2);
        EXPECT_EQ(console.take(), "[ERROR] SQL3::openDb() Failed to open: " + path + " database is locked Err=5\n");
    }
    EXPECT_GE(sqlite->openDb(path), 0);
}

TEST_F(OpenedDb, ConnectionSynchronisesEveryCommit)
{
    EXPECT_EQ(pragma("synchronous"), "2");
    EXPECT_EQ(pragma("journal_mode"), "persist");
}

TEST_F(OpenedDb, CommitLeavesAnInvalidatedJournalBesideTheFile)
{
    std::string const journal = readFile(path + "-journal");
    ASSERT_GE(journal.size(), 28U);
    EXPECT_EQ(journal.substr(0, 28), std::string(28, '\0'));
}

TEST_F(OpenedDb, ConnectionDistrustsTheFile)
{
    EXPECT_EQ(dbConfig(SQLITE_DBCONFIG_TRUSTED_SCHEMA), 0);
    EXPECT_EQ(dbConfig(SQLITE_DBCONFIG_DEFENSIVE), 1);
    EXPECT_EQ(pragma("cell_size_check"), "1");
}

TEST_F(Sqlite3DbTest, FreeWithEmptyRegistryFails)
{
    EXPECT_EQ(sqlite->free(0, nullptr), -1);
}

TEST_F(Sqlite3DbTest, FreeOfHandleInAnotherStateFailsAndLeavesTheMemoryAlone)
{
    sqlite->m_dbHandles[5].state = 2;
    char* const text = sqlite3_mprintf("kept");
    EXPECT_EQ(sqlite->free(5, text), -1);
    EXPECT_STREQ(text, "kept");
    sqlite3_free(text);
}

TEST_F(OpenedDb, FreeReleasesTheMemory)
{
    sqlite3_int64 const before = sqlite3_memory_used();
    EXPECT_EQ(sqlite->free(handle, sqlite3_mprintf("%01000d", 1)), 0);
    EXPECT_EQ(sqlite3_memory_used(), before);
}

TEST_F(OpenedDb, CloseEndsTheHandle)
{
    EXPECT_EQ(sqlite->closeDb(handle), 0);
    EXPECT_EQ(sqlite->findOpen(handle), nullptr);
    EXPECT_EQ(sqlite->execute(handle, "SELECT 1"), -1);
    EXPECT_EQ(sqlite->closeDb(handle), -1);
    EXPECT_EQ(console.take(), "");
}

TEST_F(Sqlite3DbTest, CloseOfAnUnknownHandleFails)
{
    EXPECT_EQ(sqlite->closeDb(-1), -1);
    EXPECT_EQ(sqlite->closeDb(77), -1);
}

TEST_F(OpenedDb, CloseThatSqliteRefusesLeavesTheHandleValid)
{
    sqlite3_stmt* statement = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(connection(), "SELECT 1", -1, &statement, nullptr), SQLITE_OK);
    EXPECT_EQ(sqlite->closeDb(handle), -2);
    EXPECT_EQ(sqlite->execute(handle, "SELECT 1"), 0);
    sqlite3_finalize(statement);
    EXPECT_EQ(sqlite->closeDb(handle), 0);
}

TEST_F(OpenedDb, ExecuteRunsTheStatementSilently)
{
    EXPECT_EQ(sqlite->execute(handle, "INSERT INTO t VALUES(1,2)"), 0);
    EXPECT_EQ(RawDb(path).value("SELECT a+b FROM t"), "3");
    EXPECT_EQ(console.take(), "");
}

TEST_F(OpenedDb, ExecutePassesOverRows)
{
    EXPECT_EQ(sqlite->execute(handle, "SELECT 1 UNION SELECT 2"), 0);
}

TEST_F(OpenedDb, BothFormsOfExecuteFailSilentlyOnAnInvalidHandle)
{
    EXPECT_EQ(sqlite->execute(-1, "SELECT 1"), -1);
    EXPECT_EQ(sqlite->execute(-1, "SELECT 1", {&rows, &kind}), -1);
    EXPECT_EQ(console.take(), "");
}

TEST_F(OpenedDb, FailedStatementIsReportedOnceByBothForms)
{
    std::string const line = "[ERROR] SQL3::execute() Sql Execute failed: no such table: absent Err=1\n";
    EXPECT_EQ(sqlite->execute(handle, "SELECT * FROM absent"), -2);
    EXPECT_EQ(console.take(), line);
    EXPECT_EQ(sqlite->execute(handle, "SELECT * FROM absent", {&rows, &kind}), -2);
    EXPECT_EQ(console.take(), line);
}

TEST_F(OpenedDb, StatementThatFailsWhileRunningIsReportedWithItsOwnCode)
{
    ASSERT_EQ(sqlite->execute(handle, "CREATE TABLE u(a UNIQUE)"), 0);
    ASSERT_EQ(sqlite->execute(handle, "INSERT INTO u VALUES(1)"), 0);
    EXPECT_EQ(sqlite->execute(handle, "INSERT INTO u VALUES(1)"), -2);
    EXPECT_EQ(console.take(), "[ERROR] SQL3::execute() Sql Execute failed: UNIQUE constraint failed: u.a Err=19\n");
}

TEST_F(OpenedDb, BlanksSemicolonsAndCommentsMayFollowAStatement)
{
    for (char const* tail : {"", ";", " ; ;\n\t", " -- the end", "; /* more */ ;", "; -- a\n -- b\n", " /* open"})
    {
        std::string const sql = std::string("INSERT INTO t VALUES(1,1)") + tail;
        EXPECT_EQ(sqlite->execute(handle, sql.c_str()), 0) << sql;
        EXPECT_EQ(sqlite->execute(handle, sql.c_str(), {&rows, &kind}), 0) << sql;
    }
    EXPECT_EQ(RawDb(path).value("SELECT count(*) FROM t"), "14");
}

TEST_F(OpenedDb, AnythingElseAfterAStatementIsRefusedBeforeItRuns)
{
    for (char const* tail : {"; DROP TABLE t", ";SELECT 1", "; nonsense", "; -- a\nDELETE FROM t", ";;/**/x"})
    {
        std::string const sql = std::string("INSERT INTO t VALUES(1,1)") + tail;
        EXPECT_EQ(sqlite->execute(handle, sql.c_str()), -2) << sql;
        EXPECT_EQ(console.take(), "[ERROR] SQL3::execute() Sql Execute failed: more than one statement Err=21\n");
        EXPECT_EQ(sqlite->execute(handle, sql.c_str(), {&rows, &kind}), -2) << sql;
        EXPECT_EQ(console.take(), "[ERROR] SQL3::execute() Sql Execute failed: more than one statement Err=21\n");
    }
    EXPECT_EQ(RawDb(path).value("SELECT count(*) FROM t"), "0");
}

TEST_F(OpenedDb, RefusedPragmasHaveNoEffectThoughTheyActWhenCompiled)
{
    for (char const* sql :
         {"SELECT 1; PRAGMA synchronous=OFF", "PRAGMA synchronous=OFF; SELECT 1",
          "PRAGMA synchronous=OFF; -- a\n; PRAGMA synchronous=OFF", "EXPLAIN PRAGMA synchronous=OFF; SELECT 1",
          "PRAGMA synchronous=OFF SELECT 1", "/* ; */ PRAGMA synchronous=OFF; SELECT 1"})
    {
        EXPECT_EQ(sqlite->execute(handle, sql), -2) << sql;
        EXPECT_EQ(pragma("synchronous"), "2") << sql;
    }
}

TEST_F(OpenedDb, SinglePragmaTakesEffect)
{
    EXPECT_EQ(sqlite->execute(handle, "PRAGMA synchronous=NORMAL; -- for a test"), 0);
    EXPECT_EQ(pragma("synchronous"), "1");
}

TEST_F(OpenedDb, SemicolonsMayStandBeforeTheStatement)
{
    EXPECT_EQ(sqlite->execute(handle, " ; INSERT INTO t VALUES(1,1)"), 0);
    EXPECT_EQ(RawDb(path).value("SELECT count(*) FROM t"), "1");
}

TEST_F(OpenedDb, StatementsInsideATriggerAreOneStatement)
{
    EXPECT_EQ(sqlite->execute(handle, "CREATE TRIGGER g AFTER INSERT ON t BEGIN DELETE FROM t; SELECT 1; END; "), 0);
    EXPECT_EQ(sqlite->execute(handle, "CREATE TRIGGER h AFTER INSERT ON t BEGIN SELECT 1; END; SELECT 1"), -2);
    EXPECT_EQ(RawDb(path).value("SELECT count(*) FROM sqlite_master WHERE type='trigger'"), "1");
}

TEST_F(OpenedDb, SemicolonsInsideLiteralsNamesAndCommentsDoNotEndAStatement)
{
    for (char const* sql :
         {"INSERT INTO t VALUES('a;b;''c;', 1)", "INSERT INTO t(\"a\", [b]) VALUES(1, 1) -- ; SELECT",
          "INSERT /* ; SELECT 1 */ INTO t VALUES(1, 1)", "SELECT 1 AS `a;b`, 2 AS [c;d], 3 AS \"e;f\""})
    {
        EXPECT_EQ(sqlite->execute(handle, sql), 0) << sql;
    }
}

TEST_F(OpenedDb, TextWithoutAStatementIsRefused)
{
    for (char const* sql : {"", " ", "-- nothing", " ;; /* nothing", static_cast<char const*>(nullptr)})
    {
        EXPECT_EQ(sqlite->execute(handle, sql), -2);
        EXPECT_EQ(console.take(), "[ERROR] SQL3::execute() Sql Execute failed: no statement Err=21\n");
    }
}

TEST_F(OpenedDb, RowFormHandsOverCellsNamesAndConfiguration)
{
    EXPECT_EQ(sqlite->execute(handle, "SELECT 1 AS x, NULL AS y UNION ALL SELECT 'b', ''", {&rows, &kind}), 0);
    EXPECT_THAT(rows.rows, ElementsAre(RawDb::row_t{"1", std::nullopt}, RawDb::row_t{"b", ""}));
    EXPECT_THAT(rows.names, ElementsAre("x", "y"));
    EXPECT_EQ(rows.lastCfg.callbackObj, &rows);
    EXPECT_EQ(rows.lastCfg.sqlCmdQueryCb, &kind);
}

TEST_F(OpenedDb, RowFormHandsOverTheColumnsOfASchemaThatChangedMeanwhile)
{
    ASSERT_EQ(sqlite->execute(handle, "INSERT INTO t VALUES(1,2)"), 0);
    for (int i = 0; i < 30; ++i)
    {
        RawDb(path).exec("ALTER TABLE t ADD COLUMN c" + std::to_string(i));
    }
    EXPECT_EQ(sqlite->execute(handle, "SELECT * FROM t", {&rows, &kind}), 0);
    ASSERT_EQ(rows.rows.size(), 1U);
    EXPECT_EQ(rows.rows[0].size(), 32U);
    EXPECT_EQ(rows.names.back(), "c29");
}

TEST_F(OpenedDb, CallbackThatReturnsNonZeroEndsTheStatementAsFailed)
{
    rows.result = 1;
    EXPECT_EQ(sqlite->execute(handle, "SELECT 1 UNION SELECT 2", {&rows, &kind}), -2);
    EXPECT_EQ(rows.rows.size(), 1U);
    EXPECT_EQ(console.take(), "[ERROR] SQL3::execute() Sql Execute failed: query aborted Err=4\n");
}

TEST_F(OpenedDb, ExceptionOfACallbackReachesTheCallerAndTheConnectionStaysUsable)
{
    rows.throws = true;
    EXPECT_THROW(sqlite->execute(handle, "SELECT 1 UNION SELECT 2", {&rows, &kind}), std::runtime_error);
    EXPECT_EQ(sqlite3_next_stmt(connection(), nullptr), nullptr) << "a statement was left behind";
    EXPECT_EQ(sqlite->execute(handle, "INSERT INTO t VALUES(1,1)"), 0);
    EXPECT_EQ(sqlite->closeDb(handle), 0);
}

TEST_F(OpenedDb, RowFormWithoutACallbackObjectIsRefused)
{
    EXPECT_EQ(sqlite->execute(handle, "INSERT INTO t VALUES(1,1)", {nullptr, &kind}), -2);
    EXPECT_EQ(console.take(), "[ERROR] SQL3::execute() Sql Execute failed: no callback object Err=21\n");
    EXPECT_EQ(RawDb(path).value("SELECT count(*) FROM t"), "0");
}

TEST_F(OpenedDb, FileLockedBeyondTheTimeoutFailsTheStatementAndIsUsableAgainAfterwards)
{
    sqlite3_busy_timeout(connection(), 20); // The real five seconds are waited for when opening.
    {
        LockingProcess const other(path);
        EXPECT_EQ(sqlite->execute(handle, "INSERT INTO t VALUES(1,1)"), -2);
        EXPECT_EQ(console.take(), "[ERROR] SQL3::execute() Sql Execute failed: database is locked Err=5\n");
    }
    EXPECT_EQ(sqlite->execute(handle, "INSERT INTO t VALUES(1,1)"), 0);
}

TEST_F(OpenedDb, ViewThatDoesNotEndIsInterruptedAlsoAfterARowCallbackHasRunAStatement)
{
    struct Nested : RowCollector
    {
        int dataBaseQueryCb(sqlite3DbCbCgf_t* cfg, int argc, char** argv, char** colNames) override
        {
            EXPECT_EQ(Sqlite3Db::getInstance(0)->execute(handle, "INSERT INTO t VALUES(1,1)"), 0);
            return RowCollector::dataBaseQueryCb(cfg, argc, argv, colNames);
        }
        short handle = -1;
    };
    Nested nested;
    nested.handle = handle;
    ASSERT_EQ(sqlite->execute(handle, "CREATE VIEW v AS WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x+1 FROM c) "
                                      "SELECT x FROM c WHERE x<3"),
              0);
    EXPECT_EQ(sqlite->execute(handle, "SELECT * FROM v", {&nested, &kind}), -2);
    EXPECT_EQ(console.take(), "[ERROR] SQL3::execute() Sql Execute failed: interrupted Err=9\n");
    EXPECT_EQ(nested.rows.size(), 2U);
    EXPECT_EQ(sqlite->execute(handle, "SELECT * FROM t"), 0);
}

TEST_F(OpenedDb, TimeThatARowCallbackTakesIsNotTheStatements)
{
    struct Slow : RowCollector
    {
        int dataBaseQueryCb(sqlite3DbCbCgf_t* cfg, int argc, char** argv, char** colNames) override
        {
            constexpr int kSeconds = 3;
            for (std::clock_t const end = std::clock() + kSeconds * CLOCKS_PER_SEC; std::clock() < end;)
            {
            }
            return RowCollector::dataBaseQueryCb(cfg, argc, argv, colNames);
        }
    };
    Slow slow;
    // Long enough for SQLite to ask between two rows whether it should go on.
    ASSERT_EQ(sqlite->execute(handle, "CREATE VIEW v AS WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x+1 FROM c "
                                      "WHERE x<3000) SELECT x FROM c WHERE x%1000=0"),
              0);
    EXPECT_EQ(sqlite->execute(handle, "SELECT * FROM v", {&slow, &kind}), 0);
    EXPECT_EQ(slow.rows.size(), 3U);
}

TEST_F(OpenedDb, FullTextTablesWork)
{
    ASSERT_EQ(sqlite->execute(handle, "CREATE VIRTUAL TABLE f USING fts4(a)"), 0);
    ASSERT_EQ(sqlite->closeDb(handle), 0);
    short const reopened = sqlite->openDb(path);
    // The module asks for the page size by a PRAGMA of its own while this is compiled.
    EXPECT_EQ(sqlite->execute(reopened, "INSERT INTO f VALUES('one two')"), 0);
    EXPECT_EQ(RawDb(path).value("SELECT a FROM f WHERE f MATCH 'two'"), "one two");
}

TEST_F(OpenedDb, LongPatternIsRefused)
{
    std::string const pattern(1001, '%');
    EXPECT_EQ(sqlite->execute(handle, ("SELECT 'a' LIKE '" + pattern + "'").c_str()), -2);
    EXPECT_EQ(sqlite->execute(handle, ("SELECT 'a' LIKE '" + pattern.substr(1) + "'").c_str()), 0);
}

TEST_F(OpenedDb, SchemaCannotBeRewrittenThroughSql)
{
    ASSERT_EQ(sqlite->execute(handle, "PRAGMA writable_schema=ON"), 0);
    EXPECT_EQ(sqlite->execute(handle, "UPDATE sqlite_master SET sql='x'"), -2);
}
