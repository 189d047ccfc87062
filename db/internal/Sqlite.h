#pragma once

#include <db/internal/Handles.h>
#include <db/internal/LockWait.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

/// Owning wrappers of SQLite, for code that does not use the connection layer's registry. One thread at a time uses a
/// connection and its statements.
namespace sqlite
{

/// A failed call of SQLite.
class Error : public std::exception
{
public:
    /// `db` may be null. Its message is used if it belongs to `code`.
    Error(sqlite3* db, int code);

    /// SQLite's extended result code.
    int code() const { return m_code; }
    /// SQLite's primary result code.
    int kind() const { return m_code & 0xff; }
    /// Whether the medium failed to return a part of the file: nothing is known about the content. SQLite itself takes
    /// this for damage.
    bool isFailedRead() const;
    /// SQLite's message, without the name of the file.
    char const* what() const noexcept override { return m_message.c_str(); }

private:
    int m_code;
    std::string m_message;
};

/// How a connection waits for locks of other connections.
struct Waiting
{
    /// The longest wait for one lock.
    std::chrono::milliseconds limit = lockWait::kBusyTimeout;
    /// Returns true when a waiting or running statement shall end early; may be null.
    bool (*isCancelled)() = nullptr;
};

/// A compiled statement. Values are passed by `bind` only. Failures throw Error.
class Statement
{
public:
    /// An empty statement, which can only be assigned to.
    Statement() = default;
    /// `waiting` must outlive the statement.
    Statement(sqlite3* db, Waiting const& waiting, std::string const& sql);

    /// Sets a parameter, counted from 1. A text is borrowed until the parameter is set again.
    Statement& bind(int parameter, std::int64_t value);
    Statement& bind(int parameter, std::string_view value);
    Statement& bindNull(int parameter);
    Statement& bindReal(int parameter, double value);
    /// A blob is borrowed like a text.
    Statement& bindBlob(int parameter, std::string_view value);

    /// Moves to the next row; returns whether there is one. If not, the statement is ready to run again.
    bool step();
    /// Runs the statement to its end and ignores its rows.
    void run();
    /// Ends the run and releases the statement's locks.
    void reset();

    explicit operator bool() const { return m_statement != nullptr; }
    sqlite3_stmt* get() const { return m_statement.get(); }
    int columnCount() const;
    /// SQLite's type of the cell: SQLITE_INTEGER, SQLITE_TEXT and so on.
    int type(int column) const;
    bool isNull(int column) const { return type(column) == SQLITE_NULL; }
    std::int64_t integer(int column) const;
    double real(int column) const;
    /// The bytes of a text or blob, or the text of a number; valid until the next step.
    std::string_view text(int column) const;
    std::string_view blob(int column) const;
    /// The size of a text or blob in bytes; 0 for numbers.
    std::size_t size(int column) const;

private:
    [[noreturn]] void fail(int code) const;
    int stepUntilTimeout();

    sqlite3* m_db = nullptr;
    Waiting const* m_waiting = nullptr;
    StatementHandle m_statement;
    bool m_isRunning = false; ///< stands on a row, and so holds locks
};

/// A connection to one file, which distrusts the file's schema. Its statements must be destroyed before it.
class Connection
{
public:
    enum Access
    {
        READ_ONLY,
        IMMUTABLE, ///< the file cannot change while it is read: no lock, and no file beside it
        READ_WRITE,
        CREATE, ///< as READ_WRITE; a missing file is created empty
        MEMORY  ///< an empty in-memory database; the path is ignored
    };

    /// Opens the file; `path` always names a file, whatever it looks like. Throws Error.
    Connection(std::string const& path, Access access, Waiting const& waiting = {});
    Connection(Connection&&) = default;
    Connection& operator=(Connection&&) = default;

    Statement prepare(std::string const& sql) const { return Statement(get(), m_shared->waiting, sql); }
    /// Runs a statement and ignores its rows.
    void run(std::string const& sql) const { prepare(sql).run(); }
    /// The first number that a query returns; 0 if it returns no row.
    std::int64_t number(std::string const& sql) const;
    /// Sets how this connection waits for locks from now on.
    void waitFor(Waiting const& waiting) const { m_shared->waiting = waiting; }

    bool isInTransaction() const { return sqlite3_get_autocommit(get()) == 0; }
    /// Whether another file, or none, has the name of this one. SQLite finds the journal and the log by the name: on a
    /// connection that may write, it would play the journal of another file back into this one, or use the log of
    /// another file. So a connection that stays open must call `requireName` before each transaction. A connection that
    /// waits for a lock asks after each pause, and ends the wait with SQLITE_BUSY.
    bool hasMoved() const { return hasMoved(get()); }
    /// Throws SQLITE_READONLY_DBMOVED if the file has moved.
    void requireName() const;
    Access access() const { return m_access; }
    sqlite3* get() const { return m_db.get(); }

private:
    /// The context of SQLite's handlers. Its address stays valid when the connection is moved.
    struct Shared
    {
        Waiting waiting;
        lockWait::LockWait wait;
        sqlite3* db = nullptr;
    };

    static bool hasMoved(sqlite3* db);

    /// The context of both is a Shared.
    static int onBusy(void* context, int tries);
    static int onProgress(void* context);

    Access m_access;
    std::unique_ptr<Shared> m_shared;
    ConnectionHandle m_db;
};

/// A transaction, which is rolled back unless it was committed.
class Transaction
{
public:
    /// `begin` is the statement that begins it.
    Transaction(Connection const& connection, std::string const& begin);
    ~Transaction();
    Transaction(Transaction const&) = delete;
    Transaction& operator=(Transaction const&) = delete;

    /// Throws Error; the transaction may then still be open.
    void commit();

private:
    Connection const& m_connection;
};

} // namespace sqlite
