#pragma once

#include <db/Export.h>
#include <db/ResultCode.h>
#include <db/Sqlite3DbCallback.h>

#include <map>
#include <string>
#include <vector>

struct sqlite3;
template <class T>
class SqlTbl;

/// The connection layer: a registry of open SQLite connections, each with a signed 16-bit handle, and the operations
/// that run SQL text on them.
///
/// Every connection is configured so that a statement that returned 0 survives a power cut; see docs/integrating.md.
///
/// Ownership: the registry owns its connections until `closeDb`; nothing closes them when the process ends.
///
/// Threads: nothing here locks, except a log line (LogUtil::mutex). Callers must serialise their calls.
///
/// Failures: the codes of db/ResultCode.h. A statement that failed in SQLite has changed nothing, and the connection
/// stays usable. Standard exceptions (allocation) pass through and leak nothing.
class FIRAIM_EXPORT Sqlite3Db
{
public:
    /// One connection of the registry.
    struct DbHandle
    {
        int dbId = -1;         ///< the handle as a number
        std::string dbPath;    ///< the path given to `openDb`
        sqlite3* db = nullptr; ///< the SQLite connection
        int state = 0;         ///< 1: usable; anything else: not
        int reserved = 0;      ///< not used
    };

    Sqlite3Db(Sqlite3Db const&) = delete;
    Sqlite3Db& operator=(Sqlite3Db const&) = delete;

    /// The one object of the process, created by the first call. It is never destroyed, so destructors of static
    /// objects may use it. The argument is ignored; pass 0.
    static Sqlite3Db* getInstance(unsigned int);

    /// Opens the SQLite file at `path` for reading and writing and registers the connection.
    ///
    /// A missing file is created empty; a file with read permission only is opened for reading. `path` always names a
    /// file, also where SQLite would see something else (":memory:", "file:" URIs). An existing file is not written to,
    /// whatever its content, unless SQLite rolls back the unfinished transaction of a crashed writer. A file that is no
    /// database can be opened; the first statement on it fails.
    ///
    /// Returns the handle, 0 or larger. The number closed last is not given out again while another one is free. Both
    /// failures write an ERROR line with the path:
    /// - RESULT_FAILED: SQLite cannot open the file, or another process keeps it locked beyond the busy timeout of 5 s
    /// - RESULT_INVALID_STATE: all 32,768 handles are in use
    short openDb(std::string const& path);

    /// Closes the connection; its handle is invalid from then on.
    /// - RESULT_OK
    /// - RESULT_INVALID_STATE: the handle is not open
    /// - RESULT_FAILED: SQLite refuses, for example while a statement of this connection is running (as in a row
    ///   callback); the handle stays valid
    int closeDb(short handle);

    /// Runs the one statement in `sql`; rows that it returns are ignored.
    /// - RESULT_OK: the statement is done, and durable if it wrote
    /// - RESULT_INVALID_STATE: the handle is not open; no log line
    /// - RESULT_FAILED, after one ERROR line with SQLite's message and code: the statement failed; or nothing was run,
    ///   as `sql` is null, holds no statement, or holds more than blanks, semicolons and comments after it
    ///
    /// Waits up to 5 s for a file that another process locks. A statement that involves a trigger or a view fails when
    /// it has used 5 s of processor time; SQLite's interruption then also ends a transaction of the caller. An
    /// authorizer or progress handler that the caller has set on the connection is replaced.
    int execute(short handle, char const* sql);

    /// As above, and passes each row to `dataBaseQueryCb` of `cfg.callbackObj`. If the callback returns non-zero, the
    /// statement ends as failed; if it throws, the exception passes through. All rows arrive on the calling thread. A
    /// statement that writes and returns rows has written by the time of its first row. RESULT_FAILED also for a null
    /// `callbackObj`.
    int execute(short handle, char const* sql, Sqlite3DbCallback::sqlite3DbCbCgf_t cfg);

    /// Frees memory that SQLite allocated for this connection, a message text for example.
    /// RESULT_OK; RESULT_INVALID_STATE if the handle is not open: `p` is then not freed.
    int free(short handle, void* p);

    /// The registry's entry of `handle`; null unless its `state` is 1. Valid until `closeDb`. Writes no log line.
    DbHandle const* findOpen(short handle) const;

    /// Creates the table that `tbl` describes, with its columns in the order of their ids. Returns the result of
    /// `execute`; or RESULT_INVALID_STATE after an ERROR line, without running anything, if the column ids have a gap.
    /// Compiled for Fault, FaultStatistic and FdbVersion.
    template <class T>
    int createTbl(short handle, SqlTbl<T> const& tbl);

    /// Runs the SELECT `query` and fills `out` with one record for each row, in SQLite's order, decoded through the
    /// working record of `tbl`. Cells are taken by position; cells that a row lacks are decoded as NULL. The whole
    /// result is held in memory while it is decoded.
    ///
    /// Returns the number of records. After a failure, `out` is unchanged:
    /// - RESULT_INVALID_STATE: the handle is not open; no log line
    /// - RESULT_FAILED, after an ERROR line: SQLite refuses the query
    ///
    /// Compiled for Fault, FaultStatistic and FdbVersion, each with U = T.
    template <class T, class U>
    int getTbl(short handle, std::string query, std::vector<T>& out, SqlTbl<U>* tbl);

private:
    Sqlite3Db() = default;
    ~Sqlite3Db() = default;

    FIRAIM_HIDDEN short findFreeHandle() const;

    short m_nextHandle = 0;
    short m_lastClosedHandle = -1;

public:
    /// Debug level of this layer: from 1 on, table creation is logged; above 1, also each finished read. FaultDb only
    /// sets 1.
    int m_debug = 0;
    /// The connections by handle. A handle is open when it has an entry whose `state` is 1.
    std::map<short, DbHandle> m_dbHandles;
};
