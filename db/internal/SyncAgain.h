#pragma once

#include <db/internal/Sqlite.h>

/// Repairs the outcome of a failed commit, on a new connection. Storage that fails in the last steps of a commit may
/// have stored it, or have left it where a power cut removes it or where the next opening of the file finds it.
namespace syncAgain
{

/// For changes that are found in the file: makes them durable. They can be read, but a power cut can remove them: after
/// a failed synchronisation the system considers the pages written, and another synchronisation skips them. Throws
/// sqlite::Error; it is then unknown whether the changes are on the storage.
void keepFound(sqlite::Connection const& connection);

/// For changes that are not found: makes sure that they do not come back. Frames of a commit whose synchronisation
/// failed stay in a write-ahead log. The first connection to open the file, after all others have closed it, would take
/// them for committed. Throws sqlite::Error; it is then unknown whether the changes come back.
void dropLost(sqlite::Connection const& connection);

} // namespace syncAgain
