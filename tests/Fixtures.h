#pragma once

#include "TestSupport.h"

#include <db/Sqlite3Db.h>
#include <fdb/FaultDb.h>

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
