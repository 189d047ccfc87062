#pragma once

#include <string>

struct sqlite3;

/// The settings of every connection to a fault database. All functions but `fileName` return a code of SQLite.
namespace connectionSettings
{

/// The name that makes SQLite open the file at `path` and nothing else: a prefix "./" removes the special meaning of
/// ":memory:", "file:..." and the empty name.
std::string fileName(std::string const& path);

/// Makes the connection distrust the file's schema, and report a damaged page before cells are read from it. Closing
/// the connection does not checkpoint a write-ahead log.
int distrust(sqlite3* db);

/// Makes a committed transaction survive a power cut. A file in write-ahead-log mode stays in that mode.
int makeDurable(sqlite3* db);

/// Keeps one large transaction from leaving a large journal or log beside the file, and a log from growing. A
/// checkpoint that fails, or that a reader of old content delays, is tried again at each commit.
int limitJournal(sqlite3* db);

/// Puts the file of a durable connection into write-ahead-log mode, durably. SQLITE_CANTOPEN: it cannot be used there.
int useLog(sqlite3* db);

} // namespace connectionSettings
