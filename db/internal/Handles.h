#pragma once

#include <sqlite3.h>

#include <memory>

/// Owners of SQLite's objects.
namespace sqlite
{

struct CloseConnection
{
    // Cannot fail: all statements are gone by now.
    void operator()(sqlite3* db) const { static_cast<void>(sqlite3_close(db)); }
};
using ConnectionHandle = std::unique_ptr<sqlite3, CloseConnection>;

struct FinalizeStatement
{
    // The result repeats what the last step reported.
    void operator()(sqlite3_stmt* statement) const { static_cast<void>(sqlite3_finalize(statement)); }
};
using StatementHandle = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

} // namespace sqlite
