#pragma once

#include "TestSupport.h"

#include <db/Sqlite3Db.h>
#include <fdb/FaultDb.h>

/// Another process that holds the file exclusively until `release`, or for as long as this object lives.
class LockingProcess
{
public:
    explicit LockingProcess(std::string const& path);
    ~LockingProcess();
    LockingProcess(LockingProcess const&) = delete;
    LockingProcess& operator=(LockingProcess const&) = delete;

    /// Ends the process; to be called once.
    void release();

private:
    int m_release[2];
    int m_pid = -1;
};

/// The statements that SQLite runs on a connection while the object lives.
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

/// The connection layer, left as it was found: silent and without the connections that a test opened.
class Sqlite3DbTest : public testing::Test
{
protected:
    ~Sqlite3DbTest() override;

    TempDir dir;
    Console console;
    Sqlite3Db* const sqlite = Sqlite3Db::getInstance(0);
};

/// A facade of the test's own and a path for its file; nothing is created or opened yet.
class FaultDbTest : public Sqlite3DbTest
{
protected:
    /// Creates the file and opens it; the lines of that are dropped.
    void createAndOpen();

    std::string const path = dir.file("faults.db");
    FaultDb db;
};
