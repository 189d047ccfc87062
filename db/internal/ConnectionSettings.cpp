#include <db/internal/ConnectionSettings.h>

#include <db/internal/Handles.h>

#include <sqlite3.h>

#include <cstring>

namespace
{

/// The longest pattern of LIKE and GLOB, in bytes: a long one in a file's constraint takes minutes to compare.
constexpr int kLongestPattern = 1000;

int setPragma(sqlite3* db, char const* pragma)
{
    return sqlite3_exec(db, pragma, nullptr, nullptr, nullptr);
}

/// Rolls back a hot journal and zeroes its header, on a connection of its own: SQLite keeps the journal in exclusive
/// locking mode, which a connection sets without reading the file.
///
/// Does not wait for locks. Two connections that wait in this mode keep their shared locks and block each other.
int rollBackKeepingJournal(char const* path)
{
    sqlite3* db = nullptr;
    int code = sqlite3_open_v2(path, &db, SQLITE_OPEN_READWRITE, nullptr);
    sqlite::ConnectionHandle const connection(db);
    if (code == SQLITE_OK)
    {
        code = connectionSettings::distrust(db);
    }
    return code == SQLITE_OK ? setPragma(db, "PRAGMA locking_mode=EXCLUSIVE;PRAGMA schema_version") : code;
}

/// As `setPragma`, for the first statement that reads the file and so rolls back a hot journal. SQLite ends that by
/// deleting the journal: only a connection that has read the file can be told to keep it. In a folder where this
/// process may write but not delete, rolls back in another way.
int setFirstPragma(sqlite3* db, char const* pragma)
{
    constexpr int kMostTries = 10; // Others may be about to do the same.
    int code = setPragma(db, pragma);
    for (int tries = 0; tries < kMostTries && sqlite3_extended_errcode(db) == SQLITE_IOERR_DELETE; ++tries)
    {
        static_cast<void>(rollBackKeepingJournal(sqlite3_db_filename(db, "main"))); // The next line shows the result.
        code = setPragma(db, pragma);
    }
    return code;
}

/// Runs `pragma`, which returns the journal mode, and reports whether that is the write-ahead log.
int readWalMode(sqlite3* db, bool& isWal, char const* pragma = "PRAGMA journal_mode")
{
    sqlite3_stmt* compiled = nullptr;
    int code = sqlite3_prepare_v2(db, pragma, -1, &compiled, nullptr);
    sqlite::StatementHandle const statement(compiled);
    if (code == SQLITE_OK)
    {
        code = sqlite3_step(compiled);
    }
    if (code != SQLITE_ROW)
    {
        return code;
    }
    auto const* const mode = reinterpret_cast<char const*>(sqlite3_column_text(compiled, 0));
    isWal = mode != nullptr && std::strcmp(mode, "wal") == 0;
    return SQLITE_OK;
}

} // namespace

std::string connectionSettings::fileName(std::string const& path)
{
    return !path.empty() && path.front() == '/' ? path : "./" + path;
}

int connectionSettings::distrust(sqlite3* db)
{
    // Files may come from anywhere, so do not trust their schema: it must not call functions with side effects, and SQL
    // must not damage the file.
    static_cast<void>(sqlite3_db_config(db, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr));
    static_cast<void>(sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr));
    static_cast<void>(sqlite3_limit(db, SQLITE_LIMIT_LIKE_PATTERN_LENGTH, kLongestPattern));
    // Keep the bytes of a file that was only read: closing must not checkpoint its write-ahead log.
    static_cast<void>(sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr));
    return setPragma(db, "PRAGMA cell_size_check=ON");
}

int connectionSettings::makeDurable(sqlite3* db)
{
    // FULL: every commit waits until the journal and the database are on the storage.
    int code = setFirstPragma(db, "PRAGMA synchronous=FULL");
    if (code != SQLITE_OK)
    {
        return code;
    }
    bool isWal = false;
    code = readWalMode(db, isWal);
    if (code != SQLITE_OK || isWal)
    {
        return code; // Leaving write-ahead-log mode would rewrite the file; the owner of the file has chosen the mode.
    }
    // PERSIST: a commit ends by zeroing and synchronising the journal's header. SQLite's default ends it by deleting
    // the journal without synchronising the folder: after a power cut the journal can be back and undo an acknowledged
    // fault. Keeping the journal also saves creating it again, a large part of the cost of a commit.
    return setPragma(db, "PRAGMA journal_mode=PERSIST");
}

int connectionSettings::limitJournal(sqlite3* db)
{
    bool isWal = false;
    int const code = readWalMode(db, isWal);
    if (code != SQLITE_OK)
    {
        return code;
    }
    // The commit that brings the log to 64 pages copies it into the file; a larger log saves few writes. The log keeps
    // its size and is overwritten: each time that it grew, the file system would have to record the new size.
    return setPragma(db, isWal ? "PRAGMA wal_autocheckpoint=64;PRAGMA journal_size_limit=524288"
                               : "PRAGMA wal_autocheckpoint=64;PRAGMA journal_size_limit=65536");
}

int connectionSettings::useLog(sqlite3* db)
{
    // The change ends by deleting the rollback journal. The first synchronisation of the log, before its first commit
    // returns, makes that durable: it synchronises the folder.
    bool isWal = false;
    int const code = readWalMode(db, isWal, "PRAGMA journal_mode=WAL");
    // Where SQLite cannot use a log, it keeps the mode and reports success.
    return code == SQLITE_OK && !isWal ? SQLITE_CANTOPEN : code;
}
