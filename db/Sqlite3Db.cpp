#include <db/Sqlite3Db.h>

#include <db/LogUtil.h>
#include <db/internal/ConnectionSettings.h>
#include <db/internal/Handles.h>
#include <db/internal/TimeLimits.h>

#include <limits>
#include <utility>

namespace
{

constexpr char kTag[] = "SQL3";
constexpr int kStateOpen = 1;
constexpr int kMaxHandles = std::numeric_limits<short>::max() + 1;

using Connection = sqlite::ConnectionHandle;
using Statement = sqlite::StatementHandle;

/// Compiles the first statement of `sql` and moves `sql` behind it.
int prepare(sqlite3* db, char const*& sql, Statement& statement)
{
    sqlite3_stmt* compiled = nullptr;
    int const code = sqlite3_prepare_v2(db, sql, -1, &compiled, &sql);
    statement.reset(compiled);
    return code;
}

/// Whether `sql` holds nothing to run, only blanks, semicolons and comments. SQLite's own tokenizer decides.
bool isBlank(sqlite3* db, char const* sql)
{
    while (*sql != '\0')
    {
        Statement statement;
        if (prepare(db, sql, statement) != SQLITE_OK || statement)
        {
            return false;
        }
    }
    return true;
}

int openFile(std::string const& path, Connection& connection)
{
    if (path.find('\0') != std::string::npos)
    {
        return SQLITE_CANTOPEN; // SQLite would open the file named by the part before the zero byte.
    }
    std::string const fileName = connectionSettings::fileName(path);
    sqlite3* db = nullptr;
    int const code = sqlite3_open_v2(fileName.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    connection.reset(db);
    return code;
}

/// Whether `code` means that the content of the file is bad, and not that the file cannot be read at this time.
bool isContentRefused(int code)
{
    return code == SQLITE_NOTADB || code == SQLITE_CORRUPT || code == SQLITE_ERROR;
}

/// Configures the connection without writing to its file.
int configure(sqlite3* db)
{
    // Another process may be recording: wait for it rather than lose a fault.
    timeLimits::waitForLocks(db);
    int code = connectionSettings::distrust(db);
    if (code == SQLITE_OK)
    {
        code = connectionSettings::makeDurable(db);
    }
    // A file that is no database opens all the same: the first statement reports what is wrong with it.
    return isContentRefused(code) ? SQLITE_OK : code;
}

int failed(char const* message, int code)
{
    LogUtil::write(LogUtil::SEVERITY_ERROR, kTag, "execute", "Sql Execute failed: ", message, " Err=", code);
    return RESULT_FAILED;
}

int failed(sqlite3* db, int code)
{
    return failed(sqlite3_errmsg(db), code);
}

/// Compiles `sql` if it holds exactly one statement. Otherwise no part of it has had any effect.
int prepareOnlyStatement(sqlite3* db, char const* sql, timeLimits::StatementWatch& watch, Statement& statement)
{
    if (sql == nullptr)
    {
        return failed("no statement", SQLITE_MISUSE);
    }
    char const* tail = sql;
    watch.ignorePragmas(true);
    int code = prepare(db, tail, statement);
    if (code != SQLITE_OK)
    {
        return failed(db, code);
    }
    if (!isBlank(db, tail))
    {
        return failed("more than one statement", SQLITE_MISUSE);
    }
    watch.ignorePragmas(false);
    if (watch.hasIgnoredPragma())
    {
        code = prepare(db, sql, statement);
    }
    if (code != SQLITE_OK)
    {
        return failed(db, code);
    }
    return statement ? RESULT_OK : failed("no statement", SQLITE_MISUSE);
}

/// Passes the rows of one statement to a callback object.
class RowDelivery
{
public:
    RowDelivery(sqlite3_stmt* statement, Sqlite3DbCallback::sqlite3DbCbCgf_t cfg) : m_statement(statement), m_cfg(cfg)
    {
    }

    /// SQLITE_OK, or the code that ends the statement.
    int operator()()
    {
        // Asked for each row: if the schema has changed, the first step recompiles the statement, with other columns.
        int const count = sqlite3_column_count(m_statement);
        m_cells.clear();
        m_names.clear();
        for (int i = 0; i < count; ++i)
        {
            auto const* const cell = reinterpret_cast<char const*>(sqlite3_column_text(m_statement, i));
            char const* const name = sqlite3_column_name(m_statement, i);
            if (name == nullptr || (cell == nullptr && sqlite3_column_type(m_statement, i) != SQLITE_NULL))
            {
                return SQLITE_NOMEM;
            }
            m_cells.push_back(const_cast<char*>(cell));
            m_names.push_back(const_cast<char*>(name));
        }
        int const result = m_cfg.callbackObj->dataBaseQueryCb(&m_cfg, count, m_cells.data(), m_names.data());
        return result == 0 ? SQLITE_OK : SQLITE_ABORT;
    }

private:
    sqlite3_stmt* m_statement;
    Sqlite3DbCallback::sqlite3DbCbCgf_t m_cfg;
    std::vector<char*> m_cells;
    std::vector<char*> m_names;
};

/// Runs `statement` to its end; `onRow` returns SQLITE_OK or the code that ends it.
template <class OnRow>
int run(sqlite3* db, sqlite3_stmt* statement, timeLimits::StatementWatch& watch, OnRow onRow)
{
    int code = sqlite3_step(statement);
    while (code == SQLITE_ROW)
    {
        watch.pause();
        int const rowCode = onRow();
        watch.resume();
        if (rowCode != SQLITE_OK)
        {
            return failed(sqlite3_errstr(rowCode), rowCode);
        }
        code = sqlite3_step(statement);
    }
    return code == SQLITE_DONE ? RESULT_OK : failed(db, code);
}

} // namespace

Sqlite3Db* Sqlite3Db::getInstance(unsigned int)
{
    // Never deleted: static objects of the application may still close their database after any destructor here.
    static Sqlite3Db* const instance = new Sqlite3Db;
    return instance;
}

/// The next number after the one given out last, so that a stale handle does not soon belong to another connection; -1
/// if all are in use.
short Sqlite3Db::findFreeHandle() const
{
    short lastChoice = -1;
    for (int step = 0; step < kMaxHandles; ++step)
    {
        auto const candidate = static_cast<short>((m_nextHandle + step) % kMaxHandles);
        if (m_dbHandles.count(candidate) != 0)
        {
            continue;
        }
        if (candidate != m_lastClosedHandle)
        {
            return candidate;
        }
        lastChoice = candidate;
    }
    return lastChoice;
}

short Sqlite3Db::openDb(std::string const& path)
{
    short const handle = findFreeHandle();
    if (handle < 0)
    {
        LogUtil::write(LogUtil::SEVERITY_ERROR, kTag, "openDb", "Failed to open: ", path, " all handles are in use");
        return RESULT_INVALID_STATE;
    }
    Connection connection;
    int code = openFile(path, connection);
    if (code == SQLITE_OK)
    {
        code = configure(connection.get());
    }
    if (code != SQLITE_OK)
    {
        char const* const message = connection ? sqlite3_errmsg(connection.get()) : sqlite3_errstr(code);
        LogUtil::write(LogUtil::SEVERITY_ERROR, kTag, "openDb", "Failed to open: ", path, " ", message, " Err=", code);
        return RESULT_FAILED;
    }
    DbHandle entry;
    entry.dbId = handle;
    entry.dbPath = path;
    entry.db = connection.get();
    entry.state = kStateOpen;
    m_dbHandles.emplace(handle, std::move(entry));
    static_cast<void>(connection.release());
    m_nextHandle = static_cast<short>((handle + 1) % kMaxHandles);
    return handle;
}

int Sqlite3Db::closeDb(short handle)
{
    DbHandle const* const entry = findOpen(handle);
    if (entry == nullptr)
    {
        return RESULT_INVALID_STATE;
    }
    if (sqlite3_close(entry->db) != SQLITE_OK)
    {
        return RESULT_FAILED;
    }
    m_dbHandles.erase(handle);
    m_lastClosedHandle = handle;
    return RESULT_OK;
}

int Sqlite3Db::execute(short handle, char const* sql)
{
    DbHandle const* const entry = findOpen(handle);
    if (entry == nullptr)
    {
        return RESULT_INVALID_STATE;
    }
    timeLimits::StatementWatch watch(entry->db);
    Statement statement;
    int const result = prepareOnlyStatement(entry->db, sql, watch, statement);
    return result != RESULT_OK ? result : run(entry->db, statement.get(), watch, [] { return SQLITE_OK; });
}

int Sqlite3Db::execute(short handle, char const* sql, Sqlite3DbCallback::sqlite3DbCbCgf_t cfg)
{
    DbHandle const* const entry = findOpen(handle);
    if (entry == nullptr)
    {
        return RESULT_INVALID_STATE;
    }
    if (cfg.callbackObj == nullptr)
    {
        return failed("no callback object", SQLITE_MISUSE);
    }
    timeLimits::StatementWatch watch(entry->db);
    Statement statement;
    int const result = prepareOnlyStatement(entry->db, sql, watch, statement);
    return result != RESULT_OK ? result : run(entry->db, statement.get(), watch, RowDelivery(statement.get(), cfg));
}

int Sqlite3Db::free(short handle, void* p)
{
    if (findOpen(handle) == nullptr)
    {
        return RESULT_INVALID_STATE;
    }
    sqlite3_free(p);
    return RESULT_OK;
}

Sqlite3Db::DbHandle const* Sqlite3Db::findOpen(short handle) const
{
    auto const found = m_dbHandles.find(handle);
    return found != m_dbHandles.end() && found->second.state == kStateOpen ? &found->second : nullptr;
}
