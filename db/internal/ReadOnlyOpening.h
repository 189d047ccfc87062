#pragma once

#include <db/internal/FilePath.h>
#include <db/internal/Sqlite.h>

#include <exception>
#include <string>
#include <utility>

/// Opens a file for reading without ever changing a byte of it, also on a read-only medium and beside writers.
namespace readOnlyOpening
{

enum FailureKind
{
    NO_FILE,        ///< no file of that name
    BAD_PATH,       ///< the path names something other than a file, or is no file name at all
    UNREADABLE,     ///< the system does not say what the path names
    LOG_UNREADABLE, ///< a write-ahead log with content cannot be read where nothing can be written
    EMPTIED         ///< the file is empty, although its journal or write-ahead log has content
};

/// Why a file cannot be opened at all.
class Failure : public std::exception
{
public:
    Failure(FailureKind failure, std::string text) : m_failure(failure), m_text(std::move(text)) {}

    FailureKind failure() const { return m_failure; }
    /// Begins with the name of the file.
    char const* what() const noexcept override { return m_text.c_str(); }

private:
    FailureKind m_failure;
    std::string m_text;
};

/// Requires that `file` is a regular file or a link to one. Opens nothing and does not wait. Throws Failure.
void requireFile(FilePath const& file);

/// Whether the journal file has more than an empty header.
bool holdsTransaction(std::string const& journal);

/// Requires that no journal or log with content lies beside an empty file: SQLite would remove it when it opens the
/// file for writing. Another process that is creating the database has such a journal for moments. Throws Failure.
void requireNothingBesideEmptyFile(FilePath const& path);

/// Opens the file and reads from it, so that SQLite examines the file, its journal and its log. A file in
/// write-ahead-log mode is opened as IMMUTABLE if nothing can be written and its log is empty or missing. An empty file
/// beside a log with content is not opened, as SQLite would remove the log. An empty file beside a journal with content
/// is refused as well, unless a process is writing to it. Throws Failure and sqlite::Error; SQLITE_READONLY_ROLLBACK
/// means a hot journal.
sqlite::Connection open(FilePath const& path, sqlite::Waiting const& waiting = {});

/// Whether the header of the connection's file asks for a write-ahead log. Read through SQLite's own descriptor:
/// closing another one would drop all locks that this process has on the file.
bool isInWalMode(sqlite::Connection const& connection);

/// The end of a message about a failed read; see sqlite::Error::isFailedRead.
extern char const kFailedReadAdvice[];

/// The message for `error` on the file at `path`, with advice.
std::string problemText(FilePath const& path, sqlite::Error const& error);

} // namespace readOnlyOpening
