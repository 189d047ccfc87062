#include <tool/files/SnapshotCopy.h>

#include <tool/files/ReaderLock.h>
#include <tool/process/Interrupt.h>
#include <tool/process/Problem.h>

#include <db/internal/Folder.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <optional>
#include <string_view>
#include <system_error>
#include <tuple>

#include <fcntl.h>
#include <sys/stat.h>

namespace tool
{

namespace
{

constexpr int kMostTries = 5;
constexpr std::size_t kPiece = 65536;
/// The piece around unreadable bytes: the system reads whole pages of this size.
constexpr std::size_t kSmallPiece = 4096;
constexpr std::size_t kMagicSize = 8; ///< of the bytes at both ends of a journal

[[noreturn]] void fail(std::string const& path, char const* action)
{
    throw Problem(STATUS_BAD_FILE, path + ": " + action + ": " + std::generic_category().message(errno));
}

/// pread(2), repeated when interrupted.
ssize_t readAt(Descriptor const& file, std::int64_t offset, char* bytes, std::size_t size)
{
    ssize_t count = -1;
    do
    {
        count = pread(file.get(), bytes, size, static_cast<off_t>(offset));
    } while (count < 0 && errno == EINTR);
    return count;
}

void writeWhole(Descriptor const& file, std::string const& path, std::string_view bytes)
{
    while (!bytes.empty())
    {
        ssize_t const count = write(file.get(), bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR)
        {
            fail(path, "cannot be written");
        }
        bytes.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
}

/// Whether the medium has failed, or the checksum of the file system.
bool isMediumFailure(int error)
{
    return error == EIO || error == EBADMSG;
}

[[noreturn]] void failReading(std::string const& path, std::int64_t offset)
{
    if (isMediumFailure(errno))
    {
        throw Problem(STATUS_BAD_FILE, path + ": the medium failed to return the bytes at " + std::to_string(offset) +
                                           "; copy the file with a tool that repeats failed reads, and use that copy");
    }
    fail(path, "cannot be read");
}

/// Identity, size and last change of a file; zeros if there is none.
using State = std::tuple<dev_t, ino_t, off_t, time_t, long>;

State stateOf(struct stat const& status)
{
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

State stateOf(Descriptor const& file)
{
    struct stat status = {};
    return fstat(file.get(), &status) == 0 ? stateOf(status) : State();
}

State stateOf(std::string const& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? stateOf(status) : State();
}

/// Copies one file and notes the bytes that cannot be read.
class Copier
{
public:
    Copier(std::string const& path, UnreadablePolicy policy, std::vector<UnreadableBytes>& unreadable)
        : m_path(path), m_policy(policy), m_unreadable(unreadable)
    {
    }

    /// Returns false if the file becomes shorter meanwhile.
    bool copy(Descriptor const& from, std::string const& to, std::function<void(double share)> const& showShare);

private:
    std::size_t read(Descriptor const& from, std::int64_t offset, std::size_t size);
    void noteUnreadable(std::int64_t offset, std::size_t size);

    std::string const& m_path;
    UnreadablePolicy const m_policy;
    std::vector<UnreadableBytes>& m_unreadable;
    std::vector<char> m_bytes = std::vector<char>(kPiece);
    std::int64_t m_endOfSmallPieces = 0; ///< behind unreadable bytes
};

bool Copier::copy(Descriptor const& from, std::string const& to, std::function<void(double share)> const& showShare)
{
    struct stat status = {};
    if (fstat(from.get(), &status) != 0)
    {
        fail(m_path, "cannot be read");
    }
    mode_t const mode = (status.st_mode & 0666) | S_IRUSR | S_IWUSR;
    Descriptor const target(open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
    if (!target)
    {
        fail(to, "cannot be created");
    }
    std::int64_t const size = status.st_size;
    for (std::int64_t offset = 0; offset < size;)
    {
        interrupt::throwIfPending();
        showShare(static_cast<double>(offset) / static_cast<double>(size));
        std::int64_t const left = size - offset;
        std::size_t const count =
            read(from, offset, static_cast<std::size_t>(std::min(left, static_cast<std::int64_t>(kPiece))));
        if (count == 0)
        {
            return false;
        }
        writeWhole(target, to, {m_bytes.data(), count});
        offset += static_cast<std::int64_t>(count);
    }
    return true;
}

/// Reads up to `size` bytes into the buffer and returns their number. Around bytes that cannot be read, the pieces are
/// small, so that few readable bytes are lost with them.
std::size_t Copier::read(Descriptor const& from, std::int64_t offset, std::size_t size)
{
    if (offset < m_endOfSmallPieces)
    {
        size = std::min(size, kSmallPiece);
    }
    ssize_t const count = readAt(from, offset, m_bytes.data(), size);
    if (count >= 0)
    {
        return static_cast<std::size_t>(count);
    }
    if (m_policy == UnreadablePolicy::REFUSE || !isMediumFailure(errno))
    {
        failReading(m_path, offset);
    }
    if (size > kSmallPiece)
    {
        m_endOfSmallPieces = offset + static_cast<std::int64_t>(size);
        return read(from, offset, kSmallPiece);
    }
    std::fill_n(m_bytes.begin(), size, '\0');
    noteUnreadable(offset, size);
    return size;
}

void Copier::noteUnreadable(std::int64_t offset, std::size_t size)
{
    auto const length = static_cast<std::int64_t>(size);
    bool const isNext = !m_unreadable.empty() && m_unreadable.back().path == m_path &&
                        m_unreadable.back().offset + m_unreadable.back().size == offset;
    if (isNext)
    {
        m_unreadable.back().size += length;
    }
    else
    {
        m_unreadable.push_back({m_path, offset, length});
    }
}

/// Opens a journal or a log; the result is empty if there is none or if it begins with a zero byte, so that SQLite
/// ignores it.
Descriptor openWithContent(std::string const& path)
{
    Descriptor file = openIfThere(path);
    char first = 0;
    ssize_t const count = file ? readAt(file, 0, &first, 1) : 0;
    bool const isUsed = count < 0 || (count == 1 && first != 0);
    return isUsed ? std::move(file) : Descriptor(-1);
}

/// The name of the super-journal at the end of a journal; empty if there is none. Behind the name stand its length, a
/// checksum and the magic bytes.
std::string superJournalOf(Descriptor const& journal, std::int64_t size)
{
    constexpr std::string_view kMagic("\xd9\xd5\x05\xf9\x20\xa1\x63\xd7", kMagicSize);
    constexpr std::size_t kTail = 2 * 4 + kMagicSize;
    std::array<char, kTail> tail = {};
    if (size < static_cast<std::int64_t>(kTail) ||
        readAt(journal, size - static_cast<std::int64_t>(kTail), tail.data(), kTail) != static_cast<ssize_t>(kTail) ||
        std::string_view(tail.data() + kTail - kMagicSize, kMagicSize) != kMagic)
    {
        return {};
    }
    std::size_t length = 0;
    for (std::size_t i = 0; i < 4; ++i)
    {
        length = (length << 8U) | static_cast<unsigned char>(tail[i]);
    }
    std::int64_t const begin = size - static_cast<std::int64_t>(kTail) - static_cast<std::int64_t>(length);
    std::string name(length < PATH_MAX && begin >= 0 ? length : 0, '\0');
    return readAt(journal, begin, name.data(), name.size()) == static_cast<ssize_t>(name.size()) ? name : std::string();
}

/// A transaction over several files is undone as long as its super-journal exists. After rolling back the copy, SQLite
/// would delete a super-journal that no journal seems to need, and the transaction of the original would count as
/// committed. Without the name, SQLite rolls the copy back all the same and leaves the super-journal.
void forgetSuperJournal(std::string const& path)
{
    Descriptor const journal(open(path.c_str(), O_RDWR | O_CLOEXEC));
    struct stat status = {};
    if (!journal || fstat(journal.get(), &status) != 0)
    {
        fail(path, "cannot be written");
    }
    std::string const name = superJournalOf(journal, status.st_size);
    constexpr std::array<char, kMagicSize> kZeros = {};
    if (!name.empty() && access(name.c_str(), F_OK) == 0 &&
        pwrite(journal.get(), kZeros.data(), kMagicSize, status.st_size - static_cast<off_t>(kMagicSize)) !=
            static_cast<ssize_t>(kMagicSize))
    {
        fail(path, "cannot be written");
    }
}

/// The copying of the files of one database.
class Attempt
{
public:
    Attempt(std::string const& path, std::string const& copy, UnreadablePolicy policy)
        : m_path(path), m_copy(copy), m_policy(policy), m_lock(path),
          m_journal(m_lock.isBeingWritten() ? Descriptor(-1) : openWithContent(path + kJournal)),
          m_log(openWithContent(path + kLog)), m_before(states())
    {
    }

    /// Returns nothing if the files have changed meanwhile.
    std::optional<SnapshotCopy> run(std::function<void(double share)> const& showShare);

private:
    static constexpr char kJournal[] = "-journal";
    static constexpr char kLog[] = "-wal";

    using States = std::array<State, 3>;

    States states() const;
    bool copyPart(Descriptor const& from, std::string const& suffix,
                  std::function<void(double share)> const& showShare);
    bool copyBeside(Descriptor const& from, std::string const& suffix);

    std::string const& m_path;
    std::string const& m_copy;
    UnreadablePolicy const m_policy;
    ReaderLock const m_lock;
    Descriptor const m_journal;
    Descriptor const m_log;
    States const m_before;
    SnapshotCopy m_result;
};

std::optional<SnapshotCopy> Attempt::run(std::function<void(double share)> const& showShare)
{
    m_result.hasJournal = static_cast<bool>(m_journal);
    m_result.hasLog = static_cast<bool>(m_log);
    bool const isWhole = copyPart(m_lock.file(), "", showShare) && copyBeside(m_journal, kJournal) &&
                         copyBeside(m_log, kLog) && states() == m_before;
    if (isWhole && m_journal)
    {
        forgetSuperJournal(m_copy + kJournal);
    }
    return isWhole ? std::optional(m_result) : std::nullopt;
}

/// A journal that is not copied belongs to a writer, who may change it.
Attempt::States Attempt::states() const
{
    return {stateOf(m_path), stateOf(m_path + kLog), m_journal ? stateOf(m_path + kJournal) : State()};
}

bool Attempt::copyPart(Descriptor const& from, std::string const& suffix,
                       std::function<void(double share)> const& showShare)
{
    std::string const path = m_path + suffix;
    return stateOf(from) == stateOf(path) &&
           Copier(path, m_policy, m_result.unreadable).copy(from, m_copy + suffix, showShare);
}

/// Copies a file beside the database if it has content. An earlier attempt may have left a copy of one.
bool Attempt::copyBeside(Descriptor const& from, std::string const& suffix)
{
    if (!from)
    {
        static_cast<void>(std::remove((m_copy + suffix).c_str()));
        return true;
    }
    return copyPart(from, suffix, [](double) {});
}

} // namespace

SnapshotCopy copySnapshot(FilePath const& path, std::string const& copy, UnreadablePolicy policy,
                          std::function<void(double share)> const& showShare)
{
    std::string const file = folder::withoutLinks(path.absolute()); // The journal lies beside the target of a link.
    for (int tries = 0; tries < kMostTries; ++tries)
    {
        if (auto const result = Attempt(file, copy, policy).run(showShare))
        {
            return *result;
        }
    }
    throw Problem(STATUS_BAD_FILE, path.given() + ": changes while it is copied; stop the processes that write to it");
}

} // namespace tool
