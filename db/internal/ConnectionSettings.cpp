#include <db/internal/ConnectionSettings.h>

#include <db/internal/Handles.h>

#include <sqlite3.h>

#include <cstring>

namespace
{

/// The longest pattern of LIKE and GLOB, in bytes. A long one in a file's constraint takes minutes to compare.
constexpr int kLongestPattern = 1000;

int setPragma(sqlite3* db, char const* pragma)
{
    return sqlite3_exec(db, pragma, nullptr, nullptr, nullptr);
}

/// Whether the file itself says that it is in write-ahead-log mode.
int readWalMode(sqlite3* db, bool& isWal)
{
    sqlite3_stmt* compiled = nullptr;
    int code = sqlite3_prepare_v2(db, "PRAGMA journal_mode", -1, &compiled, nullptr);
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
    // A file that was only looked at keeps its bytes: closing does not move a write-ahead log into it.
    static_cast<void>(sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr));
    return setPragma(db, "PRAGMA cell_size_check=ON");
}

int connectionSettings::makeDurable(sqlite3* db)
{
    // FULL: every commit waits until journal and database have reached the storage.
    int code = setPragma(db, "PRAGMA synchronous=FULL");
    if (code != SQLITE_OK)
    {
        return code;
    }
    bool isWal = false;
    code = readWalMode(db, isWal);
    if (code != SQLITE_OK || isWal)
    {
        return code; // Leaving write-ahead-log mode would rewrite the file; whoever chose the mode keeps it.
    }
    // PERSIST: a commit ends with zeroing and synchronising the journal's header. SQLite's default ends it with
    // unlinking the journal and does not synchronise the directory: after a power cut the journal can be back and
    // undo an acknowledged fault. Keeping the file also saves creating it anew, a large part of what a commit costs.
    return setPragma(db, "PRAGMA journal_mode=PERSIST");
}

int connectionSettings::limitJournal(sqlite3* db)
{
    return setPragma(db, "PRAGMA journal_size_limit=65536");
}
