// Statements on a connection, and the rows of their results.

#include "OpenedDb.h"

#include <gmock/gmock.h>

#include <ctime>
#include <stdexcept>

using testing::ElementsAre;

TEST_F(OpenedDb, ExecuteRunsTheStatementSilently)
{
    EXPECT_EQ(sqlite->execute(handle, "INSERT INTO t VALUES(1,2)"), 0);
    EXPECT_EQ(RawDb(path).value("SELECT a+b FROM t"), "3");
    EXPECT_EQ(console.take(), "");
}

TEST_F(OpenedDb, ExecuteIgnoresRows)
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

TEST_F(OpenedDb, StatementWithOtherTextBehindItIsRefusedBeforeItRuns)
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
    EXPECT_THAT(rows.rows, ElementsAre(RawDb::Row{"1", std::nullopt}, RawDb::Row{"b", ""}));
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
    sqlite3_busy_timeout(connection(), 20); // Sqlite3DbOpenTest covers the real busy timeout of five seconds.
    {
        LockingProcess const other(path);
        EXPECT_EQ(sqlite->execute(handle, "INSERT INTO t VALUES(1,1)"), -2);
        EXPECT_EQ(console.take(), "[ERROR] SQL3::execute() Sql Execute failed: database is locked Err=5\n");
    }
    EXPECT_EQ(sqlite->execute(handle, "INSERT INTO t VALUES(1,1)"), 0);
}

TEST_F(OpenedDb, EndlessViewIsInterruptedAlsoAfterARowCallbackHasRunAStatement)
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

TEST_F(OpenedDb, TimeOfARowCallbackDoesNotCountForTheStatement)
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
    // Enough work between two rows for SQLite to call its progress handler.
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
    // While SQLite compiles this, the full-text module runs its own PRAGMA to read the page size.
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
