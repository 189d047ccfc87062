#pragma once

#include <db/internal/Sqlite.h>

#include <functional>
#include <string>

namespace tool
{

/// Copies the SQLite database at `path` to the file `target` while other processes may write to it. The copy holds all
/// transactions up to one of them, and needs no journal or log. It gets the permissions of the file; its owner may
/// always read and write it.
///
/// Pauses often, so that other processes can write. A change of another process starts the copy again, with fewer
/// pauses each time. Calls `showShare` before each pause with the share of copied pages, between 0 and 1.
///
/// Replaces an existing `target` if `isReplacing`, and removes a journal or log with content beside it. Otherwise the
/// caller checks that the name is free and that none lies beside it: a file system without RENAME_NOREPLACE would
/// replace a file that another process has created since.
///
/// Throws a Problem that names the file that cannot be read or written, also if it stays locked for a minute, and
/// interrupt::Interrupted after a signal. Then `target` is unchanged: the pages are copied to a temporary file beside
/// it, which is renamed at the end, or removed on failure.
void copyFile(std::string const& path, std::string const& target, bool isReplacing,
              std::function<void(double share)> const& showShare);

/// Copies all pages of the database at `path`, open as `from`, to the empty one open as `to`, which is named `target`
/// in messages. Pauses, begins again, calls `showShare` and throws as `copyFile` does.
void copyPages(sqlite::Connection const& from, std::string const& path, sqlite::Connection const& to,
               std::string const& target, std::function<void(double share)> const& showShare);

} // namespace tool
