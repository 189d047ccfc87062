#pragma once

#include "Problem.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

/// SQLite for what the library does not do: looking at a file without ever changing it, copying it, removing rows.
namespace tool
{

/// A call of SQLite that failed; its text names the file and says what may help.
class SqliteProblem : public Problem
{
public:
    SqliteProblem(std::string const& path, sqlite3* db, int code);

    /// SQLite's extended result code.
    int code() const { return m_code; }

private:
    int m_code;
};

/// A statement that was compiled. Values only ever get in by `bind`. Failures throw SqliteProblem, and
/// interrupt::Interrupted when a signal has come.
class Statement
{
public:
    Statement(std::string const& path, sqlite3* db, std::string const& sql);

    /// Sets the parameter with that number, from 1 on. A text must stay until the next `step`.
    Statement& bind(int parameter, std::int64_t value);
    Statement& bind(int parameter, std::string_view value);

    /// Goes to the next row; returns whether there is one. Without one, the statement is ready for another run.
    bool step();
    /// Ends the run: no lock is held any longer.
    void reset();

    int columnCount() const;
    /// SQLite's type of the cell: SQLITE_INTEGER, SQLITE_TEXT and so on.
    int type(int column) const;
    bool isNull(int column) const;
    std::int64_t integer(int column) const;
    double real(int column) const;
    /// The bytes of a text or blob, the text of a number; valid until the next step.
    std::string_view text(int column) const;
    std::string_view blob(int column) const;
    /// How many bytes a text or blob has, 0 for numbers.
    std::size_t size(int column) const;

private:
    [[noreturn]] void fail(int code) const;
    int stepPatiently();

    struct Finalize
    {
        void operator()(sqlite3_stmt* statement) const;
    };

    std::string m_path;
    sqlite3* m_db;
    std::unique_ptr<sqlite3_stmt, Finalize> m_statement;
    bool m_isRunning = false; ///< has a row, and so its locks
};

/// How long a connection waits for other processes: as long as the library does.
constexpr std::chrono::seconds kPatience(5);

/// How a connection waits for other processes: in short pauses, as a writer lets go of the file for moments only, and
/// not beyond a signal.
struct Patience
{
    std::chrono::milliseconds limit;
    std::chrono::steady_clock::time_point begin = {};

    /// Lets `db` wait like this, for as long as both live.
    void applyTo(sqlite3* db);
};

/// A connection to one file. It waits up to 5 s for other processes, and a signal ends what it is doing.
class Connection
{
public:
    enum access_t
    {
        READ_ONLY,
        READ_ONLY_FOR_EVER, ///< the file cannot change while it is read: no lock, no file beside it
        READ_WRITE
    };

    /// Opens the file; `path` always names a file, whatever it looks like. Throws SqliteProblem.
    Connection(std::string const& path, access_t access);

    Statement prepare(std::string const& sql) const { return Statement(m_path, m_db.get(), sql); }
    /// Runs a statement whose rows do not matter.
    void run(std::string const& sql) const { static_cast<void>(prepare(sql).step()); }
    /// The one number that a query yields; 0 when it yields none.
    std::int64_t number(std::string const& sql) const;
    /// How long to wait for other processes from now on.
    void waitForLocks(int milliseconds) const;
    /// The number of rows that the last statement removed.
    std::int64_t changes() const;

    /// Whether the file was taken for one that cannot change.
    bool isForEver() const { return m_isForEver; }
    sqlite3* get() const { return m_db.get(); }
    std::string const& path() const { return m_path; }

private:
    struct Close
    {
        void operator()(sqlite3* db) const;
    };

    std::string m_path;
    bool m_isForEver;
    std::unique_ptr<Patience> m_patience; ///< outlives the connection, which points to it
    std::unique_ptr<sqlite3, Close> m_db;
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

    void commit();

private:
    Connection const& m_connection;
    bool m_isOpen = true;
};

} // namespace tool
