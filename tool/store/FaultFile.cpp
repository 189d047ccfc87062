#include <tool/store/FaultFile.h>

#include <tool/files/Failures.h>
#include <tool/process/Interrupt.h>

#include <db/internal/ConnectionSettings.h>
#include <db/internal/Folder.h>
#include <db/internal/ReadOnlyOpening.h>
#include <db/internal/SyncAgain.h>
#include <db/internal/TimeLimits.h>

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
    return {lockWait::kBusyTimeout, interrupt::isPending};
}

/// SQLite says only that it cannot open the file.
void requireWritableJournal(std::string const& path)
{
    std::string const journal = folder::withoutLinks(path) + "-journal";
    if (readOnlyOpening::holdsTransaction(journal) && faccessat(AT_FDCWD, journal.c_str(), W_OK, AT_EACCESS) != 0)
    {
        throw Problem(STATUS_BAD_FILE, journal + ": cannot be written: " + std::generic_category().message(errno) +
                                           "; it holds a transaction that must be rolled back before the file can be "
                                           "used. Let the owner of the journal run 'firaim recover'");
    }
}

/// Throws a Problem unless `path` is a regular file that can be written to, and can be opened without losing a journal
/// or log beside it.
void requireWritableFile(std::string const& path)
{
    try
    {
        readOnlyOpening::requireFile(path);
        readOnlyOpening::requireNothingBesideEmptyFile(path);
    }
    catch (readOnlyOpening::Failure const& failure)
    {
        throw Problem(STATUS_BAD_FILE, failure.what());
    }
    if (faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0)
    {
        throw Problem(STATUS_BAD_FILE, path + ": cannot be written: " + std::generic_category().message(errno));
    }
    requireWritableJournal(path);
}

/// Refuses an empty file: the recorder would create the tables in it, which only 'create' may do.
void requireContent(std::string const& path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0 && status.st_size == 0)
    {
        throw Problem(STATUS_BAD_FILE, path + ": no fault database: it has no table " + faultSchema().name);
    }
}

void require(sqlite::Connection const& connection, int code)
{
    if (code != SQLITE_OK)
    {
        throw sqlite::Error(connection.get(), code);
    }
}

/// Opens the file for writing, which rolls back a hot journal.
sqlite::Connection openDurably(std::string const& path)
{
    sqlite::Connection connection(path, sqlite::Connection::READ_WRITE, waiting());
    require(connection, connectionSettings::makeDurable(connection.get()));
    require(connection, connectionSettings::limitJournal(connection.get()));
    return connection;
}

constexpr char kNothingStored[] = "; nothing of it was stored";

struct Commit
{
    bool isVerifiable = false; ///< the change can be looked for
    bool hasFailed = false;    ///< in its last steps, which may have stored the change
};

/// Whether `isStored` can find the change: a trigger in the file may have undone just the part that it looks for.
bool isVerifiable(sqlite::Connection const& connection, FileAction const& isStored)
{
    try
    {
        return isStored(connection);
    }
    catch (Problem const&)
    {
        return false;
    }
}

void changeInTransaction(sqlite::Connection const& connection, FileAction const& change, FileAction const& isStored,
                         Commit& commit)
{
    sqlite::Transaction transaction(connection, "BEGIN IMMEDIATE");
    if (!change(connection))
    {
        return;
    }
    commit.isVerifiable = isVerifiable(connection, isStored);
    try
    {
        transaction.commit();
    }
    catch (sqlite::Error const&)
    {
        commit.hasFailed = !connection.isInTransaction(); // Still in the transaction: the commit waited for a reader.
        throw;
    }
}

[[noreturn]] bool throwHidden(sqlite::Connection const&)
{
    throw Problem(STATUS_BAD_FILE, "a trigger in the file hides the change");
}

[[noreturn]] void throwUnknown(Problem const& problem, std::string const& reason)
{
    throw Problem(problem.status(), std::string(problem.what()) + "; it is not known whether the change is stored (" +
                                        reason + "): look at the file before trying again");
}

/// After a commit that failed with `problem`: looks for the change in the file and makes the outcome durable. Returns
/// if the change is stored; otherwise throws a Problem.
void requireStored(std::string const& path, Problem const& problem, FileAction const& isStored)
{
    bool isFound = false;
    try
    {
        sqlite::Connection const connection = openForChanging(path);
        isFound = isStored(connection);
        isFound ? syncAgain::keepFound(connection) : syncAgain::dropLost(connection);
    }
    catch (interrupt::Interrupted const&)
    {
        throwUnknown(problem, "interrupted");
    }
    catch (sqlite::Error const& error)
    {
        throwUnknown(problem, readOnlyOpening::problemText(path, error));
    }
    catch (std::exception const& failure)
    {
        throwUnknown(problem, failure.what());
    }
    if (!isFound)
    {
        throw Problem(problem.status(), problem.what() + std::string(kNothingStored));
    }
}

} // namespace

int openReader(firaim::FaultReader& reader, std::string const& path, std::chrono::milliseconds busyTimeout)
{
    firaim::ReaderOptions options;
    options.busyTimeout = busyTimeout;
    options.isCancelled = interrupt::isPending;
    options.isAnyVersionRead = true;
    return reader.open(path, options);
}

sqlite::Connection openForReading(std::string const& path)
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
                  std::chrono::milliseconds busyTimeout)
{
    requireWritableFile(path);
    requireContent(path);
    options.isCancelled = interrupt::isPending;
    int const result = recorder.open(path, options, busyTimeout);
    if (result < 0)
    {
        throwFailure(result, recorder.lastProblem());
    }
}

sqlite::Connection openForRecovery(std::string const& path)
{
    requireWritableFile(path);
    return openDurably(path);
}

sqlite::Connection openForChanging(std::string const& path)
{
    {
        // The recorder checks whether the file may be written to.
        firaim::FaultRecorder recorder;
        firaim::RecorderOptions options;
        options.startup = firaim::RecorderOptions::SAME_STARTUP;
        openRecorder(recorder, path, options);
    }
    return usingSqlite(path, [&] { return openDurably(path); });
}

void changeFile(std::string const& path, FileAction const& change, FileAction const& isStored)
{
    std::optional<sqlite::Connection> connection = openForChanging(path);
    Commit commit;
    try
    {
        usingSqlite(path, [&] { changeInTransaction(*connection, change, isStored, commit); });
    }
    catch (Problem const& problem)
    {
        connection.reset(); // Close it first: only then does a new connection see what the log really holds.
        if (!commit.hasFailed)
        {
            throw Problem(problem.status(), problem.what() + std::string(kNothingStored));
        }
        requireStored(path, problem, commit.isVerifiable ? isStored : throwHidden);
    }
}

std::uint64_t runWithTriggers(std::string const& path, sqlite::Connection const& connection, std::string const& sql,
                              std::initializer_list<std::int64_t> parameters)
{
    // Without triggers, the time depends on the size of the file alone, and only a signal ends the statement.
    std::optional<timeLimits::StatementWatch> watch;
    if (connection.number("SELECT EXISTS(SELECT 1 FROM sqlite_master WHERE type = 'trigger')") != 0)
    {
        watch.emplace(connection.get());
    }
    try
    {
        sqlite::Statement statement = connection.prepare(sql);
        int parameter = 0;
        for (std::int64_t const value : parameters)
        {
            statement.bind(++parameter, value);
        }
        statement.run();
    }
    catch (sqlite::Error const& error)
    {
        // SQLITE_AUTH: a statement was compiled after the time limit.
        if (watch && (error.kind() == SQLITE_INTERRUPT || error.kind() == SQLITE_AUTH))
        {
            interrupt::throwIfPending();
            throw Problem(STATUS_BAD_FILE, path + ": a statement that runs triggers of the file takes longer than 5 s; "
                                                  "'firaim check' lists the triggers");
        }
        throw;
    }
    interrupt::throwIfPending(); // The watch has replaced the progress handler that looks for signals.
    return static_cast<std::uint64_t>(sqlite3_changes(connection.get()));
}

} // namespace tool
