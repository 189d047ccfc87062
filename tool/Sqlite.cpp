#include "Sqlite.h"

#include "Interrupt.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <thread>

namespace tool
{

namespace
{

/// Instructions of SQLite's machine between two looks for a signal: some hundred microseconds.
constexpr int kInstructionsBetweenLooks = 10000;
constexpr int kLongestPattern = 1000;

/// A crashed writer's journal is there for good, a working one's for moments only.
constexpr std::chrono::milliseconds kPatienceWithJournal(500);
/// For what is to be brought to an end.
constexpr std::chrono::milliseconds kPatienceAfterSignal(200);
constexpr int kPauseMs = 2;

char const* adviceFor(int code)
{
    switch (code & 0xff)
    {
    case SQLITE_NOTADB:
        return "; it is no SQLite database";
    case SQLITE_CORRUPT:
        return "; 'firaim check' tells what is damaged";
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return "; another process keeps it locked, try again";
    default:
        return "";
    }
}

std::string messageOf(std::string const& path, sqlite3* db, int code)
{
    if (code == SQLITE_READONLY_ROLLBACK)
    {
        return "a writer was cut off, and what it left half done must be rolled back before the file can be read, "
               "which "
               "writes to it. Run 'firaim recover' on it; or, to leave it as it is, copy it together with '" +
               path + "-journal' into another folder and run 'firaim recover' on the copy";
    }
    // The connection's own message says more, where there is one for this code.
    return db != nullptr && sqlite3_extended_errcode(db) == code ? sqlite3_errmsg(db) : sqlite3_errstr(code);
}

int onBusy(void* self, int calls)
{
    auto* const patience = static_cast<Patience*>(self);
    auto const now = std::chrono::steady_clock::now();
    if (calls == 0)
    {
        patience->begin = now;
    }
    bool const isToEnd = interrupt::isPending();
    if (now - patience->begin >= (isToEnd ? std::min(patience->limit, kPatienceAfterSignal) : patience->limit))
    {
        return 0;
    }
    if (isToEnd)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(kPauseMs)); // Nothing else waits any more.
    }
    interrupt::pause(kPauseMs);
    return 1;
}

/// Calls `run`, which returns a code of SQLite, until what looks like the journal of a crashed writer is none.
template <class Run>
int callPatiently(sqlite3* db, Run const& run)
{
    auto const end = std::chrono::steady_clock::now() + kPatienceWithJournal;
    int code = run();
    while (code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE &&
           sqlite3_extended_errcode(db) == SQLITE_READONLY_ROLLBACK && std::chrono::steady_clock::now() < end &&
           !interrupt::isPending())
    {
        interrupt::pause(kPauseMs);
        code = run();
    }
    return code;
}

int onProgress(void*)
{
    return interrupt::isPending() ? 1 : 0;
}

/// A URI of the file at `path`: every byte that could mean something else is written as a number.
std::string uriOf(std::string const& path)
{
    std::string uri = "file:";
    for (char const c : path)
    {
        char piece[4];
        std::snprintf(piece, sizeof piece, "%%%02X", static_cast<unsigned int>(static_cast<unsigned char>(c)));
        uri += c == '/' ? "/" : piece;
    }
    return uri;
}

int openFile(std::string const& path, Connection::access_t access, sqlite3** db)
{
    // "./" takes the special meaning from ":memory:", "file:..." and the empty name.
    std::string const name = !path.empty() && path.front() == '/' ? path : "./" + path;
    // One thread uses it.
    constexpr int kCommon = SQLITE_OPEN_NOMUTEX;
    switch (access)
    {
    case Connection::READ_ONLY:
        return sqlite3_open_v2(name.c_str(), db, SQLITE_OPEN_READONLY | kCommon, nullptr);
    case Connection::READ_ONLY_FOR_EVER:
        return sqlite3_open_v2((uriOf(name) + "?immutable=1").c_str(), db,
                               SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | kCommon, nullptr);
    case Connection::READ_WRITE:
        break;
    }
    return sqlite3_open_v2(name.c_str(), db, SQLITE_OPEN_READWRITE | kCommon, nullptr);
}

} // namespace

SqliteProblem::SqliteProblem(std::string const& path, sqlite3* db, int code)
    : Problem(STATUS_BAD_FILE, path + ": " + messageOf(path, db, code) + adviceFor(code)), m_code(code)
{
}

void Statement::Finalize::operator()(sqlite3_stmt* statement) const
{
    // The result repeats what the last step reported.
    static_cast<void>(sqlite3_finalize(statement));
}

Statement::Statement(std::string const& path, sqlite3* db, std::string const& sql) : m_path(path), m_db(db)
{
    sqlite3_stmt* compiled = nullptr;
    int const code = callPatiently(db, [&] { return sqlite3_prepare_v2(db, sql.c_str(), -1, &compiled, nullptr); });
    m_statement.reset(compiled);
    if (code != SQLITE_OK)
    {
        fail(code);
    }
}

void Statement::fail(int code) const
{
    if (code == SQLITE_INTERRUPT || code == SQLITE_BUSY)
    {
        interrupt::check();
    }
    throw SqliteProblem(m_path, m_db, code == SQLITE_ERROR ? code : sqlite3_extended_errcode(m_db));
}

Statement& Statement::bind(int parameter, std::int64_t value)
{
    int const code = sqlite3_bind_int64(m_statement.get(), parameter, value);
    if (code != SQLITE_OK)
    {
        fail(code);
    }
    return *this;
}

Statement& Statement::bind(int parameter, std::string_view value)
{
    int const code =
        sqlite3_bind_text64(m_statement.get(), parameter, value.data(), value.size(), SQLITE_STATIC, SQLITE_UTF8);
    if (code != SQLITE_OK)
    {
        fail(code);
    }
    return *this;
}

bool Statement::step()
{
    int const code = stepPatiently();
    m_isRunning = code == SQLITE_ROW;
    if (m_isRunning)
    {
        return true;
    }
    if (code != SQLITE_DONE)
    {
        fail(code);
    }
    reset();
    return false;
}

int Statement::stepPatiently()
{
    if (m_isRunning)
    {
        return sqlite3_step(m_statement.get());
    }
    return callPatiently(m_db,
                         [&]
                         {
                             reset();
                             return sqlite3_step(m_statement.get());
                         });
}

void Statement::reset()
{
    m_isRunning = false;
    // The result repeats what the last step reported.
    static_cast<void>(sqlite3_reset(m_statement.get()));
}

int Statement::columnCount() const
{
    return sqlite3_column_count(m_statement.get());
}

int Statement::type(int column) const
{
    return sqlite3_column_type(m_statement.get(), column);
}

bool Statement::isNull(int column) const
{
    return type(column) == SQLITE_NULL;
}

std::int64_t Statement::integer(int column) const
{
    return sqlite3_column_int64(m_statement.get(), column);
}

double Statement::real(int column) const
{
    return sqlite3_column_double(m_statement.get(), column);
}

std::string_view Statement::text(int column) const
{
    auto const* const text = reinterpret_cast<char const*>(sqlite3_column_text(m_statement.get(), column));
    auto const size = static_cast<std::size_t>(sqlite3_column_bytes(m_statement.get(), column));
    return text == nullptr ? std::string_view("", 0) : std::string_view(text, size);
}

std::string_view Statement::blob(int column) const
{
    auto const* const bytes = static_cast<char const*>(sqlite3_column_blob(m_statement.get(), column));
    auto const size = static_cast<std::size_t>(sqlite3_column_bytes(m_statement.get(), column));
    return bytes == nullptr ? std::string_view("", 0) : std::string_view(bytes, size);
}

std::size_t Statement::size(int column) const
{
    int const cell = type(column);
    return cell == SQLITE_TEXT || cell == SQLITE_BLOB
               ? static_cast<std::size_t>(sqlite3_column_bytes(m_statement.get(), column))
               : 0;
}

void Connection::Close::operator()(sqlite3* db) const
{
    // All statements are gone: nothing is left that could keep it open.
    static_cast<void>(sqlite3_close(db));
}

void Patience::applyTo(sqlite3* db)
{
    static_cast<void>(sqlite3_busy_handler(db, onBusy, this));
}

Connection::Connection(std::string const& path, access_t access)
    : m_path(path), m_isForEver(access == READ_ONLY_FOR_EVER),
      m_patience(std::make_unique<Patience>(Patience{kPatience}))
{
    sqlite3* db = nullptr;
    int const code = openFile(path, access, &db);
    m_db.reset(db);
    if (code != SQLITE_OK)
    {
        throw SqliteProblem(path, db, db == nullptr ? code : sqlite3_extended_errcode(db));
    }
    m_patience->applyTo(db);
    sqlite3_progress_handler(db, kInstructionsBetweenLooks, onProgress, nullptr);
    // As the library opens files: they come from the field, and what their schema says is not to be trusted.
    static_cast<void>(sqlite3_db_config(db, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr));
    static_cast<void>(sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr));
    static_cast<void>(sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr));
    static_cast<void>(sqlite3_limit(db, SQLITE_LIMIT_LIKE_PATTERN_LENGTH, kLongestPattern));
    run("PRAGMA cell_size_check=ON");
}

std::int64_t Connection::number(std::string const& sql) const
{
    Statement statement = prepare(sql);
    return statement.step() ? statement.integer(0) : 0;
}

void Connection::waitForLocks(int milliseconds) const
{
    m_patience->limit = std::chrono::milliseconds(milliseconds);
}

std::int64_t Connection::changes() const
{
    return sqlite3_changes(m_db.get());
}

Transaction::Transaction(Connection const& connection, std::string const& begin) : m_connection(connection)
{
    connection.run(begin);
}

Transaction::~Transaction()
{
    // After some failures SQLite has rolled back on its own.
    if (m_isOpen && sqlite3_get_autocommit(m_connection.get()) == 0)
    {
        static_cast<void>(sqlite3_exec(m_connection.get(), "ROLLBACK", nullptr, nullptr, nullptr));
    }
}

void Transaction::commit()
{
    m_connection.run("COMMIT");
    m_isOpen = false;
}

} // namespace tool
