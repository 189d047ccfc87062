#include "FailingVfs.h"

#include <sqlite3.h>

#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include <unistd.h>

namespace
{

sqlite3_vfs* realVfs = nullptr;
FaultPlan currentPlan;
FailingVfs::Kind selectedKind = FailingVfs::KIND_COUNT;
long long sleptMicroseconds = 0;
int sleepsToAction = 0;
std::function<void()> sleepAction;

bool mustFail(FailingVfs::Kind kind)
{
    return kind == selectedKind && currentPlan.mustFail();
}

/// An open file; the real file object follows it in the memory that SQLite provides.
struct File
{
    sqlite3_file base;
    sqlite3_file* real;
};

sqlite3_file* realOf(sqlite3_file* file)
{
    return reinterpret_cast<File*>(file)->real;
}

/// Calls a method of the real file.
template <auto Method, class... Arguments>
int forward(sqlite3_file* file, Arguments... arguments)
{
    return (realOf(file)->pMethods->*Method)(realOf(file), arguments...);
}

/// Like `forward`, for a method that fails with `Code` when the plan says so.
template <FailingVfs::Kind Kind, int Code, auto Method, class... Arguments>
int forwardOrFail(sqlite3_file* file, Arguments... arguments)
{
    return mustFail(Kind) ? Code : forward<Method>(file, arguments...);
}

int writeFile(sqlite3_file* file, void const* bytes, int size, sqlite3_int64 offset)
{
    if (mustFail(FailingVfs::WRITE))
    {
        return SQLITE_IOERR_WRITE;
    }
    if (mustFail(FailingVfs::FULL_DISK))
    {
        return SQLITE_FULL;
    }
    if (mustFail(FailingVfs::FULL_DISK_MIDWAY))
    {
        static_cast<void>(forward<&sqlite3_io_methods::xWrite>(file, bytes, size / 2, offset)); // Fails in any case.
        return SQLITE_FULL;
    }
    return forward<&sqlite3_io_methods::xWrite>(file, bytes, size, offset);
}

int syncFile(sqlite3_file*, int)
{
    return mustFail(FailingVfs::SYNC) ? SQLITE_IOERR_FSYNC : SQLITE_OK;
}

int lockFile(sqlite3_file* file, int level)
{
    if (mustFail(FailingVfs::LOCK_BUSY))
    {
        return SQLITE_BUSY;
    }
    return forwardOrFail<FailingVfs::LOCK_ERROR, SQLITE_IOERR_LOCK, &sqlite3_io_methods::xLock>(file, level);
}

/// Only locking fails: SQLite ignores the result of unlocking, as that fails on no storage.
int lockShared(sqlite3_file* file, int first, int count, int flags)
{
    bool const isLocking = (flags & SQLITE_SHM_LOCK) != 0;
    return isLocking && mustFail(FailingVfs::LOCK_SHARED)
               ? SQLITE_IOERR_SHMLOCK
               : forward<&sqlite3_io_methods::xShmLock>(file, first, count, flags);
}

/// SQLite calls this method whatever the version; `forward` does not fit, as the method returns nothing.
void shmBarrier(sqlite3_file* file)
{
    realOf(file)->pMethods->xShmBarrier(realOf(file));
}

using Methods = sqlite3_io_methods;

sqlite3_io_methods makeMethods()
{
    sqlite3_io_methods methods = {};
    methods.iVersion = 2; // No memory mapping, so every read is a call.
    methods.xClose = forward<&Methods::xClose>;
    methods.xRead = forwardOrFail<FailingVfs::READ, SQLITE_IOERR_READ, &Methods::xRead, void*, int, sqlite3_int64>;
    methods.xWrite = writeFile;
    methods.xTruncate = forwardOrFail<FailingVfs::TRUNCATE, SQLITE_IOERR_TRUNCATE, &Methods::xTruncate, sqlite3_int64>;
    methods.xSync = syncFile;
    methods.xFileSize = forwardOrFail<FailingVfs::FILE_SIZE, SQLITE_IOERR_FSTAT, &Methods::xFileSize, sqlite3_int64*>;
    methods.xLock = lockFile;
    methods.xUnlock = forwardOrFail<FailingVfs::UNLOCK, SQLITE_IOERR_UNLOCK, &Methods::xUnlock, int>;
    methods.xCheckReservedLock =
        forwardOrFail<FailingVfs::CHECK_LOCK, SQLITE_IOERR_CHECKRESERVEDLOCK, &Methods::xCheckReservedLock, int*>;
    methods.xFileControl = forward<&Methods::xFileControl, int, void*>;
    methods.xSectorSize = forward<&Methods::xSectorSize>;
    methods.xDeviceCharacteristics = forward<&Methods::xDeviceCharacteristics>;
    methods.xShmMap =
        forwardOrFail<FailingVfs::MAP_SHARED, SQLITE_IOERR_SHMMAP, &Methods::xShmMap, int, int, int, void volatile**>;
    methods.xShmLock = lockShared;
    methods.xShmBarrier = shmBarrier;
    methods.xShmUnmap = forward<&Methods::xShmUnmap, int>;
    return methods;
}

int openFile(sqlite3_vfs*, char const* name, sqlite3_file* file, int flags, int* outFlags)
{
    static sqlite3_io_methods const methods = makeMethods();
    auto* const opened = new (file) File{{nullptr}, reinterpret_cast<sqlite3_file*>(reinterpret_cast<File*>(file) + 1)};
    if (mustFail(FailingVfs::OPEN))
    {
        return SQLITE_CANTOPEN;
    }
    int const code = realVfs->xOpen(realVfs, name, opened->real, flags, outFlags);
    opened->base.pMethods = opened->real->pMethods != nullptr ? &methods : nullptr;
    return code;
}

int removeFile(sqlite3_vfs*, char const* name, int)
{
    constexpr int kWithoutSync = 0;
    return mustFail(FailingVfs::REMOVE) ? SQLITE_IOERR_DELETE : realVfs->xDelete(realVfs, name, kWithoutSync);
}

int accessFile(sqlite3_vfs*, char const* name, int flags, int* result)
{
    return mustFail(FailingVfs::ACCESS) ? SQLITE_IOERR_ACCESS : realVfs->xAccess(realVfs, name, flags, result);
}

int addToSleep(sqlite3_vfs*, int microseconds)
{
    sleptMicroseconds += microseconds;
    if (sleepsToAction != 0 && --sleepsToAction == 0)
    {
        sleepAction();
    }
    return microseconds;
}

// System calls below the real file system: behaviour that the system may show at any time without an error.

ssize_t readHalf(int file, void* bytes, std::size_t size, off64_t offset)
{
    return pread64(file, bytes, size > 1 && mustFail(FailingVfs::SHORT_READ) ? size / 2 : size, offset);
}

ssize_t writeHalf(int file, void const* bytes, std::size_t size, off64_t offset)
{
    return pwrite64(file, bytes, size > 1 && mustFail(FailingVfs::SHORT_WRITE) ? size / 2 : size, offset);
}

template <class Function>
void replaceSystemCall(char const* name, Function function)
{
    if (realVfs->xSetSystemCall(realVfs, name, reinterpret_cast<sqlite3_syscall_ptr>(function)) != SQLITE_OK)
    {
        throw std::runtime_error(std::string("SQLite does not call ") + name);
    }
}

} // namespace

void FailingVfs::install()
{
    static sqlite3_vfs shim;
    if (realVfs == nullptr)
    {
        realVfs = sqlite3_vfs_find(nullptr);
        shim = *realVfs; // The other functions use only names and the clock, so they need not be replaced.
        shim.szOsFile += static_cast<int>(sizeof(File));
        shim.zName = "failing";
        shim.xOpen = openFile;
        shim.xDelete = removeFile;
        shim.xAccess = accessFile;
        shim.xSleep = addToSleep;
        replaceSystemCall("pread64", readHalf);
        replaceSystemCall("pwrite64", writeHalf);
    }
    if (sqlite3_vfs_register(&shim, 1) != SQLITE_OK)
    {
        throw std::runtime_error("SQLite refuses the failing file system");
    }
}

void FailingVfs::select(Kind kind)
{
    selectedKind = kind;
}

FaultPlan& FailingVfs::plan()
{
    return currentPlan;
}

char const* FailingVfs::name(Kind kind)
{
    static constexpr char const* kNames[] = {
        "open",     "read",      "short read", "write",      "short write", "full disk", "full disk midway",
        "truncate", "sync",      "lock busy",  "lock error", "check lock",  "unlock",    "delete",
        "access",   "file size", "map shared", "lock shared"};
    static_assert(sizeof kNames / sizeof *kNames == KIND_COUNT, "one name for each kind");
    return kNames[kind];
}

std::string FailingVfs::testName(Kind kind)
{
    std::string result;
    bool isStart = true;
    for (char const c : std::string(name(kind)))
    {
        if (c != ' ')
        {
            result += isStart ? static_cast<char>(c - 'a' + 'A') : c;
        }
        isStart = c == ' ';
    }
    return result;
}

long long FailingVfs::takeSleptMs()
{
    return std::exchange(sleptMicroseconds, 0) / 1000;
}

void FailingVfs::whenSlept(int n, std::function<void()> action)
{
    sleepsToAction = n;
    sleepAction = std::move(action);
}
