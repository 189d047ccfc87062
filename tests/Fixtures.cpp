#include "Fixtures.h"

#include <sqlite3.h>

#include <sys/wait.h>
#include <unistd.h>

LockingProcess::LockingProcess(std::string const& path)
{
    int ready[2];
    EXPECT_EQ(pipe(ready), 0);
    EXPECT_EQ(pipe(m_release), 0);
    m_pid = fork();
    if (m_pid == 0)
    {
        close(m_release[1]);
        sqlite3* db = nullptr;
        sqlite3_open(path.c_str(), &db);
        int const code = sqlite3_exec(db, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr);
        char byte = code == SQLITE_OK ? '+' : '-';
        bool const isTold = write(ready[1], &byte, 1) == 1;
        while (isTold && read(m_release[0], &byte, 1) > 0)
        {
        }
        _exit(0);
    }
    close(m_release[0]);
    char byte = 0;
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    EXPECT_EQ(byte, '+') << "the other process could not lock the file";
    close(ready[0]);
    close(ready[1]);
}

LockingProcess::~LockingProcess()
{
    if (m_pid > 0)
    {
        release();
    }
}

void LockingProcess::release()
{
    close(m_release[1]);
    EXPECT_EQ(waitpid(m_pid, nullptr, 0), m_pid);
    m_pid = -1;
}

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
