#include <db/internal/SyncAgain.h>

#include <db/internal/ReadOnlyOpening.h>

#include <string>

namespace
{

/// Checkpoints the write-ahead log: copies it into the file, synchronises the file and empties the log.
void emptyLog(sqlite::Connection const& connection)
{
    sqlite::Statement checkpoint = connection.prepare("PRAGMA wal_checkpoint(TRUNCATE)");
    if (checkpoint.step() && checkpoint.integer(0) != 0)
    {
        throw sqlite::Error(nullptr, SQLITE_BUSY); // Another connection still reads from the log.
    }
}

/// Commits a change of the first page by setting the user version to its present value. Rewriting a row with its own
/// values would change no page, and SQLite would then write nothing.
void rewriteFirstPage(sqlite::Connection const& connection)
{
    std::string const version = "PRAGMA user_version";
    sqlite::Transaction transaction(connection, "BEGIN IMMEDIATE");
    connection.run(version + '=' + std::to_string(connection.number(version)));
    transaction.commit();
}

} // namespace

/// Everything that the failed call was to write is written again.
///
/// With a rollback journal, changes are found only if the database was synchronised and the journal's header zeroed;
/// the zeroed header may be missing on the storage. Any commit that changes a page writes the header, zeroes it again
/// and synchronises both.
///
/// In a write-ahead log, a lost frame invalidates all later ones. The commit restarts the emptied log with a new salt
/// and synchronises it.
void syncAgain::keepFound(sqlite::Connection const& connection)
{
    emptyLog(connection);
    rewriteFirstPage(connection);
}

/// The next commit overwrites the lost frames.
void syncAgain::dropLost(sqlite::Connection const& connection)
{
    if (readOnlyOpening::isInWalMode(connection))
    {
        rewriteFirstPage(connection);
    }
}
