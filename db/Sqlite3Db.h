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

/// The connection layer: a registry of open SQLite connections, each known by a signed 16-bit handle, and the
/// operations that run SQL text on them.
///
/// Every connection is set up so that a statement that returned 0 survives a power cut: see docs/integrating.md.
///
/// Ownership: the registry owns its connections until `closeDb`; nothing closes them when the process ends.
/// Threads: nothing here locks; callers serialise their calls. Only a log line takes a lock, LogUtil::mutex.
/// Failures: codes are those of db/ResultCode.h. A statement that SQLite ends as failed has changed
/// nothing, and the connection stays usable. Standard exceptions (allocation) pass through; what was half done is
/// released.
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

    /// The one object of the process, created by the first call. It is never destroyed, so static objects may use it in
    /// their destructors. The argument selects nothing; pass 0.
    static Sqlite3Db* getInstance(unsigned int);

    /// Opens the SQLite file at `path` for reading and writing and registers the connection. A missing file is created
    /// empty, a file that may only be read is opened for reading. `path` always means a file: names that SQLite treats
    /// specially (":memory:", "file:" URIs) do not. An existing file is not written to, whatever it holds, unless
    /// SQLite rolls back what a crashed writer left half done. A file that is no database opens, and the first
    /// statement on it fails.
    ///
    /// Returns the handle, 0 or larger; a number just closed is not the next one given out while another is free.
    /// RESULT_FAILED when SQLite cannot open the file or another process keeps it locked beyond the busy timeout of 5
    /// s; RESULT_INVALID_STATE when all 32,768 handles are in use. Both after an ERROR line with the path.
    short openDb(std::string const& path);

    /// Closes the connection; its handle is invalid from then on.
    /// RESULT_INVALID_STATE for a handle that is not open. RESULT_FAILED when SQLite refuses, as it does while a
    /// statement of this connection is running (from a row callback, say): the handle then stays valid.
    int closeDb(short handle);

    /// Runs the one statement in `sql`; rows that it yields are passed over.
    ///
    /// RESULT_OK once it is done, and durable where it wrote; RESULT_INVALID_STATE without a log line for a handle that
    /// is not open; RESULT_FAILED after one ERROR line with SQLite's message and code when it fails, or before anything
    /// has run when `sql` is null, holds no statement, or holds anything after it but blanks, semicolons and comments.
    /// A file that another process locks is waited for, 5 s at most. A statement with a trigger or a view in it is
    /// interrupted, as failed, when the processor has worked on it for 5 s; inside a transaction of the caller's own
    /// that ends the transaction, as SQLite's interruption does. An authorizer or progress handler set on the
    /// connection itself is replaced.
    int execute(short handle, char const* sql);

    /// As above, and hands each row to `dataBaseQueryCb` of `cfg.callbackObj`. A callback that returns non-zero ends
    /// the statement as failed; what it throws reaches the caller. Calls that it makes itself stay on its thread. A
    /// statement that writes and returns rows has written by the time of its first row. A null `callbackObj` is
    /// RESULT_FAILED.
    int execute(short handle, char const* sql, Sqlite3DbCallback::sqlite3DbCbCgf_t cfg);

    /// Releases memory that SQLite allocated for this connection, a message text for example.
    /// RESULT_INVALID_STATE for a handle that is not open; `p` is then not released.
    int free(short handle, void* p);

    /// The registry's entry of `handle`, null unless its `state` is 1. Borrowed: it is valid until `closeDb`.
    /// Writes no log line.
    DbHandle const* findOpen(short handle) const;

    /// Creates the table that `tbl` describes: its name, and its columns in the order of their ids.
    /// Returns what `execute` returns, or RESULT_INVALID_STATE after an ERROR line when the column ids have a gap;
    /// nothing is run then. Compiled for Fault, FaultStatistic and FdbVersion.
    template <class T>
    int createTbl(short handle, SqlTbl<T> const& tbl);

    /// Runs the SELECT `query` and fills `out` with one record for each row, in SQLite's order, decoded by `tbl`
    /// through its working record. Cells are taken by position; a row with fewer cells than `tbl` has columns is
    /// decoded as if the missing ones were NULL. The whole result is held in memory while it is decoded.
    ///
    /// Returns the number of records; RESULT_INVALID_STATE without a log line for a handle that is not open,
    /// RESULT_FAILED after an ERROR line when SQLite refuses the query; `out` is untouched in both cases.
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
    /// Debug level of this layer: table creation logs from 1 on, a finished read above 1. FaultDb only ever sets 1.
    int m_debug = 0;
    /// The connections by handle. A handle is open when it has an entry whose `state` is 1.
    std::map<short, DbHandle> m_dbHandles;
};
