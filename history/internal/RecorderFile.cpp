#include <history/internal/RecorderFile.h>

#include <db/internal/ConnectionSettings.h>
#include <db/internal/Folder.h>
#include <db/internal/Join.h>
#include <db/internal/ReadOnlyOpening.h>
#include <history/internal/Failure.h>
#include <history/internal/FaultPages.h>
#include <history/internal/SetAside.h>
#include <history/internal/Tables.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace firaim
{

namespace
{

constexpr char kJournalSuffix[] = "-journal";
constexpr char kLogSuffix[] = "-wal";

/// The kind of object at the path.
enum class Found
{
    NOTHING,
    EMPTY_FILE,
    FILE_WITH_CONTENT
};

[[noreturn]] void refusePath(std::string const& path, char const* reason)
{
    throw Failure(HISTORY_BAD_PATH, path + ": " + reason);
}

Found checkPath(std::string const& path)
{
    if (path.empty() || path.find('\0') != std::string::npos)
    {
        refusePath(path, "is no name of a file");
    }
    if (path.back() == '/')
    {
        refusePath(path, "is the name of a folder");
    }
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
    {
        bool const isThere = errno == ENOENT && lstat(path.c_str(), &status) == 0;
        if (errno == ELOOP || (isThere && S_ISLNK(status.st_mode)))
        {
            refusePath(path, "is a link to a file that is not there");
        }
        if (isThere)
        {
            return checkPath(path); // Another process has created it meanwhile.
        }
        if (errno != ENOENT)
        {
            failWithErrno(path, "cannot be examined");
        }
        return Found::NOTHING;
    }
    if (!S_ISREG(status.st_mode))
    {
        refusePath(path, S_ISDIR(status.st_mode) ? "is a folder" : "is no regular file");
    }
    if (faccessat(AT_FDCWD, path.c_str(), R_OK | W_OK, AT_EACCESS) != 0)
    {
        failWithErrno(path, "cannot be read and written");
    }
    if (status.st_size == 1)
    {
        throw Failure(HISTORY_FOREIGN_FILE, path + ": is no database"); // SQLite would treat it as empty.
    }
    return status.st_size == 0 ? Found::EMPTY_FILE : Found::FILE_WITH_CONTENT;
}

struct Tables
{
    FaultTable fault;
    StatisticTable statistic;
    VersionTable version;

    /// In the order of creation.
    std::array<BoundTable const*, 3> all() const { return {&fault.bound(), &statistic.bound(), &version.bound()}; }
};

/// Copies the files beside a missing or empty database, as SQLite would delete them as remains of another one. If a
/// process is just creating the database, its journal exists for moments only.
void copyRemains(std::string const& path, sqlite::Waiting const& waiting)
{
    constexpr std::chrono::milliseconds kTimeoutWithCreator(500);
    constexpr int kPauseMs = 5;
    std::string const file = folder::withoutLinks(path);
    auto const end = std::chrono::steady_clock::now() + std::min(kTimeoutWithCreator, waiting.limit);
    while (readOnlyOpening::holdsTransaction(file + kJournalSuffix) && std::chrono::steady_clock::now() < end)
    {
        if (waiting.isCancelled != nullptr && waiting.isCancelled())
        {
            throw Failure(HISTORY_CANCELLED, path + ": cancelled while a journal lies beside no database");
        }
        static_cast<void>(sqlite3_sleep(kPauseMs));
        if (checkPath(path) == Found::FILE_WITH_CONTENT)
        {
            return;
        }
    }
    copyAside(file + kJournalSuffix);
    copyAside(file + kLogSuffix);
}

/// How much of a fault database a file holds.
enum class Content
{
    NOTHING,    ///< a new file
    UNFINISHED, ///< some of the tables, without a row: its creation was interrupted
    WHOLE
};

bool hasRow(sqlite::Connection const& connection, std::string const& table)
{
    return connection.number("SELECT EXISTS(SELECT 1 FROM " + table + ")") != 0;
}

/// Whether the file has no tables other than the three of a fault database, each created by the library's statement.
bool holdsOurTablesOnly(sqlite::Connection const& connection, Tables const& tables)
{
    sqlite::Statement object =
        connection.prepare("SELECT name, sql FROM sqlite_master WHERE name NOT LIKE 'sqlite\\_%' ESCAPE '\\'");
    while (object.step())
    {
        bool isOurs = false;
        for (BoundTable const* const table : tables.all())
        {
            isOurs = isOurs || (object.text(0) == table->name() && object.text(1) == table->createText());
        }
        if (!isOurs)
        {
            return false;
        }
    }
    return true;
}

bool isTable(sqlite::Connection const& connection, std::string const& name)
{
    // The schema decides where the rows of a view or a virtual table come from.
    sqlite::Statement statement =
        connection.prepare("SELECT 1 FROM sqlite_master WHERE name = ?1 AND type = 'table' AND rootpage > 0");
    return statement.bind(1, name).step();
}

/// Whether the file has no other tables, and no row. Checks for rows last: a damaged row must not hide that
/// the tables or the version belong to another program.
bool isUnfinished(sqlite::Connection const& connection, Tables const& tables)
{
    if (!holdsOurTablesOnly(connection, tables))
    {
        return false;
    }
    for (BoundTable const* const table : {&tables.version.bound(), &tables.fault.bound(), &tables.statistic.bound()})
    {
        if (isTable(connection, table->name()) && hasRow(connection, table->name()))
        {
            return false;
        }
    }
    return true;
}

/// Rows are read and written by the position of their cells.
bool hasColumns(sqlite::Connection const& connection, BoundTable const& table)
{
    sqlite::Statement found = connection.prepare("SELECT name FROM pragma_table_xinfo(?1) ORDER BY cid");
    found.bind(1, table.name());
    for (std::size_t id = 0; id < table.columnCount(); ++id)
    {
        if (!found.step() || found.text(0) != table.column(id))
        {
            return false;
        }
    }
    return !found.step();
}

[[noreturn]] void refuseFile(std::string const& path, std::string const& reason)
{
    throw Failure(HISTORY_FOREIGN_FILE, path + ": no fault database: " + reason);
}

void requireTables(std::string const& path, sqlite::Connection const& connection, Tables const& tables)
{
    for (BoundTable const* const table : tables.all())
    {
        if (!isTable(connection, table->name()))
        {
            refuseFile(path, "it has no table " + table->name());
        }
        if (!hasColumns(connection, *table))
        {
            refuseFile(path, table->name() + " has not the columns of the file format, in their order; 'firaim check' "
                                             "tells more");
        }
    }
}

/// Texts are stored byte for byte in UTF-8 only.
void requireEncoding(std::string const& path, sqlite::Connection const& connection)
{
    sqlite::Statement encoding = connection.prepare("PRAGMA encoding");
    if (encoding.step() && encoding.text(0) != "UTF-8")
    {
        refuseFile(path, "its texts are in " + std::string(encoding.text(0)));
    }
}

bool holdsAnyOfOurTables(sqlite::Connection const& connection, Tables const& tables)
{
    auto const all = tables.all();
    return std::any_of(all.begin(), all.end(),
                       [&](BoundTable const* table) { return isTable(connection, table->name()); });
}

Content classifyContent(std::string const& path, sqlite::Connection const& connection, Tables const& tables)
{
    requireEncoding(path, connection);
    if (!holdsAnyOfOurTables(connection, tables) &&
        (connection.number("PRAGMA application_id") != 0 || connection.number("PRAGMA user_version") != 0))
    {
        refuseFile(path, "another program has begun it");
    }
    if (connection.number("SELECT count(*) FROM sqlite_master") == 0)
    {
        return Content::NOTHING;
    }
    if (isUnfinished(connection, tables))
    {
        return Content::UNFINISHED;
    }
    requireTables(path, connection, tables);
    return Content::WHOLE;
}

void requireVersion(std::string const& path, sqlite::Connection const& connection, VersionTable const& versions)
{
    BoundTable const& table = versions.bound();
    sqlite::Statement row = connection.prepare(join(
        {"SELECT ", table.column(FdbSqlVersionTbl::kVersionColumn), " FROM ", table.name(), " WHERE ",
         table.column(FdbSqlVersionTbl::kComponentColumn), " LIKE '", FdbSqlVersionTbl::kFormatVersionComponent, "'"}));
    std::string const found = row.step() ? std::string(row.text(0)) : "missing";
    bool const isOnlyOne = !row.step();
    if (!isOnlyOne || found != FdbSqlVersionTbl::kFormatVersion)
    {
        throw Failure(HISTORY_VERSION_MISMATCH,
                      join({path, ": format version ", isOnlyOne ? std::string_view(found) : "not the only one",
                            "; only files of version ", FdbSqlVersionTbl::kFormatVersion, " are written to"}));
    }
}

/// Reads the header of the file first, so that the wait for other connections is over when the settings read the file.
/// Returns false if the file is no database and holds no faults either.
bool readHeader(sqlite::Connection const& connection)
{
    try
    {
        static_cast<void>(connection.number("PRAGMA schema_version"));
        return true;
    }
    catch (sqlite::Error const& error)
    {
        if (error.code() == SQLITE_IOERR_DELETE)
        {
            return true; // The settings can roll back a journal that this process must not delete.
        }
        if (error.kind() != SQLITE_NOTADB || hasDatabaseHeader(PageFile(connection)) ||
            holdsFaults(PageFile(connection)))
        {
            throw;
        }
        return false;
    }
}

void checkHeader(std::string const& path, sqlite::Connection const& connection)
{
    bool isDatabase = readHeader(connection);
    // The pages were looked at without a lock. Another process may be setting a damaged file aside, and the second try
    // waits until it has replaced the content.
    isDatabase = isDatabase || readHeader(connection);
    if (!isDatabase)
    {
        throw Failure(HISTORY_FOREIGN_FILE, Failure(path, sqlite::Error(nullptr, SQLITE_NOTADB)).text());
    }
}

/// Makes sure that the file is a fault database; creates the content of a new one.
void prepareContent(std::string const& path, RecorderOptions::Journal journal, sqlite::Connection const& connection)
{
    Tables const tables;
    if (classifyContent(path, connection, tables) != Content::WHOLE)
    {
        if (journal == RecorderOptions::WRITE_AHEAD_LOG)
        {
            // Before the content: a file that has content keeps its journal, also if this process ends in between.
            require(connection, connectionSettings::useLog(connection.get()));
        }
        sqlite::Transaction transaction(connection, "BEGIN EXCLUSIVE");
        // Another process may have created it meanwhile.
        if (classifyContent(path, connection, tables) != Content::WHOLE)
        {
            createContent(connection);
            transaction.commit();
            // Fills the file itself, so that it is a fault database without its log too; if that fails, the log does.
            static_cast<void>(sqlite3_wal_checkpoint(connection.get(), nullptr));
            // SQLite has synchronised the folder for its journal, but does not promise it.
            static_cast<void>(folder::synchroniseFolderOf(path));
        }
    }
    requireVersion(path, connection, tables.version);
}

} // namespace

void createContent(sqlite::Connection const& connection)
{
    Tables tables;
    for (BoundTable const* const table : tables.all())
    {
        if (!isTable(connection, table->name()))
        {
            connection.run(table->createText());
        }
    }
    FdbVersion& version = tables.version.record();
    version.Component = FdbSqlVersionTbl::kFormatVersionComponent;
    version.Version = FdbSqlVersionTbl::kFormatVersion;
    sqlite::Statement insert = connection.prepare(tables.version.bound().insertText());
    tables.version.bound().bind(insert);
    insert.run();
}

sqlite::Connection openForRecording(std::string const& path, RecorderOptions::Journal journal,
                                    sqlite::Waiting const& waiting)
{
    if (checkPath(path) != Found::FILE_WITH_CONTENT)
    {
        copyRemains(path, waiting);
    }
    sqlite::Connection connection(path, sqlite::Connection::CREATE, waiting);
    checkHeader(path, connection);
    require(connection, connectionSettings::makeDurable(connection.get()));
    prepareContent(path, journal, connection);
    require(connection, connectionSettings::limitJournal(connection.get()));
    return connection;
}

void requireFaultDatabase(std::string const& path, sqlite::Connection const& connection)
{
    Tables const tables;
    requireEncoding(path, connection);
    requireTables(path, connection, tables);
    try
    {
        requireVersion(path, connection, tables.version);
    }
    catch (sqlite::Error const& error)
    {
        if (!isDamage(error))
        {
            throw;
        }
    }
}

bool isSound(sqlite::Connection const& connection)
{
    try
    {
        sqlite::Statement check = connection.prepare("PRAGMA quick_check(1)");
        return check.step() && check.text(0) == "ok";
    }
    catch (sqlite::Error const& error)
    {
        if (!isDamage(error))
        {
            throw;
        }
        return false;
    }
}

} // namespace firaim
