#include <tool/store/Journal.h>

#include <tool/files/Failures.h>
#include <tool/process/Interrupt.h>
#include <tool/process/Problem.h>
#include <tool/store/FaultFile.h>

#include <db/internal/ConnectionSettings.h>
#include <db/internal/Folder.h>
#include <db/internal/ReadOnlyOpening.h>

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace tool
{

namespace
{

void require(int code)
{
    if (code != SQLITE_OK)
    {
        throw sqlite::Error(nullptr, code);
    }
}

[[noreturn]] void throwErrno(std::string const& path, std::string const& problem)
{
    std::string const reason = std::generic_category().message(errno);
    throw Problem(STATUS_BAD_FILE, path + ": " + problem + ": " + reason);
}

/// Copies the log into the file and truncates it. No other connection may use the file.
void emptyLog(sqlite::Connection const& connection)
{
    sqlite::Statement checkpoint = connection.prepare("PRAGMA wal_checkpoint(TRUNCATE)");
    if (checkpoint.step() && checkpoint.integer(0) != 0)
    {
        throw sqlite::Error(nullptr, SQLITE_BUSY);
    }
}

/// Makes durable that the log is empty. SQLite deletes it without synchronising the folder, so it may be back after a
/// power cut; SQLite would then apply its content to the file, over all faults that were recorded since.
void synchroniseLog(std::string const& path)
{
    std::string const log = folder::withoutLinks(path) + "-wal";
    int const descriptor = open(log.c_str(), O_RDONLY | O_CLOEXEC);
    bool const isDone = descriptor >= 0 && fsync(descriptor) == 0;
    if (descriptor >= 0)
    {
        static_cast<void>(close(descriptor)); // Nothing was written through it, and a log is never locked.
    }
    if (!isDone)
    {
        throwErrno(path, "its journal was not changed, as its write-ahead log cannot be synchronised");
    }
}

void synchroniseFolder(std::string const& path)
{
    if (!folder::synchroniseFolderOf(folder::withoutLinks(path)))
    {
        throwErrno(path,
                   "its journal was changed, but a power cut may undo that, as its folder cannot be synchronised");
    }
}

void useLog(std::string const& path, sqlite::Waiting const& waiting)
{
    sqlite::Connection const connection = openForChanging(path);
    connection.waitFor(waiting);
    require(connectionSettings::useLog(connection.get()));
}

void useRollbackJournal(std::string const& path, sqlite::Waiting const& waiting)
{
    static_cast<void>(openForChanging(path)); // Refuses a file that must not be written to.
    sqlite::Connection const connection(path, sqlite::Connection::READ_WRITE, waiting);
    // Before the file is read: the first access then locks it until the connection is closed, and no other connection
    // can write to the log between the steps.
    connection.run("PRAGMA locking_mode=EXCLUSIVE");
    require(connectionSettings::makeDurable(connection.get()));
    emptyLog(connection);
    synchroniseLog(path);
    connection.run("PRAGMA journal_mode=PERSIST");
    // The index of the log. SQLite has deleted the log, but not this; as the file is locked, nobody has it open.
    static_cast<void>(unlink((folder::withoutLinks(path) + "-shm").c_str()));
}

void change(std::string const& path, Journal journal, sqlite::Waiting const& waiting)
{
    try
    {
        journal == firaim::RecorderOptions::WRITE_AHEAD_LOG ? useLog(path, waiting) : useRollbackJournal(path, waiting);
    }
    catch (sqlite::Error const& error)
    {
        if (error.kind() == SQLITE_BUSY)
        {
            interrupt::throwIfPending();
            throw Problem(STATUS_BAD_FILE, path + ": its journal was not changed, as another program has the file "
                                                  "open. Close that program, then try again");
        }
        throwFailure(path, error);
    }
}

} // namespace

std::vector<std::string> const& journalNames()
{
    static std::vector<std::string> const names = {"rollback", "wal"}; // In the order of the enumeration.
    return names;
}

std::string const& nameOf(Journal journal)
{
    return journalNames()[journal];
}

Journal journalNamed(std::string const& name)
{
    return name == journalNames().front() ? firaim::RecorderOptions::ROLLBACK_JOURNAL
                                          : firaim::RecorderOptions::WRITE_AHEAD_LOG;
}

Journal journalOf(std::string const& path)
{
    static_cast<void>(FaultFile(path)); // Makes sure that it is a fault database.
    return readOnlyOpening::isInWalMode(openForReading(path)) ? firaim::RecorderOptions::WRITE_AHEAD_LOG
                                                              : firaim::RecorderOptions::ROLLBACK_JOURNAL;
}

void changeJournal(std::string const& path, Journal journal, std::chrono::milliseconds busyTimeout)
{
    if (journalOf(path) == journal)
    {
        return;
    }
    change(path, journal, {busyTimeout, interrupt::isPending});
    synchroniseFolder(path);
    if (journalOf(path) != journal)
    {
        throw Problem(STATUS_BAD_FILE, path + ": its journal was not changed");
    }
}

} // namespace tool
