#pragma once

#include <db/internal/Sqlite.h>

#include <functional>
#include <string>

namespace firaim
{

/// Copies the file at `path` to a name beside it with the date and a number, and makes the copy durable. Does nothing
/// if the file is missing or holds nothing, or if a copy of that day has the same content. Not for a database that is
/// open here: it is for the files beside one. Throws Failure.
void copyAside(std::string const& path);

/// Writes a row with `text` into the new content, on `connection`. Throws sqlite::Error.
using RecordIncident = std::function<void(sqlite::Connection const& connection, std::string const& text)>;

/// Copies the damaged fault database at `path` aside, with its journal and log, as `copyAside` does. Then replaces its
/// content in place, through SQLite, so that other processes continue with the same file: in one transaction, by empty
/// tables and the row of `recordIncident`. `damage` is SQLite's message. Returns whether it did so; it does not if the
/// damage is gone meanwhile.
///
/// Throws Failure, with the file unchanged, if it is locked, if the copies cannot be made, if storage fails, or if a
/// file with an unreadable schema does not look like a fault database.
bool setAside(std::string const& path, std::string const& damage, sqlite::Waiting const& waiting,
              RecordIncident const& recordIncident);

} // namespace firaim
