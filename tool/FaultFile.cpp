#include "FaultFile.h"

#include "Format.h"
#include "Output.h"

#include <fdb/FaultDb.h>

#include <sqlite3.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool
{

namespace
{

constexpr std::size_t kReadVersionOffset = 19; ///< in the file header: what is needed to read the file
constexpr char kReadVersionWal = 2;

std::string systemError(int error)
{
    return std::generic_category().message(error);
}

bool hasContent(std::string const& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && status.st_size > 0;
}

bool isInWalMode(std::string const& path)
{
    std::array<char, kReadVersionOffset + 1> header = {};
    std::ifstream(path, std::ios::binary).read(header.data(), header.size());
    return header.back() == kReadVersionWal;
}

bool mayRead(std::string const& path)
{
    return faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) == 0;
}

Problem logProblem(std::string const& path)
{
    return Problem(STATUS_BAD_FILE, path +
                                        ": faults that belong to it are still in its write-ahead log, which cannot be "
                                        "read where nothing can be written. Copy it together with '" +
                                        path +
                                        "-wal' into another folder, run 'firaim recover' on the copy, and use "
                                        "that");
}

/// Reads something, so that SQLite looks at the file and at what lies beside it.
void touch(Connection const& connection)
{
    connection.number("SELECT count(*) FROM sqlite_master");
}

Connection openUnchanging(std::string const& path)
{
    Connection connection(path, Connection::READ_ONLY_FOR_EVER);
    touch(connection);
    return connection;
}

/// The format version; none unless there is exactly one.
std::optional<std::string> onlyFormatVersion(Connection const& connection)
{
    std::vector<std::string> const versions = readFormatVersions(connection);
    return versions.size() == 1 ? std::optional(versions.front()) : std::nullopt;
}

void requireTables(Connection const& connection)
{
    Statement statement = connection.prepare("SELECT type, rootpage FROM sqlite_master WHERE name = ?1");
    for (tableFormat_t const* const format : allFormats())
    {
        statement.bind(1, format->name);
        if (!statement.step())
        {
            throw Problem(STATUS_BAD_FILE, connection.path() + ": no fault database: it has no table " + format->name);
        }
        // The rows of a view come from wherever the file says, and may never end.
        std::string const type(statement.text(0));
        if (type != "table")
        {
            throw Problem(STATUS_BAD_FILE,
                          connection.path() + ": no fault database: " + format->name + " is a " + type);
        }
        if (statement.integer(1) == 0)
        {
            throw Problem(STATUS_BAD_FILE,
                          connection.path() + ": no fault database: " + format->name + " is a virtual table");
        }
        statement.reset();
    }
}

/// The library takes the cells of a row by their places.
void requireColumns(Connection const& connection)
{
    for (tableFormat_t const* const format : allFormats())
    {
        Statement found = connection.prepare("SELECT name FROM pragma_table_xinfo(?1) ORDER BY cid");
        found.bind(1, format->name);
        for (column_t const& expected : format->columns)
        {
            if (!found.step() || found.text(0) != expected.name)
            {
                throw Problem(STATUS_BAD_FILE, connection.path() + ": " + format->name +
                                                   " has not the columns of the file format, in their order; 'firaim "
                                                   "check' tells more");
            }
        }
    }
}

} // namespace

void requireFile(std::string const& path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
    {
        throw Problem(STATUS_BAD_FILE, path + ": " + systemError(errno));
    }
    if (!S_ISREG(status.st_mode))
    {
        throw Problem(STATUS_BAD_FILE, path + (S_ISDIR(status.st_mode) ? ": is a folder" : ": is no regular file"));
    }
}

Connection openForLooking(std::string const& path)
{
    requireFile(path);
    try
    {
        Connection connection(path, Connection::READ_ONLY);
        touch(connection);
        return connection;
    }
    catch (SqliteProblem const& problem)
    {
        int const kind = problem.code() & 0xff;
        if (isInWalMode(path) && (kind == SQLITE_CANTOPEN || kind == SQLITE_READONLY) && mayRead(path))
        {
            // The log's index cannot be created on a read-only medium. Without a log it is not needed either.
            if (hasContent(path + "-wal"))
            {
                throw logProblem(path);
            }
            return openUnchanging(path);
        }
        throw;
    }
}

std::vector<std::string> readFormatVersions(Connection const& connection)
{
    Statement statement = connection.prepare("SELECT Version FROM FdbVersionTbl WHERE Component LIKE 'FormatVersion'");
    std::vector<std::string> versions;
    while (statement.step())
    {
        versions.emplace_back(statement.text(0));
    }
    return versions;
}

FaultFile::FaultFile(std::string const& path) : m_connection(openForLooking(path))
{
    requireTables(m_connection);
    m_formatVersion = onlyFormatVersion(m_connection);
    if (!m_formatVersion)
    {
        complain(path + ": the format version is missing or not the only one; 'firaim check' tells more");
    }
    else if (*m_formatVersion != FaultDb::SUPPORTED_VERSION)
    {
        complain(path + ": format version " + *m_formatVersion + " is not " + FaultDb::SUPPORTED_VERSION +
                 ", read as far as the two are alike");
    }
}

void requireWritableFile(std::string const& path)
{
    requireFile(path);
    if (faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0)
    {
        throw Problem(STATUS_BAD_FILE, path + ": cannot be written: " + systemError(errno));
    }
}

void requireWritableFaultFile(std::string const& path)
{
    requireWritableFile(path);
    // For looking at it the journal of a crashed writer would be in the way; the first look through this connection
    // does what the library's would do.
    Connection const connection(path, Connection::READ_WRITE);
    requireTables(connection);
    requireColumns(connection);
    std::optional<std::string> const version = onlyFormatVersion(connection);
    if (version != FaultDb::SUPPORTED_VERSION)
    {
        throw Problem(STATUS_BAD_FILE, path + ": format version " + version.value_or("missing or not the only one") +
                                           "; only files of version " + FaultDb::SUPPORTED_VERSION + " are written to");
    }
}

void recoverFile(std::string const& path)
{
    requireWritableFile(path);
    Connection const connection(path, Connection::READ_WRITE);
    requireTables(connection);
    if (isInWalMode(path))
    {
        // Into the file with what is in its log: it can then be read alone.
        connection.run("PRAGMA wal_checkpoint(TRUNCATE)");
    }
}

} // namespace tool
