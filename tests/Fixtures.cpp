#include "Fixtures.h"

#include <sqlite3.h>

Sqlite3DbTest::~Sqlite3DbTest()
{
    sqlite->m_debug = 0;
    for (auto const& [handle, entry] : sqlite->m_dbHandles)
    {
        static_cast<void>(sqlite3_close(entry.db)); // A closed entry has no connection, which SQLite accepts.
    }
    sqlite->m_dbHandles.clear();
}

void FaultDbTest::createAndOpen()
{
    ASSERT_EQ(db.createDb(path, false), 0);
    ASSERT_EQ(db.openDb(path, false), 0);
    console.take();
}
