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
            static_cast<void>(close(m_number)); // All that was written has been synchronised.
        }
    }
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    int get() const { return m_number; }

private:
    int m_number;
};

/// The content to copy: its size, and how to read up to so many bytes at a place. Reading gives 0 at the end, and
/// throws where it fails.
struct Content
{
    std::int64_t size;
    std::function<std::size_t(std::int64_t offset, char* bytes, std::size_t size)> read;
};

/// Passes the bytes on, piece by piece; returns whether there were as many as there should be and
/// `take(offset, bytes, size)` took them.
template <class Take>
bool forEachPiece(Content const& content, Take const& take)
{
    std::vector<char> buffer(kBuffer);
    for (std::int64_t offset = 0; offset < content.size;)
    {
        std::size_t const size = content.read(offset, buffer.data(), buffer.size());
        if (size == 0)
        {
            errno = EIO; // It has become shorter meanwhile.
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

/// As pread, without being interrupted.
ssize_t readAt(int descriptor, std::int64_t offset, char* bytes, std::size_t size)
{
    ssize_t count = -1;
    do
    {
        count = pread(descriptor, bytes, size, static_cast<off_t>(offset));
    } while (count < 0 && errno == EINTR);
    return count;
}

/// Writes all of it; returns whether that was possible.
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

/// Whether what the descriptor stands for is on the storage.
bool synchronise(int descriptor, std::string const& name)
{
    return fsync(descriptor) == 0 && folder::synchroniseFolderOf(name);
}

/// Whether the file at `name` is a copy of `content`, as an attempt that failed later leaves one, and on the storage.
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

/// Copies that go again unless they are to stay.
class Copies
{
public:
    Copies() = default;
    ~Copies()
    {
        for (std::string const& name : m_names)
        {
            static_cast<void>(unlink(name.c_str())); // One that stays does no harm.
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

/// Copies `content`, which belongs to the file at `path`, to a name beside it with the date and a number, unless one of
/// the day's copies holds the same: attempts that fail again and again must not fill the storage. The copy is open to
/// no more users than the file.
Copy makeCopy(std::string const& path, Content const& content)
{
    struct stat original = {};
    mode_t const mode = stat(path.c_str(), &original) == 0 ? original.st_mode & 0666U : 0600U;
    constexpr int kMostCopies = 1000;
    std::string const date = utcText(currentTime()).substr(0, 10);
    std::string name;
    int descriptor = -1;
    errno = EEXIST;
    for (int number = 1; number <= kMostCopies && descriptor < 0 && errno == EEXIST; ++number)
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
    Copies half; // Which is of no use.
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

/// The bytes of a database, read by SQLite's own descriptor: closing another one would give up the locks that this
/// process holds on it.
Copy copyDatabase(std::string const& path, PageFile const& file)
{
    return makeCopy(path, {file.size(), [&](std::int64_t offset, char* bytes, std::size_t size)
                           { return file.read(offset, bytes, size); }});
}

/// Copies what lies beside a database, if it holds something; without a name where there is nothing to copy.
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
            fail(); // SQLite would delete it all the same.
        }
        return static_cast<std::size_t>(count);
    };
    if (from.get() < 0 || fstat(from.get(), &status) != 0)
    {
        fail();
    }
    // A journal with an empty header has been played back, or was never needed.
    char first = 0;
    if (!S_ISREG(status.st_mode) || read(0, &first, 1) != 1 || first == 0)
    {
        return {{}, false};
    }
    return makeCopy(path, {status.st_size, read});
}

/// Makes sure that the file is ours: by its schema or, where that cannot be read, by its rows. Throws Failure where it
/// is not; `damage` is what SQLite says of it.
void requireOurs(std::string const& path, sqlite::Connection const& connection, PageFile const& file,
                 std::string const& damage)
{
    // Or SQLite does not look into a file that has been cut off.
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

/// Whether SQLite takes the file for an empty one, whatever it holds.
void ignoreContent(sqlite::Connection const& connection, bool isOn)
{
    require(connection, sqlite3_db_config(connection.get(), SQLITE_DBCONFIG_RESET_DATABASE, isOn ? 1 : 0, nullptr));
}

/// Replaces all that the file of `connection` holds by what `content` holds, in one transaction.
void replaceContent(sqlite::Connection const& connection, sqlite::Connection const& content)
{
    sqlite3_backup* const backup = sqlite3_backup_init(connection.get(), "main", content.get(), "main");
    if (backup == nullptr)
    {
        throw sqlite::Error(connection.get(), sqlite3_errcode(connection.get()));
    }
    int const code = sqlite3_backup_step(backup, -1);
    static_cast<void>(sqlite3_backup_finish(backup)); // Says the same again.
    if (code != SQLITE_DONE)
    {
        throw sqlite::Error(connection.get(), code);
    }
}

/// Locks the file and makes a new database of it, unless it turns out to be sound once it is locked. Under the lock,
/// while the file is as it was, `beforeReset` is called with the connection that has the lock, and `recordIncident`
/// with a connection to the new content. Returns whether it was made anew.
template <class Before, class Record>
bool reset(std::string const& path, sqlite::Waiting const& waiting, Before const& beforeReset,
           Record const& recordIncident)
{
    sqlite::Connection const connection(path, sqlite::Connection::READ_WRITE, waiting);
    ignoreContent(connection, true); // A damaged file can neither be set up nor locked otherwise.
    connection.run("PRAGMA synchronous=FULL");
    connection.run("BEGIN EXCLUSIVE");
    // From here on, the lock stays between the transactions of this connection. Not earlier: whoever waits in this mode
    // keeps others from the file, and two would wait for each other.
    connection.run("PRAGMA locking_mode=EXCLUSIVE");
    connection.run("ROLLBACK");
    // In a file with a write-ahead log, that has given the lock back: there, only a transaction that begins in this
    // mode locks it for good.
    connection.run("BEGIN EXCLUSIVE");
    connection.run("ROLLBACK");
    ignoreContent(connection, false);
    if (isSound(connection))
    {
        return false;
    }
    beforeReset(connection);
    // Tables that were created in the file itself would take the place of old pages that no journal keeps.
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
        copies.keep(); // From here on the file changes, and may be lost when its storage fails.
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
