#include <tool/rescue/Opening.h>

#include <tool/process/Interrupt.h>
#include <tool/process/Problem.h>
#include <tool/schema/SchemaCheck.h>
#include <tool/schema/TableSchema.h>

#include <db/internal/ReadOnlyOpening.h>
#include <db/internal/Sqlite.h>

#include <filesystem>
#include <system_error>

namespace tool
{

namespace
{

constexpr char kKept[] = ".raw"; ///< suffix of the copy of the copy

void copyBytes(std::string const& from, std::string const& to)
{
    std::error_code error;
    std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing, error);
    if (error)
    {
        throw Problem(STATUS_BAD_FILE, to + ": " + error.message());
    }
}

/// How the tables differ from those that the library creates.
std::string findSchemaProblems(sqlite::Connection const& connection)
{
    std::string problems;
    SchemaCheck check(connection,
                      [&](std::string const& problem) { problems += (problems.empty() ? "" : "; ") + problem; });
    for (TableSchema const* const schema : {&faultSchema(), &statisticSchema(), &versionSchema()})
    {
        static_cast<void>(check.checkTable(*schema)); // Its rows are read without SQLite.
    }
    return problems;
}

/// Reading rolls back a hot journal; the checkpoint takes the log into the file. Returns the problems of the schema.
std::string finishTransactions(std::string const& path)
{
    sqlite::Connection const connection(path, sqlite::Connection::READ_WRITE,
                                        {lockWait::kBusyTimeout, interrupt::isPending});
    connection.number("SELECT count(*) FROM sqlite_master");
    if (readOnlyOpening::isInWalMode(connection))
    {
        connection.run("PRAGMA wal_checkpoint(TRUNCATE)");
    }
    return findSchemaProblems(connection);
}

bool isFilled(std::string const& path)
{
    std::error_code error;
    auto const size = std::filesystem::file_size(path, error);
    return !error && size > 0;
}

std::string successText(bool wasHot, SnapshotCopy const& snapshot)
{
    if (snapshot.hasLog)
    {
        return "SQLite opens the copy and has taken its write-ahead log into it";
    }
    return wasHot ? "SQLite opens the copy and has rolled back its journal" : "SQLite opens the copy";
}

} // namespace

Opening openCopy(std::string const& path, SnapshotCopy const& snapshot)
{
    if (!isFilled(path))
    {
        // SQLite would remove the log of an empty file.
        return {"the file is empty", snapshot.hasLog, ""};
    }
    bool const wasHot = snapshot.hasJournal && readOnlyOpening::holdsTransaction(path + "-journal");
    bool const mayChange = wasHot || snapshot.hasLog;
    for (char const* const suffix : {"", "-wal"})
    {
        if (mayChange && (*suffix == '\0' || snapshot.hasLog))
        {
            copyBytes(path + suffix, path + kKept + suffix);
        }
    }
    try
    {
        std::string const schemaProblems = finishTransactions(path);
        // A log that the header of the file does not ask for stays as it is, although SQLite reads it.
        return {successText(wasHot, snapshot), snapshot.hasLog && isFilled(path + "-wal"), schemaProblems};
    }
    catch (sqlite::Error const& error)
    {
        interrupt::throwIfPending();
        Opening opening = {std::string("SQLite cannot open the copy (") + error.what() + ")", snapshot.hasLog, ""};
        bool const isRolledBack = wasHot && !readOnlyOpening::holdsTransaction(path + "-journal");
        if (isRolledBack)
        {
            opening.report += "; it has rolled back the journal before";
        }
        else if (mayChange)
        {
            copyBytes(path + kKept, path);
            opening.report += "; its bytes are read as they are";
        }
        if (snapshot.hasLog)
        {
            copyBytes(path + kKept + std::string("-wal"), path + "-wal");
            opening.report += ", under the committed frames of its log";
        }
        return opening;
    }
}

} // namespace tool
