#pragma once

#include <db/Export.h>

/// Base class of objects that receive result rows from Sqlite3Db::execute.
///
/// Ownership: the connection layer borrows the object for one call of `execute`.
///
/// Threads: rows arrive on the thread that called `execute`, during that call.
class FIRAIM_EXPORT Sqlite3DbCallback
{
public:
    /// The receiver of the rows of one statement. Passed by value.
    struct sqlite3DbCbCgf_t
    {
        /// Receives the rows; borrowed. If it is null, nothing is run.
        Sqlite3DbCallback* callbackObj;
        /// Tells the receiver which query the rows belong to. Owned by the caller; it must live as long as the call of
        /// `execute`. The connection layer never reads it.
        int* sqlCmdQueryCb;
    };

    virtual ~Sqlite3DbCallback();

    /// Receives one result row.
    ///
    /// `cfg` points to a copy of the configuration given to `execute`, `argv` to `argc` NUL-terminated texts (null for
    /// an SQL NULL), `colNames` to as many column names. All of it is valid until the function returns.
    ///
    /// Returns 0 to continue; any other value ends the statement as failed. An exception also ends it and passes
    /// through `execute` to its caller.
    virtual int dataBaseQueryCb(sqlite3DbCbCgf_t* cfg, int argc, char** argv, char** colNames) = 0;
};
