#pragma once

#include <db/internal/FilePath.h>
#include <db/internal/Sqlite.h>

#include <exception>
#include <string>
#include <utility>

/// Opening a file for reading without ever changing a byte of it, also on a read-only medium and beside writers.
namespace readOnlyOpening
{

enum FailureKind
{
    NO_FILE,        ///< nothing has that name
    BAD_PATH,       ///< the name is that of something else than a file, or no name at all
    UNREADABLE,     ///< nothing can be said of what has that name
    LOG_UNREADABLE, ///< a write-ahead log with content cannot be read where nothing can be written
    EMPTIED         ///< nothing is in the file, although its journal or its write-ahead log has content
};

/// Why a file cannot even be looked at.
class Failure : public std::exception
{
public:
    Failure(FailureKind failure, std::string text) : m_failure(failure), m_text(std::move(text)) {}

    FailureKind failure() const { return m_failure; }
    /// With the name of the file.
    char const* what() const noexcept override { return m_text.c_str(); }

private:
    FailureKind m_failure;
    std::string m_text;
};

/// Makes sure that `path` names a regular file or a link to one; opens nothing and waits for nothing. Throws Failure.
void requireFile(FilePath const& path);

/// Whether that journal has more than an empty header.
bool holdsTransaction(std::string const& journal);

/// Makes sure that no journal or log with content lies beside an empty file: SQLite removes it when it opens the file
/// for writing. Another process that creates the database just now has such a journal for moments. Throws Failure.
void requireNothingBesideEmptyFile(FilePath const& path);

/// Opens the file and reads from it, so that SQLite has looked at it and at what lies beside it. A file in
/// write-ahead-log mode is opened as IMMUTABLE where nothing can be written and its log is empty or missing. An empty
/// file beside a log with content is not opened: SQLite would remove the log. One beside a journal with content that no
/// process is at work on is refused as well.
/// Throws Failure and sqlite::Error; SQLITE_READONLY_ROLLBACK means a hot journal.
sqlite::Connection open(FilePath const& path, sqlite::Waiting const& waiting = {});

/// Whether the header of the connection's file asks for a write-ahead log. It is read through SQLite's own file:
/// closing a file of our own would drop all locks that this process has on it.
bool isInWalMode(sqlite::Connection const& connection);

/// The problem with the file at `path`, and advice.
std::string problemText(FilePath const& path, sqlite::Error const& error);

} // namespace readOnlyOpening
