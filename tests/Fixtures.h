#pragma once

#include "LockingProcess.h"
#include "TestSupport.h"

#include <db/Sqlite3Db.h>
#include <fdb/FaultDb.h>

/// Records the statements that SQLite runs on a connection while the object lives.
class StatementTrace
{
public:
    explicit StatementTrace(Sqlite3Db::DbHandle const& entry);
    ~StatementTrace();
    StatementTrace(StatementTrace const&) = delete;
    StatementTrace& operator=(StatementTrace const&) = delete;

    std::vector<std::string> statements;

private:
    sqlite3* m_db;
};

/// Restores the connection layer after the test: debug messages off, and the test's connections closed.
class Sqlite3DbTest : public testing::Test
{
protected:
    ~Sqlite3DbTest() override;

    TempDir dir;
    Console console;
    Sqlite3Db* const sqlite = Sqlite3Db::getInstance(0);
};

/// A facade and a path for its file; nothing is created or opened yet.
class FaultDbTest : public Sqlite3DbTest
{
protected:
    /// Creates the file, opens it and drops the log lines of both calls.
    void createAndOpen();

    std::string const path = dir.file("faults.db");
    FaultDb db;
};
