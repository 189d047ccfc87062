#include <tool/rescue/RawCopy.h>

#include <tool/pages/FileBytes.h>
#include <tool/process/Interrupt.h>
#include <tool/process/Problem.h>

#include <db/internal/LockWait.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool
{

namespace
{

/// So often the files are copied while somebody writes to them.
constexpr int kMostCopies = 3;
constexpr std::size_t kChunk = 256 * 1024;
/// The parts of a chunk that are tried one by one when it cannot be read.
constexpr std::size_t kSector = 512;

/// The bytes that SQLite locks.
constexpr off_t kPendingByte = 0x40000000;
constexpr off_t kSharedFirst = kPendingByte + 2;
constexpr off_t kSharedSize = 510;

[[noreturn]] void throwProblem(std::string const& path, int error, std::string const& advice = "")
{
    throw Problem(STATUS_BAD_FILE, path + ": " + std::generic_category().message(error) + advice);
}

/// A file that is only written from its start to its end.
class NewFile
{
public:
    explicit NewFile(std::string const& path)
        : m_path(path), m_descriptor(open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, S_IRUSR | S_IWUSR))
    {
        if (m_descriptor < 0)
        {
            throwProblem(path, errno);
        }
    }
    ~NewFile() { static_cast<void>(close(m_descriptor)); } // The copy is read again: a lost byte would be seen.
    NewFile(NewFile const&) = delete;
    NewFile& operator=(NewFile const&) = delete;

    void write(char const* bytes, std::size_t count) const
    {
        while (count > 0)
        {
            ssize_t const written = ::write(m_descriptor, bytes, count);
            if (written < 0 && errno != EINTR)
            {
                throwProblem(m_path, errno, "; the new file needs a place with room for a copy of the damaged one");
            }
            std::size_t const done = written < 0 ? 0 : static_cast<std::size_t>(written);
            bytes += done;
            count -= done;
        }
    }

private:
    std::string const m_path;
    int m_descriptor;
};

int setLock(int descriptor, short type, off_t start, off_t size)
{
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = start;
    lock.l_len = size;
    return fcntl(descriptor, F_SETLK, &lock);
}

/// Tries to lock the file as a reader of SQLite does, which keeps writers from the last steps of a commit.
int tryLock(int descriptor)
{
    if (setLock(descriptor, F_RDLCK, kPendingByte, 1) != 0)
    {
        return errno;
    }
    int const error = setLock(descriptor, F_RDLCK, kSharedFirst, kSharedSize) == 0 ? 0 : errno;
    static_cast<void>(setLock(descriptor, F_UNLCK, kPendingByte, 1)); // Closing the file releases it in any case.
    return error;
}

/// The lock is released when the descriptor is closed.
void lockForReading(std::string const& path, int descriptor)
{
    lockWait::LockWait wait;
    for (int tries = 0;; ++tries)
    {
        int const error = tryLock(descriptor);
        if (error != EACCES && error != EAGAIN)
        {
            return; // Where the file system has no locks, SQLite could not have written either.
        }
        interrupt::throwIfPending();
        if (!wait.pause(tries, lockWait::kBusyTimeout))
        {
            throw Problem(STATUS_BAD_FILE, path + ": another process keeps it locked; try again when it has ended");
        }
    }
}

struct Stamp
{
    off_t size;
    timespec time;

    bool operator==(Stamp const& other) const
    {
        return size == other.size && time.tv_sec == other.time.tv_sec && time.tv_nsec == other.time.tv_nsec;
    }
};

Stamp stampOf(std::string const& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? Stamp{status.st_size, status.st_mtim} : Stamp{-1, {}};
}

std::unique_ptr<FileBytes> openBytes(std::string const& path)
{
    try
    {
        return std::make_unique<FileBytes>(path);
    }
    catch (std::system_error const& error)
    {
        throwProblem(path, error.code().value());
    }
}

/// The journal or the log; none if it is missing or empty.
std::unique_ptr<FileBytes> openIfFilled(std::string const& path)
{
    Stamp const stamp = stampOf(path);
    return stamp.size > 0 ? openBytes(path) : nullptr;
}

} // namespace

/// One of the three files, and how it looked when the copy began.
struct RawCopy::Source
{
    std::string path;
    std::string suffix;
    std::unique_ptr<FileBytes> bytes; ///< null: there is none
    Stamp stamp;
};

RawCopy::RawCopy(std::string const& path, std::string const& target, std::function<void(double share)> const& showShare)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
    {
        throwProblem(path, errno);
    }
    if (S_ISDIR(status.st_mode))
    {
        throw Problem(STATUS_BAD_FILE, path + ": is a folder");
    }
    if (!S_ISREG(status.st_mode))
    {
        throw Problem(STATUS_BAD_FILE, path + ": is no regular file; copy the medium into a file first");
    }
    m_mode = status.st_mode;
    for (int copies = 0; copies < kMostCopies && !m_isConsistent; ++copies)
    {
        std::vector<Source> sources;
        sources.push_back({path, "", openBytes(path), stampOf(path)});
        lockForReading(path, sources.front().bytes->descriptor());
        for (char const* const suffix : {"-journal", "-wal"})
        {
            sources.push_back({path + suffix, suffix, openIfFilled(path + suffix), stampOf(path + suffix)});
        }
        copyAll(sources, target, showShare);
        m_hasJournal = sources[1].bytes != nullptr;
        m_hasLog = sources[2].bytes != nullptr;
        m_isConsistent = std::all_of(sources.begin(), sources.end(),
                                     [](Source const& source) { return stampOf(source.path) == source.stamp; });
    }
}

void RawCopy::copyAll(std::vector<Source> const& sources, std::string const& target,
                      std::function<void(double share)> const& showShare)
{
    m_gaps.clear();
    std::string chunk;
    for (Source const& source : sources)
    {
        static_cast<void>(std::remove((target + source.suffix).c_str())); // Of a copy before.
        if (source.bytes == nullptr)
        {
            continue;
        }
        NewFile const copy(target + source.suffix);
        std::uint64_t const size = source.bytes->size();
        for (std::uint64_t offset = 0; offset < size; offset += chunk.size())
        {
            interrupt::throwIfPending();
            chunk.resize(static_cast<std::size_t>(std::min<std::uint64_t>(kChunk, size - offset)));
            if (!source.bytes->read(offset, chunk.data(), chunk.size()))
            {
                readSectors(source, offset, chunk);
            }
            copy.write(chunk.data(), chunk.size());
            showShare(static_cast<double>(offset) / static_cast<double>(size));
        }
    }
}

/// Reads the sectors of a chunk one by one; those that cannot be read become zeros.
void RawCopy::readSectors(Source const& source, std::uint64_t offset, std::string& chunk)
{
    for (std::size_t start = 0; start < chunk.size(); start += kSector)
    {
        std::size_t const count = std::min(kSector, chunk.size() - start);
        if (!source.bytes->read(offset + start, chunk.data() + start, count))
        {
            std::fill_n(chunk.begin() + static_cast<std::ptrdiff_t>(start), count, '\0');
            addGap(source.path, offset + start, count);
        }
    }
}

void RawCopy::addGap(std::string const& path, std::uint64_t offset, std::uint64_t count)
{
    bool const goesOn = !m_gaps.empty() && m_gaps.back().path == path && m_gaps.back().last + 1 == offset;
    if (goesOn)
    {
        m_gaps.back().last += count;
    }
    else
    {
        m_gaps.push_back({path, offset, offset + count - 1});
    }
}

} // namespace tool
