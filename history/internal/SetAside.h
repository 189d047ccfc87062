#pragma once

#include <db/internal/Sqlite.h>

#include <functional>
#include <string>

namespace firaim
{

/// Copies the file at `path` to a name beside it, with the date and a number, if it holds something; the copy is on the
/// storage afterwards. A copy of that day which holds the same is as good. A database must not be copied like this
/// while it is open here: it is for what lies beside one. Throws Failure.
void copyAside(std::string const& path);

/// Writes a row with the text of what happened to the new content, which `connection` has. Throws sqlite::Error.
using RecordIncident = std::function<void(sqlite::Connection const& connection, std::string const& text)>;

/// Copies the damaged fault database at `path` with its journal and its log aside, as `copyAside` does, and makes a new
/// one of it in place, through SQLite, so that whoever else has it open goes on with the same file. It then holds the
/// empty tables and the row of `recordIncident`, or is as it was: that is one transaction. `damage` is what SQLite says
/// of it. Returns whether that was done; not where the damage has gone meanwhile.
///
/// Throws Failure, with the file as it was, when it is locked, when the copies cannot be made, when storage fails, or
/// when a file whose schema cannot be read does not seem to be a fault database.
bool setAside(std::string const& path, std::string const& damage, sqlite::Waiting const& waiting,
              RecordIncident const& recordIncident);

} // namespace firaim
