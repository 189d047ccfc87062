#include "Fixtures.h"

#include <sqlite3.h>

#include <sys/wait.h>
#include <unistd.h>

StatementTrace::StatementTrace(Sqlite3Db::DbHandle const& entry) : m_db(entry.db)
{
    auto const keep = [](unsigned int, void* kept, void*, void* sql)
    {
        static_cast<std::vector<std::string>*>(kept)->emplace_back(static_cast<char const*>(sql));
        return 0;
    };
    sqlite3_trace_v2(m_db, SQLITE_TRACE_STMT, keep, &statements);
}

StatementTrace::~StatementTrace()
{
    sqlite3_trace_v2(m_db, 0, nullptr, nullptr);
}

Sqlite3DbTest::~Sqlite3DbTest()
{
    sqlite->m_debug = 0;
    for (auto const& [handle, entry] : sqlite->m_dbHandles)
    {
        static_cast<void>(sqlite3_close(entry.db)); // Null in a closed entry, which SQLite accepts.
    }
    sqlite->m_dbHandles.clear();
}

void FaultDbTest::createAndOpen()
{
    ASSERT_EQ(db.createDb(path, false), 0);
    ASSERT_EQ(db.openDb(path, false), 0);
    console.take();
}
