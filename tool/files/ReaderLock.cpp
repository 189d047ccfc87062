#include <tool/files/ReaderLock.h>

#include <tool/process/Interrupt.h>
#include <tool/process/Problem.h>

#include <db/internal/LockWait.h>

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>

namespace tool
{

namespace
{

/// A range of bytes that processes lock.
struct Range
{
    off_t first;
    off_t count;
};

// The ranges of SQLite's file format, in the database:
constexpr Range kPending = {0x40000000, 1};
constexpr Range kReserved = {kPending.first + 1, 1};
constexpr Range kShared = {kPending.first + 2, 510};
// And in the shared memory of a log: one byte for writing to the log, one for checkpoints.
constexpr Range kLogWriters = {120, 2};

struct flock lockOf(short type, Range range)
{
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = range.first;
    lock.l_len = range.count;
    return lock;
}

/// Takes a shared lock, or waits for it. Ignores that a file system has no locks.
void lockShared(Descriptor const& file, std::string const& path, Range range)
{
    lockWait::LockWait wait;
    for (int tries = 0;; ++tries)
    {
        struct flock lock = lockOf(F_RDLCK, range);
        if (fcntl(file.get(), F_SETLK, &lock) == 0 || (errno != EACCES && errno != EAGAIN && errno != EINTR))
        {
            return;
        }
        interrupt::throwIfPending();
        if (!wait.pause(tries, lockWait::kBusyTimeout))
        {
            throw Problem(STATUS_BAD_FILE, path + ": another process keeps it locked, try again");
        }
    }
}

Descriptor openDatabase(std::string const& path)
{
    Descriptor file = openIfThere(path);
    if (!file)
    {
        throw Problem(STATUS_BAD_FILE, path + ": " + std::generic_category().message(ENOENT));
    }
    // A writer that waits for the last readers has locked the pending byte, so that no new ones come.
    lockShared(file, path, kPending);
    lockShared(file, path, kShared);
    struct flock pending = lockOf(F_UNLCK, kPending);
    static_cast<void>(fcntl(file.get(), F_SETLK, &pending)); // Cannot fail if there are locks at all.
    return file;
}

Descriptor openSharedMemory(std::string const& path)
{
    Descriptor memory = openIfThere(path);
    if (memory)
    {
        lockShared(memory, path, kLogWriters);
    }
    return memory;
}

} // namespace

ReaderLock::ReaderLock(std::string const& path)
    : m_file(openDatabase(path)), m_sharedMemory(openSharedMemory(path + "-shm"))
{
}

bool ReaderLock::isBeingWritten() const
{
    struct flock lock = lockOf(F_WRLCK, kReserved);
    return fcntl(m_file.get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

Descriptor openIfThere(std::string const& path)
{
    Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    struct stat status = {};
    if ((!file && errno != ENOENT) || (file && fstat(file.get(), &status) != 0))
    {
        throw Problem(STATUS_BAD_FILE, path + ": cannot be read: " + std::generic_category().message(errno));
    }
    if (file && !S_ISREG(status.st_mode))
    {
        throw Problem(STATUS_BAD_FILE, path + (S_ISDIR(status.st_mode) ? ": is a folder" : ": is no regular file"));
    }
    return file;
}

} // namespace tool
