#include <tool/store/FaultFile.h>

#include <tool/process/Interrupt.h>
#include <tool/process/Problem.h>
#include <tool/store/Format.h>
#include <tool/terminal/Output.h>

#include <db/internal/ConnectionSettings.h>
#include <db/internal/ReadOnlyOpening.h>
#include <fdb/tables/FdbSqlVersionTbl.h>

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool
{

namespace
{

sqlite::Waiting waiting()
{
    return {lockWait::kPatience, interrupt::isPending};
}

void openReader(firaim::FaultReader& reader, std::string const& path, std::chrono::milliseconds patience)
{
    firaim::ReaderOptions options;
    options.patience = patience;
    options.isCancelled = interrupt::isPending;
    options.isAnyVersionRead = true;
    int const result = reader.open(path, options);
    if (result < 0)
    {
        throwFailure(result, reader.lastProblem());
    }
}

/// Makes sure that there is a regular file at `path` that can be written to.
void requireWritableFile(std::string const& path)
{
    try
    {
        readOnlyOpening::requireFile(path);
    }
    catch (readOnlyOpening::Failure const& failure)
    {
        throw Problem(STATUS_BAD_FILE, failure.what());
    }
    if (faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0)
    {
        throw Problem(STATUS_BAD_FILE, path + ": cannot be written: " + std::generic_category().message(errno));
    }
}

/// The recorder would make an empty file a fault database, which is what 'create' is for.
void requireContent(std::string const& path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0 && status.st_size == 0)
    {
        throw Problem(STATUS_BAD_FILE, path + ": no fault database: it has no table " + faultFormat().name);
    }
}

void require(sqlite::Connection const& connection, int code)
{
    if (code != SQLITE_OK)
    {
        throw sqlite::Error(connection.get(), code);
    }
}

/// Opens the file for writing, which rolls back what was left half done.
sqlite::Connection openDurably(std::string const& path)
{
    sqlite::Connection connection(path, sqlite::Connection::READ_WRITE, waiting());
    static_cast<void>(connection.number("PRAGMA schema_version"));
    require(connection, connectionSettings::makeDurable(connection.get()));
    require(connection, connectionSettings::limitJournal(connection.get()));
    return connection;
}

} // namespace

void throwFailure(int result, std::string const& problem)
{
    if (result == firaim::HISTORY_CANCELLED)
    {
        interrupt::check();
    }
    throw Problem(STATUS_BAD_FILE, problem);
}

void throwFailure(std::string const& path, sqlite::Error const& error)
{
    if (error.kind() == SQLITE_INTERRUPT || error.kind() == SQLITE_BUSY)
    {
        interrupt::check();
    }
    throw Problem(STATUS_BAD_FILE, readOnlyOpening::problemText(path, error));
}

FaultFile::FaultFile(std::string const& path, std::chrono::milliseconds patience) : m_path(path)
{
    openReader(m_reader, path, patience);
    std::string version;
    if (!isFound(m_reader.formatVersion(version)))
    {
        complain(path + ": the format version is missing or not the only one; 'firaim check' tells more");
        return;
    }
    m_formatVersion = version;
    if (version != FdbSqlVersionTbl::kFormatVersion)
    {
        complain(path + ": format version " + version + " is not " + FdbSqlVersionTbl::kFormatVersion +
                 ", read as far as the two are alike");
    }
}

bool FaultFile::isFound(int result) const
{
    if (result < 0)
    {
        throwFailure(result, m_reader.lastProblem());
    }
    return result == firaim::HISTORY_OK;
}

sqlite::Connection openForLooking(std::string const& path)
{
    try
    {
        return usingSqlite(path, [&] { return readOnlyOpening::open(path, waiting()); });
    }
    catch (readOnlyOpening::Failure const& failure)
    {
        throw Problem(STATUS_BAD_FILE, failure.what());
    }
}

void openRecorder(firaim::FaultRecorder& recorder, std::string const& path, firaim::RecorderOptions options,
                  std::chrono::milliseconds patience)
{
    requireWritableFile(path);
    requireContent(path);
    options.isCancelled = interrupt::isPending;
    int const result = recorder.open(path, options, patience);
    if (result < 0)
    {
        throwFailure(result, recorder.lastProblem());
    }
}

sqlite::Connection openForChanging(std::string const& path)
{
    {
        // It knows best what a file must be like to be written to.
        firaim::FaultRecorder recorder;
        firaim::RecorderOptions options;
        options.startup = firaim::RecorderOptions::SAME_STARTUP;
        openRecorder(recorder, path, options);
    }
    return usingSqlite(path, [&] { return openDurably(path); });
}

void changeFile(std::string const& path, std::function<bool(sqlite::Connection const&)> const& change,
                std::function<bool(sqlite::Connection const&)> const& isDone)
{
    sqlite::Connection const connection = openForChanging(path);
    bool isCommitting = false;
    try
    {
        usingSqlite(path,
                    [&]
                    {
                        sqlite::Transaction transaction(connection, "BEGIN IMMEDIATE");
                        if (change(connection))
                        {
                            isCommitting = true;
                            transaction.commit();
                        }
                    });
    }
    catch (Problem const& problem)
    {
        if (!isCommitting || !usingSqlite(path, [&] { return isDone(openForChanging(path)); }))
        {
            throw Problem(problem.status(), std::string(problem.what()) + "; nothing of it was stored");
        }
    }
}

void recoverFile(std::string const& path)
{
    requireWritableFile(path);
    usingSqlite(path,
                [&]
                {
                    sqlite::Connection const connection = openDurably(path);
                    firaim::FaultReader reader;
                    openReader(reader, path, lockWait::kPatience);
                    if (readOnlyOpening::isInWalMode(connection))
                    {
                        // Into the file with what is in its log: it can then be read alone.
                        connection.run("PRAGMA wal_checkpoint(TRUNCATE)");
                    }
                });
}

} // namespace tool
