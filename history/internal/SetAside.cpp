#include <history/internal/SetAside.h>

#include <db/internal/Folder.h>
#include <db/internal/Join.h>
#include <history/TimeStamp.h>
#include <history/internal/Failure.h>
#include <history/internal/FaultPages.h>
#include <history/internal/RecorderFile.h>
#include <history/internal/Tables.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace firaim
{

namespace
{

constexpr std::size_t kBuffer = 65536;

class Descriptor
{
public:
    explicit Descriptor(int number) : m_number(number) {}
    ~Descriptor()
    {
        if (m_number >= 0)
        {
            static_cast<void>(close(m_number)); // Everything written has been synchronised.
        }
    }
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    int get() const { return m_number; }

private:
    int m_number;
};

/// The content to copy: its size, and a function that reads up to `size` bytes at `offset`. It returns 0 at the end and
/// throws on failure.
struct Content
{
    std::int64_t size;
    std::function<std::size_t(std::int64_t offset, char* bytes, std::size_t size)> read;
};

/// Calls `take(offset, bytes, size)` for the content, piece by piece. Returns false if the content ends early or `take`
/// returns false.
template <class Take>
bool forEachPiece(Content const& content, Take const& take)
{
    std::vector<char> buffer(kBuffer);
    for (std::int64_t offset = 0; offset < content.size;)
    {
        std::size_t const size = content.read(offset, buffer.data(), buffer.size());
        if (size == 0)
        {
            errno = EIO; // The file has become shorter meanwhile.
            return false;
        }
        if (!take(offset, buffer.data(), size))
        {
            return false;
        }
        offset += static_cast<std::int64_t>(size);
    }
    return true;
}

/// pread(2), repeated when interrupted.
ssize_t readAt(int descriptor, std::int64_t offset, char* bytes, std::size_t size)
{
    ssize_t count = -1;
    do
    {
        count = pread(descriptor, bytes, size, static_cast<off_t>(offset));
    } while (count < 0 && errno == EINTR);
    return count;
}

/// Writes all bytes; returns whether that succeeded.
bool writeWhole(int descriptor, char const* bytes, std::size_t size)
{
    for (std::size_t written = 0; written < size;)
    {
        ssize_t const count = write(descriptor, bytes + written, size - written);
        if (count < 0 && errno != EINTR)
        {
            return false;
        }
        written += count < 0 ? 0 : static_cast<std::size_t>(count);
    }
    return true;
}

/// Makes the file and its name durable; returns whether that succeeded.
bool synchronise(int descriptor, std::string const& name)
{
    return fsync(descriptor) == 0 && folder::synchroniseFolderOf(name);
}

/// Whether the file at `name` is a durable copy of `content`: an attempt that failed later leaves one.
bool isCopied(std::string const& name, Content const& content)
{
    Descriptor const copy(open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status = {};
    std::vector<char> piece(kBuffer);
    return copy.get() >= 0 && fstat(copy.get(), &status) == 0 && S_ISREG(status.st_mode) &&
           status.st_size == content.size &&
           forEachPiece(content,
                        [&](std::int64_t offset, char const* bytes, std::size_t size)
                        {
                            return readAt(copy.get(), offset, piece.data(), size) == static_cast<ssize_t>(size) &&
                                   std::memcmp(bytes, piece.data(), size) == 0;
                        }) &&
           synchronise(copy.get(), name);
}

struct Copy
{
    std::string name;
    bool isNew;
};

/// Deletes its copies at the end, unless `keep` was called.
class Copies
{
public:
    Copies() = default;
    ~Copies()
    {
        for (std::string const& name : m_names)
        {
            static_cast<void>(unlink(name.c_str())); // A remaining copy does no harm.
        }
    }
    Copies(Copies const&) = delete;
    Copies& operator=(Copies const&) = delete;

    void add(Copy const& copy)
    {
        if (copy.isNew)
        {
            m_names.push_back(copy.name);
        }
    }
    void keep() { m_names.clear(); }

private:
    std::vector<std::string> m_names;
};

/// Copies `content` of the file at `path` to a name beside it with the date and a number. Reuses a copy of the same day
/// with the same content: repeated failures must not fill the storage. The copy grants access to no more users than the
/// file.
Copy makeCopy(std::string const& path, Content const& content)
{
    struct stat original = {};
    mode_t const mode = stat(path.c_str(), &original) == 0 ? original.st_mode & 0666U : 0600U;
    constexpr int kMaxCopies = 1000;
    std::string const date = utcText(currentTime()).substr(0, 10);
    std::string name;
    int descriptor = -1;
    errno = EEXIST;
    for (int number = 1; number <= kMaxCopies && descriptor < 0 && errno == EEXIST; ++number)
    {
        name = join({path, ".aside-", date, "-", std::to_string(number)});
        if (isCopied(name, content))
        {
            return {name, false};
        }
        descriptor = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    }
    Descriptor const to(descriptor);
    auto const write = [&](std::int64_t /*offset*/, char const* bytes, std::size_t size)
    { return writeWhole(to.get(), bytes, size); };
    Copies half; // Deletes an unfinished copy.
    if (to.get() >= 0)
    {
        half.add({name, true});
    }
    if (to.get() < 0 || !forEachPiece(content, write) || !synchronise(to.get(), name))
    {
        failWithErrno(name, "cannot be written, to keep what is left of a damaged database");
    }
    half.keep();
    return {name, true};
}

/// Copies a database through SQLite's own descriptor: closing another one would release the locks of this process.
Copy copyDatabase(std::string const& path, PageFile const& file)
{
    return makeCopy(path, {file.size(), [&](std::int64_t offset, char* bytes, std::size_t size)
                           { return file.read(offset, bytes, size); }});
}

/// Copies a file beside a database, if it has content; otherwise the result has no name.
Copy copyBeside(std::string const& path)
{
    Descriptor const from(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    struct stat status = {};
    if (from.get() < 0 && errno == ENOENT)
    {
        return {{}, false};
    }
    auto const fail = [&] { failWithErrno(path, "cannot be read, and belongs to a database that is gone or damaged"); };
    auto const read = [&](std::int64_t offset, char* bytes, std::size_t size)
    {
        ssize_t const count = readAt(from.get(), offset, bytes, size);
        if (count < 0)
        {
            fail(); // SQLite would delete it, although it could not be copied.
        }
        return static_cast<std::size_t>(count);
    };
    if (from.get() < 0 || fstat(from.get(), &status) != 0)
    {
        fail();
    }
    // A journal with an empty header has been played back or was never needed.
    char first = 0;
    if (!S_ISREG(status.st_mode) || read(0, &first, 1) != 1 || first == 0)
    {
        return {{}, false};
    }
    return makeCopy(path, {status.st_size, read});
}

/// Requires that the file is a fault database, judged by its schema or, if that cannot be read, by its rows. Throws
/// Failure if it is not. `damage` is SQLite's message.
void requireOurs(std::string const& path, sqlite::Connection const& connection, PageFile const& file,
                 std::string const& damage)
{
    // Otherwise SQLite does not read the schema of a truncated file.
    require(connection, sqlite3_db_config(connection.get(), SQLITE_DBCONFIG_DEFENSIVE, 0, nullptr));
    connection.run("PRAGMA writable_schema=ON");
    try
    {
        requireFaultDatabase(path, connection);
    }
    catch (sqlite::Error const& error)
    {
        if (!isDamage(error))
        {
            throw;
        }
        if (!holdsFaults(file))
        {
            throw Failure(HISTORY_DAMAGED,
                          join({path, ": ", damage,
                                "; it is left as it is, as nothing in it tells that it is a fault database"}));
        }
    }
}

/// Makes SQLite treat the file as empty, or stops that.
void ignoreContent(sqlite::Connection const& connection, bool isOn)
{
    require(connection, sqlite3_db_config(connection.get(), SQLITE_DBCONFIG_RESET_DATABASE, isOn ? 1 : 0, nullptr));
}

/// Replaces the content of `connection` by `content`, in one transaction.
void replaceContent(sqlite::Connection const& connection, sqlite::Connection const& content)
{
    sqlite3_backup* const backup = sqlite3_backup_init(connection.get(), "main", content.get(), "main");
    if (backup == nullptr)
    {
        throw sqlite::Error(connection.get(), sqlite3_errcode(connection.get()));
    }
    int const code = sqlite3_backup_step(backup, -1);
    static_cast<void>(sqlite3_backup_finish(backup)); // Repeats the error of the step.
    if (code != SQLITE_DONE)
    {
        throw sqlite::Error(connection.get(), code);
    }
}

/// Locks the file and gives it a new content, unless it is found to be sound under the lock. Before the file changes,
/// `beforeReset` is called with the connection that holds the lock, then `recordIncident` with a connection to the new
/// content. Returns whether the content was replaced.
template <class Before, class Record>
bool reset(std::string const& path, sqlite::Waiting const& waiting, Before const& beforeReset,
           Record const& recordIncident)
{
    sqlite::Connection const connection(path, sqlite::Connection::READ_WRITE, waiting);
    ignoreContent(connection, true); // Otherwise a damaged file can neither be configured nor locked.
    connection.run("PRAGMA synchronous=FULL");
    connection.run("BEGIN EXCLUSIVE");
    // From here on, this connection keeps the lock between transactions. Not earlier: two processes that wait in this
    // mode would block each other.
    connection.run("PRAGMA locking_mode=EXCLUSIVE");
    connection.run("ROLLBACK");
    // With a write-ahead log, the lock is released now: there, only a transaction that begins in this mode keeps it.
    connection.run("BEGIN EXCLUSIVE");
    connection.run("ROLLBACK");
    ignoreContent(connection, false);
    if (isSound(connection))
    {
        return false;
    }
    beforeReset(connection);
    // Create the tables in memory: in the file, they would overwrite old pages that no journal keeps.
    sqlite::Connection const content({}, sqlite::Connection::MEMORY);
    content.run("PRAGMA page_size=" + std::to_string(connection.number("PRAGMA page_size")));
    createContent(content);
    recordIncident(content);
    ignoreContent(connection, true);
    replaceContent(connection, content);
    return true;
}

} // namespace

void copyAside(std::string const& path)
{
    static_cast<void>(copyBeside(path));
}

bool setAside(std::string const& path, std::string const& damage, sqlite::Waiting const& waiting,
              RecordIncident const& recordIncident)
{
    std::string const realPath = folder::withoutLinks(path);
    std::string name;
    auto const copyIfOurs = [&](sqlite::Connection const& connection)
    {
        PageFile const file(connection);
        requireOurs(path, connection, file, damage);
        Copies copies;
        copies.add(copyBeside(realPath + "-journal"));
        copies.add(copyBeside(realPath + "-wal"));
        name = copyDatabase(realPath, file).name;
        copies.keep(); // From here on the file changes, and a failing storage may lose it.
    };
    auto const recordDamage = [&](sqlite::Connection const& connection)
    {
        recordIncident(connection, join({"the fault database was damaged (", damage,
                                         ") and begins anew; what it held is in ", name}));
    };
    try
    {
        return reset(path, waiting, copyIfOurs, recordDamage);
    }
    catch (sqlite::Error const& error)
    {
        throw Failure(path, error);
    }
}

} // namespace firaim
