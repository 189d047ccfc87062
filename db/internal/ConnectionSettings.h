#pragma once

#include <string>

struct sqlite3;

/// How every connection to a fault database is set up. All functions return a code of SQLite.
namespace connectionSettings
{

/// The name under which SQLite opens the file at `path` and nothing else: "./" takes the special meaning from
/// ":memory:", "file:..." and the empty name.
std::string fileName(std::string const& path);

/// Makes the connection distrust what the file's schema says, and report a damaged page before wrong cells are taken
/// from it. Closing the connection leaves a write-ahead log where it is.
int distrust(sqlite3* db);

/// Makes a finished transaction last through a power cut. A file in write-ahead-log mode is left in that mode.
int makeDurable(sqlite3* db);

/// Keeps one large transaction from leaving a large journal beside the file.
int limitJournal(sqlite3* db);

} // namespace connectionSettings
