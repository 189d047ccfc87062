#include <db/internal/SyncAgain.h>

#include <db/internal/ReadOnlyOpening.h>

#include <string>

namespace
{

/// Copies what is in a write-ahead log into the file, synchronises that and empties the log.
void emptyLog(sqlite::Connection const& connection)
{
    sqlite::Statement checkpoint = connection.prepare("PRAGMA wal_checkpoint(TRUNCATE)");
    if (checkpoint.step() && checkpoint.integer(0) != 0)
    {
        throw sqlite::Error(nullptr, SQLITE_BUSY); // Somebody reads what is in the log.
    }
}

/// Commits a change of the first page: gives the file the user version that it has. Rewriting a row with its own values
/// would change no page, and SQLite then writes nothing.
void rewriteFirstPage(sqlite::Connection const& connection)
{
    std::string const version = "PRAGMA user_version";
    sqlite::Transaction transaction(connection, "BEGIN IMMEDIATE");
    connection.run(version + '=' + std::to_string(connection.number(version)));
    transaction.commit();
}

} // namespace

/// All that the failed call was to write is written anew.
///
/// With a rollback journal, changes are only found when the database was synchronised and the journal's header zeroed;
/// the zeroed header may be missing on the storage. Any commit that changes a page writes the header, zeroes it again
/// and synchronises both.
///
/// In a write-ahead log a lost frame makes all later ones worthless. The commit begins the emptied log anew, under a
/// new salt, and synchronises it.
void syncAgain::keepFound(sqlite::Connection const& connection)
{
    emptyLog(connection);
    rewriteFirstPage(connection);
}

/// The next commit takes the place of the lost frames.
void syncAgain::dropLost(sqlite::Connection const& connection)
{
    if (readOnlyOpening::isInWalMode(connection))
    {
        rewriteFirstPage(connection);
    }
}
