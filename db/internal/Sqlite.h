#pragma once

#include <db/internal/Handles.h>
#include <db/internal/LockWait.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

/// SQLite with objects that clean up after themselves, for what does not go through the connection layer's registry.
/// One thread at a time uses a connection and its statements.
namespace sqlite
{

/// A call of SQLite that failed.
class Error : public std::exception
{
public:
    /// `db` may be null; its message is taken where it belongs to `code`.
    Error(sqlite3* db, int code);

    /// SQLite's extended result code.
    int code() const { return m_code; }
    /// SQLite's result code without what extends it.
    int kind() const { return m_code & 0xff; }
    /// SQLite's message, without the name of the file.
    char const* what() const noexcept override { return m_message.c_str(); }

private:
    int m_code;
    std::string m_message;
};

/// How a connection waits for the locks of others.
struct Waiting
{
    /// The longest wait for one lock.
    std::chrono::milliseconds limit = lockWait::kBusyTimeout;
    /// Whether whoever waits has been asked to end; null: nobody asks. A wait and a running statement end soon after.
    bool (*isCancelled)() = nullptr;
};

/// A compiled statement. Values only ever get in by `bind`. Failures throw Error.
class Statement
{
public:
    /// None: nothing but assigning to it is allowed.
    Statement() = default;
    /// `waiting` must outlive the statement.
    Statement(sqlite3* db, Waiting const& waiting, std::string const& sql);

    /// Sets the parameter with that number, from 1 on. A text is borrowed until the parameter is set again.
    Statement& bind(int parameter, std::int64_t value);
    Statement& bind(int parameter, std::string_view value);

    /// Goes to the next row; returns whether there is one. Without one, the statement is ready for another run.
    bool step();
    /// Runs the statement to its end, whatever rows it has.
    void run();
    /// Ends the run: the statement holds no lock any longer.
    void reset();

    explicit operator bool() const { return m_statement != nullptr; }
    int columnCount() const;
    /// SQLite's type of the cell: SQLITE_INTEGER, SQLITE_TEXT and so on.
    int type(int column) const;
    bool isNull(int column) const { return type(column) == SQLITE_NULL; }
    std::int64_t integer(int column) const;
    double real(int column) const;
    /// The bytes of a text or blob, the text of a number; valid until the next step.
    std::string_view text(int column) const;
    std::string_view blob(int column) const;
    /// How many bytes a text or blob has, 0 for numbers.
    std::size_t size(int column) const;

private:
    [[noreturn]] void fail(int code) const;
    int stepUntilTimeout();

    sqlite3* m_db = nullptr;
    Waiting const* m_waiting = nullptr;
    StatementHandle m_statement;
    bool m_isRunning = false; ///< has a row, and so its locks
};

/// A connection to one file that distrusts what the file says. Its statements must be gone before it.
class Connection
{
public:
    enum Access
    {
        READ_ONLY,
        IMMUTABLE, ///< the file cannot change while it is read: no lock, no file beside it
        READ_WRITE,
        CREATE, ///< as READ_WRITE; a missing file is created empty
        MEMORY  ///< an empty database of its own, in memory; without a path
    };

    /// Opens the file; `path` always names a file, whatever it looks like. Throws Error.
    Connection(std::string const& path, Access access, Waiting const& waiting = {});
    Connection(Connection&&) = default;
    Connection& operator=(Connection&&) = default;

    Statement prepare(std::string const& sql) const { return Statement(get(), m_shared->waiting, sql); }
    /// Runs a statement whose rows do not matter.
    void run(std::string const& sql) const { prepare(sql).run(); }
    /// The one number that a query yields; 0 when it yields none.
    std::int64_t number(std::string const& sql) const;
    /// How to wait for the locks of others from now on.
    void waitFor(Waiting const& waiting) const { m_shared->waiting = waiting; }

    bool isInTransaction() const { return sqlite3_get_autocommit(get()) == 0; }
    Access access() const { return m_access; }
    sqlite3* get() const { return m_db.get(); }

private:
    /// What SQLite's handlers point to; it outlives the connection, which can be moved.
    struct Shared
    {
        Waiting waiting;
        lockWait::LockWait wait;
    };

    /// Both are handed a Shared.
    static int onBusy(void* context, int tries);
    static int onProgress(void* context);

    Access m_access;
    std::unique_ptr<Shared> m_shared;
    ConnectionHandle m_db;
};

/// A transaction that is rolled back unless it was committed.
class Transaction
{
public:
    /// `begin` is the statement that begins it.
    Transaction(Connection const& connection, std::string const& begin);
    ~Transaction();
    Transaction(Transaction const&) = delete;
    Transaction& operator=(Transaction const&) = delete;

    /// Throws Error; the transaction may then be open still.
    void commit();

private:
    Connection const& m_connection;
};

} // namespace sqlite
