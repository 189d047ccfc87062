#include <tool/store/FileCopy.h>

#include <tool/files/Failures.h>
#include <tool/files/FileName.h>
#include <tool/files/Remains.h>
#include <tool/process/Interrupt.h>
#include <tool/process/Problem.h>
#include <tool/store/FaultFile.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <memory>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool
{

namespace
{

/// Pages copied between two pauses for writers: a few milliseconds of work.
constexpr int kPagesAtOnce = 256;
/// Each time a writer makes the copy start again, copy more pages at once, in the end all.
constexpr int kGrowth = 8;
constexpr int kMostPagesAtOnce = INT_MAX / kGrowth;
constexpr int kPauseMs = 5;
/// Busy timeouts until the backup fails: a minute in all.
constexpr int kMostTimeouts = 12;

/// A temporary file, removed again unless it is kept.
class PartialFile
{
public:
    /// Creates it, empty, beside `target`, with the permissions of `mode`; its owner may always read and write.
    PartialFile(std::string const& target, mode_t mode) : m_path(target + ".partial-" + std::to_string(getpid()))
    {
        int const descriptor =
            open(m_path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, (mode & 0777) | S_IRUSR | S_IWUSR);
        if (descriptor < 0)
        {
            throw Problem(STATUS_BAD_FILE, target + ": cannot be created: " + std::generic_category().message(errno));
        }
        static_cast<void>(close(descriptor));
    }
    ~PartialFile()
    {
        if (!m_isKept)
        {
            static_cast<void>(std::remove(m_path.c_str()));
            static_cast<void>(std::remove((m_path + "-journal").c_str()));
        }
    }
    PartialFile(PartialFile const&) = delete;
    PartialFile& operator=(PartialFile const&) = delete;

    std::string const& path() const { return m_path; }

    void keepAs(std::string const& target, bool isReplacing)
    {
        giveName(m_path, target, isReplacing);
        m_isKept = true;
    }

private:
    std::string const m_path;
    bool m_isKept = false;
};

struct FinishBackup
{
    // It returns the error of the last step once more.
    void operator()(sqlite3_backup* backup) const { static_cast<void>(sqlite3_backup_finish(backup)); }
};

/// Whether a backup step with the error `code` has failed at the copy: these are errors of writing, and the file itself
/// is only read.
bool isFailureOfCopy(int code)
{
    switch (code)
    {
    case SQLITE_FULL:
    case SQLITE_READONLY:
    case SQLITE_READONLY_DBMOVED:
    case SQLITE_IOERR_WRITE:
    case SQLITE_IOERR_FSYNC:
    case SQLITE_IOERR_DIR_FSYNC:
    case SQLITE_IOERR_TRUNCATE:
    case SQLITE_IOERR_DELETE:
        return true;
    default:
        return false;
    }
}

} // namespace

void copyPages(sqlite::Connection const& from, std::string const& path, sqlite::Connection const& to,
               std::string const& target, std::function<void(double share)> const& showShare)
{
    std::unique_ptr<sqlite3_backup, FinishBackup> const backup(
        sqlite3_backup_init(to.get(), "main", from.get(), "main"));
    if (!backup)
    {
        throwFailure(target, sqlite::Error(to.get(), sqlite3_extended_errcode(to.get())));
    }
    int pagesAtOnce = kPagesAtOnce;
    int left = INT_MAX;
    int timeouts = 0;
    while (true)
    {
        interrupt::throwIfPending();
        int const code = sqlite3_backup_step(backup.get(), pagesAtOnce);
        if (code == SQLITE_BUSY && ++timeouts < kMostTimeouts)
        {
            continue; // The step has waited for its busy timeout.
        }
        if (code == SQLITE_DONE)
        {
            return;
        }
        if (code != SQLITE_OK)
        {
            throwFailure(isFailureOfCopy(code) ? target : path, sqlite::Error(nullptr, code));
        }
        int const leftNow = sqlite3_backup_remaining(backup.get());
        int const total = sqlite3_backup_pagecount(backup.get());
        if (leftNow > left)
        {
            pagesAtOnce = std::min(pagesAtOnce * kGrowth, kMostPagesAtOnce);
        }
        left = leftNow;
        showShare(total == 0 ? 0.0 : 1.0 - static_cast<double>(left) / total);
        // Leaves the file unlocked for a moment, so that writers get it.
        interrupt::pause(kPauseMs);
    }
}

void copyFile(std::string const& path, std::string const& target, bool isReplacing,
              std::function<void(double share)> const& showShare)
{
    sqlite::Connection const file = openForReading(path);
    struct stat status = {};
    static_cast<void>(stat(path.c_str(), &status)); // It was opened a moment ago.
    PartialFile partial(target, status.st_mode);
    {
        sqlite::Connection const copy =
            usingSqlite(target,
                        [&]
                        {
                            return sqlite::Connection(partial.path(), sqlite::Connection::READ_WRITE,
                                                      {lockWait::kBusyTimeout, interrupt::isPending});
                        });
        copyPages(file, path, copy, target, showShare);
    }
    if (isReplacing)
    {
        removeRemains(target);
    }
    partial.keepAs(target, isReplacing);
}

} // namespace tool
