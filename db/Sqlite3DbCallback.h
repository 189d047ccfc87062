#pragma once

#include <db/Export.h>

/// Base class of objects that receive result rows from Sqlite3Db::execute.
///
/// Ownership: the connection layer only borrows the object for one call of `execute`.
/// Threads: rows arrive on the thread that called `execute`, inside that call.
class FIRAIM_EXPORT Sqlite3DbCallback
{
public:
    /// Says where the rows of one statement go. Passed by value.
    struct sqlite3DbCbCgf_t
    {
        /// Receives the rows; borrowed. With a null pointer nothing is run.
        Sqlite3DbCallback* callbackObj;
        /// Tells the receiver which query the rows belong to. The caller owns the int; it has to live as long as the
        /// call of `execute`. The connection layer never reads it.
        int* sqlCmdQueryCb;
    };

    virtual ~Sqlite3DbCallback();

    /// Receives one result row.
    ///
    /// `cfg` points at a copy of the configuration given to `execute`, `argv` at `argc` NUL-terminated texts (null for
    /// an SQL NULL) and `colNames` at as many column names. All of it is valid until the function returns.
    /// Returns 0 to go on; any other value ends the statement as failed. An exception ends it too and passes through
    /// `execute` to its caller.
    virtual int dataBaseQueryCb(sqlite3DbCbCgf_t* cfg, int argc, char** argv, char** colNames) = 0;
};
