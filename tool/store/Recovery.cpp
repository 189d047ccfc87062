#include <tool/store/Recovery.h>

#include <tool/files/Failures.h>
#include <tool/files/Remains.h>
#include <tool/files/SnapshotCopy.h>
#include <tool/files/WorkingFolder.h>
#include <tool/process/Interrupt.h>
#include <tool/process/Problem.h>
#include <tool/store/FaultFile.h>

#include <db/internal/ReadOnlyOpening.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool
{

namespace
{

void requireReadableFile(std::string const& path)
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
}

/// Whether SQLite must roll the file back before it can be read: it decides that itself.
bool hasHotJournal(std::string const& path)
{
    // A working writer has such a journal for moments.
    constexpr std::chrono::milliseconds kPatience(100);
    try
    {
        static_cast<void>(readOnlyOpening::open(path, {kPatience, interrupt::isPending}));
    }
    catch (sqlite::Error const& error)
    {
        return error.code() == SQLITE_READONLY_ROLLBACK;
    }
    catch (readOnlyOpening::Failure const&)
    {
        return false; // Opening the file for writing reports it.
    }
    return false;
}

void requireFaultDatabase(std::string const& path)
{
    firaim::ReaderOptions options;
    options.isCancelled = interrupt::isPending;
    options.isAnyVersionRead = true;
    firaim::FaultReader reader;
    int const result = reader.open(path, options);
    if (result < 0)
    {
        throwFailure(result, reader.lastProblem());
    }
}

/// Checkpoints the log, so that the file can be read without it. Returns the number of pages.
std::int64_t emptyLog(sqlite::Connection const& connection)
{
    if (!readOnlyOpening::isInWalMode(connection))
    {
        return 0;
    }
    // A checkpoint that truncates the log reports that it has no pages.
    sqlite::Statement checkpoint = connection.prepare("PRAGMA wal_checkpoint(PASSIVE)");
    std::int64_t const pages = checkpoint.step() ? checkpoint.integer(2) : 0;
    checkpoint.reset();
    connection.run("PRAGMA wal_checkpoint(TRUNCATE)");
    return std::max<std::int64_t>(pages, 0);
}

void requireFreeName(std::string const& path, std::string const& target)
{
    struct stat status = {};
    if (lstat(target.c_str(), &status) == 0)
    {
        throw Problem(STATUS_BAD_FILE, target + ": exists already; choose another name for the copy");
    }
    requireNoJournalName(path, target);
    requireNoRemains(target, "choose another name for the copy");
}

} // namespace

Recovery recoverFile(std::string const& path)
{
    requireReadableFile(path);
    if (faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0)
    {
        throw Problem(STATUS_BAD_FILE, path + ": cannot be written: " + std::generic_category().message(errno) +
                                           "; 'firaim recover FILE --to COPY' recovers a copy");
    }
    return usingSqlite(path,
                       [&]
                       {
                           Recovery recovery;
                           recovery.isRolledBack = hasHotJournal(path);
                           sqlite::Connection const connection = openForRecovery(path);
                           requireFaultDatabase(path);
                           recovery.pagesOfLog = emptyLog(connection);
                           return recovery;
                       });
}

Recovery recoverCopy(std::string const& path, std::string const& target,
                     std::function<void(double share)> const& showShare)
{
    requireReadableFile(path);
    requireFreeName(path, target);
    constexpr char kName[] = "copy";
    WorkingFolder const folder(target);
    std::string const copy = folder.file(kName);
    static_cast<void>(copySnapshot(path, copy, UnreadablePolicy::REFUSE, showShare));
    Recovery recovery;
    try
    {
        recovery = recoverFile(copy);
    }
    catch (Problem const& problem)
    {
        std::string const text = problem.what();
        bool const isAboutCopy = text.compare(0, copy.size(), copy) == 0;
        throw isAboutCopy ? Problem(problem.status(), path + text.substr(copy.size())) : problem;
    }
    folder.moveToTarget(kName);
    return recovery;
}

} // namespace tool
