#include "NewestConnection.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace
{

sqlite3* newest = nullptr;

int onNewConnection(sqlite3* db, char const**, sqlite3_api_routines const*) noexcept
{
    newest = db;
    return SQLITE_OK;
}

using Hook = void (*)();

/// SQLite declares the hook without its parameters.
Hook hook()
{
    return reinterpret_cast<Hook>(onNewConnection);
}

} // namespace

NewestConnection::NewestConnection()
{
    EXPECT_EQ(sqlite3_auto_extension(hook()), SQLITE_OK);
}

NewestConnection::~NewestConnection()
{
    EXPECT_EQ(sqlite3_cancel_auto_extension(hook()), 1);
    newest = nullptr;
}

sqlite3* NewestConnection::get() const
{
    return newest;
}
