#include <db/internal/ReadOnlyOpening.h>

#include <db/internal/Folder.h>
#include <db/internal/Join.h>

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace readOnlyOpening
{

namespace
{

using sqlite::Connection;

constexpr sqlite3_int64 kReadVersionOffset = 19; ///< offset in the file header: the version needed to read the file
constexpr char kReadVersionWal = 2;

constexpr off_t kLargestEmptyFile = 1; ///< SQLite treats a file of one byte as empty

bool isLargerThan(off_t size, std::string const& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && status.st_size > size;
}

bool hasContent(std::string const& path)
{
    return isLargerThan(0, path);
}

/// SQLite keeps the log beside the target of a link.
std::string logOf(std::string const& path)
{
    return folder::withoutLinks(path) + "-wal";
}

/// SQLite keeps the journal beside the target of a link.
std::string journalOf(std::string const& path)
{
    return folder::withoutLinks(path) + "-journal";
}

/// SQLite treats files beside an empty file as leftovers and removes them, a log also on a read-only connection.
[[noreturn]] void refuseEmptied(FilePath const& path, char const* name, std::string const& beside)
{
    throw Failure(EMPTIED, join({path.given(), ": it is empty, but its ", name,
                                 " is not, and SQLite would remove that when it opens the file. Both were left as they "
                                 "are. Copy '",
                                 beside, "' into another folder first"}));
}

void requireNoLogOfEmptyFile(FilePath const& path)
{
    if (!isLargerThan(kLargestEmptyFile, path.absolute()) && hasContent(logOf(path.absolute())))
    {
        refuseEmptied(path, "write-ahead log", logOf(path.absolute()));
    }
}

/// Whether another process has a reserved lock, as it is writing to the connection's file.
bool isReserved(Connection const& connection)
{
    sqlite3_file* file = nullptr;
    int isReserved = 0;
    return sqlite3_file_control(connection.get(), "main", SQLITE_FCNTL_FILE_POINTER, &file) == SQLITE_OK &&
           file != nullptr && file->pMethods != nullptr &&
           file->pMethods->xCheckReservedLock(file, &isReserved) == SQLITE_OK && isReserved != 0;
}

/// Opening for reading keeps a journal, and has waited for a process that creates the database. A process that still
/// does holds a lock. Check the size again after the lock: a process that ends in between has filled the file.
void requireNoJournalOfEmptyFile(FilePath const& path, Connection const& connection)
{
    std::string const journal = journalOf(path.absolute());
    if (!isLargerThan(kLargestEmptyFile, path.absolute()) && holdsTransaction(journal) && !isReserved(connection) &&
        !isLargerThan(kLargestEmptyFile, path.absolute()))
    {
        refuseEmptied(path, "journal", journal);
    }
}

[[noreturn]] void failWithoutStatus(FilePath const& path, int error)
{
    FailureKind failure = UNREADABLE;
    if (error == ENOENT)
    {
        failure = NO_FILE;
    }
    else if (error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG)
    {
        failure = BAD_PATH;
    }
    throw Failure(failure, path.given() + ": " + std::generic_category().message(error));
}

/// Reads from the file, so that SQLite examines it, its journal and its log.
void readSchema(Connection const& connection)
{
    static_cast<void>(connection.number("SELECT count(*) FROM sqlite_master"));
}

/// Whether the write-ahead log is the problem: its index cannot be created on a read-only medium.
bool isLogUnusable(Connection const& connection, sqlite::Error const& error)
{
    return (error.kind() == SQLITE_CANTOPEN || error.kind() == SQLITE_READONLY) && isInWalMode(connection);
}

Connection openImmutable(FilePath const& path, sqlite::Waiting const& waiting)
{
    if (hasContent(logOf(path.absolute())))
    {
        throw Failure(LOG_UNREADABLE,
                      join({path.given(),
                            ": faults that belong to it are still in its write-ahead log, which cannot be read where "
                            "nothing can be written. Make a copy with 'firaim recover FILE --to COPY', and use that"}));
    }
    Connection connection(path.absolute(), Connection::IMMUTABLE, waiting);
    readSchema(connection);
    return connection;
}

char const* adviceFor(sqlite::Error const& error)
{
    if (error.isFailedRead())
    {
        return kFailedReadAdvice;
    }
    switch (error.kind())
    {
    case SQLITE_NOTADB:
        return "; it is no SQLite database";
    case SQLITE_CORRUPT:
        return "; 'firaim check' tells what is damaged";
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return "; another process keeps it locked, try again";
    default:
        return "";
    }
}

} // namespace

char const kFailedReadAdvice[] = "; the medium failed to return a part of the file. Copy it with a tool that repeats "
                                 "failed reads, and use the copy";

void requireFile(FilePath const& file)
{
    std::string const& path = file.given();
    if (path.empty())
    {
        throw Failure(BAD_PATH, "the name of the file is empty");
    }
    if (path.find('\0') != std::string::npos)
    {
        throw Failure(BAD_PATH, path.substr(0, path.find('\0')) + ": the name has a zero byte");
    }
    struct stat status = {};
    if (stat(file.absolute().c_str(), &status) != 0)
    {
        int const error = errno;
        if (error == ENOENT && lstat(file.absolute().c_str(), &status) == 0)
        {
            if (S_ISLNK(status.st_mode))
            {
                throw Failure(BAD_PATH, path + ": is a link to nowhere");
            }
            return requireFile(file); // Another process has created it meanwhile.
        }
        failWithoutStatus(file, error);
    }
    if (!S_ISREG(status.st_mode))
    {
        throw Failure(BAD_PATH, path + (S_ISDIR(status.st_mode) ? ": is a folder" : ": is no regular file"));
    }
}

bool holdsTransaction(std::string const& journal)
{
    int const descriptor = ::open(journal.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    char first = 0;
    bool const isRead = descriptor >= 0 && pread(descriptor, &first, 1, 0) == 1;
    if (descriptor >= 0)
    {
        static_cast<void>(close(descriptor)); // Nothing was written through it, and a journal is never locked.
    }
    return isRead && first != 0;
}

void requireNothingBesideEmptyFile(FilePath const& path)
{
    requireNoLogOfEmptyFile(path);
    if (!isLargerThan(kLargestEmptyFile, path.absolute()) && holdsTransaction(journalOf(path.absolute())))
    {
        refuseEmptied(path, "journal", journalOf(path.absolute()));
    }
}

Connection open(FilePath const& path, sqlite::Waiting const& waiting)
{
    requireFile(path);
    requireNoLogOfEmptyFile(path);
    Connection connection(path.absolute(), Connection::READ_ONLY, waiting);
    try
    {
        readSchema(connection);
    }
    catch (sqlite::Error const& error)
    {
        if (!isLogUnusable(connection, error))
        {
            throw;
        }
        return openImmutable(path, waiting);
    }
    requireNoJournalOfEmptyFile(path, connection);
    return connection;
}

bool isInWalMode(Connection const& connection)
{
    sqlite3_file* file = nullptr;
    if (sqlite3_file_control(connection.get(), "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK ||
        file == nullptr || file->pMethods == nullptr)
    {
        return false;
    }
    char readVersion = 0;
    return file->pMethods->xRead(file, &readVersion, 1, kReadVersionOffset) == SQLITE_OK &&
           readVersion == kReadVersionWal;
}

std::string problemText(FilePath const& path, sqlite::Error const& error)
{
    if (error.code() == SQLITE_READONLY_ROLLBACK)
    {
        return join({path.given(),
                     ": a writer was cut off, and what it left half done must be rolled back before the file can be "
                     "read, which writes to it. Run 'firaim recover' on it; or, to leave it as it is, make a rolled "
                     "back copy with 'firaim recover FILE --to COPY'"});
    }
    return join({path.given(), ": ", error.what(), adviceFor(error)});
}

} // namespace readOnlyOpening
