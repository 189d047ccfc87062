#pragma once

#include "Sqlite.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tool
{

/// A fault database that is only looked at: no byte of it changes, and it may lie on a read-only medium.
class FaultFile
{
public:
    /// Opens the file at `path` and makes sure that it is a fault database. Throws a Problem when it cannot be read or
    /// is none. One of another format version is accepted, and that is said on standard error.
    explicit FaultFile(std::string const& path);

    Connection const& connection() const { return m_connection; }
    /// Gives the connection away.
    Connection takeConnection() { return std::move(m_connection); }
    std::string const& path() const { return m_connection.path(); }
    /// The text of the format version; none unless there is exactly one.
    std::optional<std::string> const& formatVersion() const { return m_formatVersion; }

private:
    Connection m_connection;
    std::optional<std::string> m_formatVersion;
};

/// Opens a file for looking at it without asking what it holds, apart from its being an SQLite database.
Connection openForLooking(std::string const& path);

/// The format versions in the file, of which there should be one.
std::vector<std::string> readFormatVersions(Connection const& connection);

/// Keeps one large transaction from leaving a large journal beside the file, for as long as the connection is open.
constexpr char kJournalSizeLimit[] = "PRAGMA journal_size_limit=65536";

/// Makes sure that there is a regular file at `path`. Throws a Problem that says what is there instead.
void requireFile(std::string const& path);

/// Makes sure that there is a regular file at `path` that can be written to. Throws a Problem.
void requireWritableFile(std::string const& path);

/// Rolls back what a crashed writer left half done in the file at `path`, and moves what is in its write-ahead log into
/// the file, which can then be read alone. Throws a Problem when that cannot be done.
void recoverFile(std::string const& path);

/// Makes sure that the file at `path` is a fault database that can be written to, of the one format version that the
/// library writes. Throws a Problem that says what is wrong. It may be a file that a writer left half written: what was
/// left half done is rolled back as soon as the library opens it.
void requireWritableFaultFile(std::string const& path);

} // namespace tool
