#include <db/internal/Sqlite.h>

#include <db/internal/ConnectionSettings.h>

#include <algorithm>
#include <cerrno>

namespace sqlite
{

namespace
{

/// Instructions of SQLite's virtual machine between two checks for cancellation: some hundred microseconds.
constexpr int kInstructionsPerCheck = 10000;
/// Busy timeout after a signal.
constexpr std::chrono::milliseconds kBusyTimeoutWhenCancelled(200);
/// A crashed writer's journal stays; a working writer's lasts for moments only.
constexpr std::chrono::milliseconds kBusyTimeoutWithJournal(500);
constexpr int kPauseWithJournalMs = 2;

/// Whether the last system call that failed on the connection's file says that the medium has failed.
bool hasMediumFailed(sqlite3* db)
{
    int error = 0;
    return sqlite3_file_control(db, "main", SQLITE_FCNTL_LAST_ERRNO, &error) == SQLITE_OK && error == EIO;
}

/// The URI of a file name. Escapes every byte that could have another meaning.
std::string uriOf(std::string const& name)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string uri = "file:";
    for (char const c : name)
    {
        auto const byte = static_cast<unsigned char>(c);
        if (c == '/')
        {
            uri += c;
        }
        else
        {
            uri.append({'%', kDigits[byte >> 4U], kDigits[byte & 0xfU]});
        }
    }
    return uri;
}

int openFile(std::string const& path, Connection::Access access, sqlite3** db)
{
    if (path.find('\0') != std::string::npos)
    {
        return SQLITE_CANTOPEN; // SQLite would open the file named by the part before the zero byte.
    }
    std::string const name = connectionSettings::fileName(path);
    constexpr int kCommon = SQLITE_OPEN_NOMUTEX;
    switch (access)
    {
    case Connection::READ_ONLY:
        return sqlite3_open_v2(name.c_str(), db, SQLITE_OPEN_READONLY | kCommon, nullptr);
    case Connection::IMMUTABLE:
        return sqlite3_open_v2((uriOf(name) + "?immutable=1").c_str(), db,
                               SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | kCommon, nullptr);
    case Connection::READ_WRITE:
        return sqlite3_open_v2(name.c_str(), db, SQLITE_OPEN_READWRITE | kCommon, nullptr);
    case Connection::MEMORY:
        return sqlite3_open_v2(":memory:", db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_MEMORY | kCommon, nullptr);
    case Connection::CREATE:
        break;
    }
    return sqlite3_open_v2(name.c_str(), db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | kCommon, nullptr);
}

void require(sqlite3* db, int code)
{
    if (code != SQLITE_OK)
    {
        throw Error(db, code);
    }
}

/// Calls `run`, which returns a code of SQLite, again while it reports a hot journal that may belong to a working
/// writer.
template <class Run>
int callUntilTimeout(sqlite3* db, Waiting const& waiting, Run const& run)
{
    auto const end = std::chrono::steady_clock::now() + std::min(kBusyTimeoutWithJournal, waiting.limit);
    int code = run();
    while (code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE &&
           sqlite3_extended_errcode(db) == SQLITE_READONLY_ROLLBACK && std::chrono::steady_clock::now() < end &&
           (waiting.isCancelled == nullptr || !waiting.isCancelled()))
    {
        static_cast<void>(sqlite3_sleep(kPauseWithJournalMs));
        code = run();
    }
    return code;
}

} // namespace

Error::Error(sqlite3* db, int code) : m_code(code)
{
    // The extended codes of SQLITE_ERROR tell a user nothing.
    if (db != nullptr && (sqlite3_extended_errcode(db) & 0xff) == (code & 0xff))
    {
        m_code = code == SQLITE_ERROR ? code : sqlite3_extended_errcode(db);
        m_message = sqlite3_errmsg(db);
    }
    else
    {
        m_message = sqlite3_errstr(code);
    }
    if (db != nullptr && kind() == SQLITE_CORRUPT && hasMediumFailed(db))
    {
        m_code = SQLITE_IOERR_READ;
        m_message = sqlite3_errstr(m_code);
    }
}

bool Error::isFailedRead() const
{
    return m_code == SQLITE_IOERR_READ || m_code == SQLITE_IOERR_SHORT_READ || m_code == SQLITE_IOERR_CORRUPTFS;
}

Statement::Statement(sqlite3* db, Waiting const& waiting, std::string const& sql) : m_db(db), m_waiting(&waiting)
{
    sqlite3_stmt* compiled = nullptr;
    int const code = callUntilTimeout(
        db, waiting,
        [&] { return sqlite3_prepare_v2(db, sql.c_str(), static_cast<int>(sql.size() + 1), &compiled, nullptr); });
    m_statement.reset(compiled);
    if (code != SQLITE_OK)
    {
        fail(code);
    }
}

void Statement::fail(int code) const
{
    throw Error(m_db, code);
}

Statement& Statement::bind(int parameter, std::int64_t value)
{
    require(m_db, sqlite3_bind_int64(m_statement.get(), parameter, value));
    return *this;
}

Statement& Statement::bind(int parameter, std::string_view value)
{
    // An empty view may have a null address, which would mean NULL.
    char const* const begin = value.empty() ? "" : value.data();
    require(m_db, sqlite3_bind_text64(m_statement.get(), parameter, begin, value.size(), SQLITE_STATIC, SQLITE_UTF8));
    return *this;
}

Statement& Statement::bindNull(int parameter)
{
    require(m_db, sqlite3_bind_null(m_statement.get(), parameter));
    return *this;
}

Statement& Statement::bindReal(int parameter, double value)
{
    require(m_db, sqlite3_bind_double(m_statement.get(), parameter, value));
    return *this;
}

Statement& Statement::bindBlob(int parameter, std::string_view value)
{
    // As for a text.
    char const* const begin = value.empty() ? "" : value.data();
    require(m_db, sqlite3_bind_blob64(m_statement.get(), parameter, begin, value.size(), SQLITE_STATIC));
    return *this;
}

bool Statement::step()
{
    int const code = stepUntilTimeout();
    m_isRunning = code == SQLITE_ROW;
    if (m_isRunning)
    {
        return true;
    }
    if (code != SQLITE_DONE)
    {
        Error const error(m_db, code);
        reset(); // A failed statement keeps its locks until it is reset.
        throw error;
    }
    reset();
    return false;
}

void Statement::run()
{
    while (step())
    {
    }
}

int Statement::stepUntilTimeout()
{
    if (m_isRunning)
    {
        return sqlite3_step(m_statement.get());
    }
    return callUntilTimeout(m_db, *m_waiting,
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
    return text == nullptr ? std::string_view("") : std::string_view(text, size);
}

std::string_view Statement::blob(int column) const
{
    auto const* const bytes = static_cast<char const*>(sqlite3_column_blob(m_statement.get(), column));
    auto const size = static_cast<std::size_t>(sqlite3_column_bytes(m_statement.get(), column));
    return bytes == nullptr ? std::string_view("") : std::string_view(bytes, size);
}

std::size_t Statement::size(int column) const
{
    int const cell = type(column);
    return cell == SQLITE_TEXT || cell == SQLITE_BLOB
               ? static_cast<std::size_t>(sqlite3_column_bytes(m_statement.get(), column))
               : 0;
}

Connection::Connection(std::string const& path, Access access, Waiting const& waiting)
    : m_access(access), m_shared(std::make_unique<Shared>())
{
    m_shared->waiting = waiting;
    sqlite3* db = nullptr;
    int const code = openFile(path, access, &db);
    m_db.reset(db);
    m_shared->db = db;
    require(db, code);
    require(db, sqlite3_extended_result_codes(db, 1));
    require(db, sqlite3_busy_handler(db, onBusy, m_shared.get()));
    if (waiting.isCancelled != nullptr)
    {
        sqlite3_progress_handler(db, kInstructionsPerCheck, onProgress, m_shared.get());
    }
    require(db, connectionSettings::distrust(db));
}

int Connection::onBusy(void* context, int tries)
{
    auto* const shared = static_cast<Shared*>(context);
    bool const isCancelled = shared->waiting.isCancelled != nullptr && shared->waiting.isCancelled();
    auto const limit = isCancelled ? std::min(shared->waiting.limit, kBusyTimeoutWhenCancelled) : shared->waiting.limit;
    if (!shared->wait.pause(tries, limit))
    {
        return 0;
    }
    bool const mayWrite = sqlite3_db_readonly(shared->db, "main") == 0;
    return mayWrite && hasMoved(shared->db) ? 0 : 1; // A reader changes no file, and may wait.
}

void Connection::requireName() const
{
    if (hasMoved())
    {
        throw Error(nullptr, SQLITE_READONLY_DBMOVED);
    }
}

bool Connection::hasMoved(sqlite3* db)
{
    int hasMoved = 0;
    static_cast<void>(sqlite3_file_control(db, "main", SQLITE_FCNTL_HAS_MOVED, &hasMoved)); // Always known.
    return hasMoved != 0;
}

int Connection::onProgress(void* context)
{
    auto const* const shared = static_cast<Shared*>(context);
    return shared->waiting.isCancelled != nullptr && shared->waiting.isCancelled() ? 1 : 0;
}

std::int64_t Connection::number(std::string const& sql) const
{
    Statement statement = prepare(sql);
    return statement.step() ? statement.integer(0) : 0;
}

Transaction::Transaction(Connection const& connection, std::string const& begin) : m_connection(connection)
{
    connection.run(begin);
}

Transaction::~Transaction()
{
    // After some failures SQLite has already rolled back.
    if (m_connection.isInTransaction())
    {
        static_cast<void>(sqlite3_exec(m_connection.get(), "ROLLBACK", nullptr, nullptr, nullptr));
    }
}

void Transaction::commit()
{
    m_connection.run("COMMIT");
}

} // namespace sqlite
