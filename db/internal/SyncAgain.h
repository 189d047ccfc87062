#pragma once

#include <db/internal/Sqlite.h>

/// Settles a commit that failed, on a new connection. Storage that fails in the last steps of a commit may
/// have stored it, or have left it where a power cut takes it, or where the next opening of the file finds it.
namespace syncAgain
{

/// For changes that are found in the file: puts them on the storage. They can be read, and a power cut can take them:
/// after a failed synchronisation the system takes the pages for written, and synchronising once more passes over them.
/// Throws sqlite::Error; whether the changes are on the storage is then not known.
void keepFound(sqlite::Connection const& connection);

/// For changes that are not found: makes sure that they do not come back. With a write-ahead log, frames of a commit
/// whose synchronisation failed stay in the log, and are taken for stored by whoever opens the file first when all
/// others have closed it. Throws sqlite::Error; whether the changes come back is then not known.
void dropLost(sqlite::Connection const& connection);

} // namespace syncAgain
