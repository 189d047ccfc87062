#include "DiskModelVfs.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

/// A file that SQLite has opened; the file object of the unix VFS follows it in memory.
struct ModelFile
{
    sqlite3_file base;
    int number; ///< -1: not recorded
};

constexpr std::size_t kUnixFileOffset = (sizeof(ModelFile) + 15) / 16 * 16;

sqlite3_file* unixFile(sqlite3_file* file)
{
    return reinterpret_cast<sqlite3_file*>(reinterpret_cast<char*>(file) + kUnixFileOffset);
}

int numberOf(sqlite3_file* file)
{
    return reinterpret_cast<ModelFile*>(file)->number;
}

std::size_t lengthOf(int descriptor)
{
    struct stat status = {};
    EXPECT_EQ(fstat(descriptor, &status), 0);
    return static_cast<std::size_t>(status.st_size);
}

bool hasName(int descriptor)
{
    struct stat status = {};
    EXPECT_EQ(fstat(descriptor, &status), 0);
    return status.st_nlink != 0;
}

bool isSameFile(int descriptor, struct stat const& other)
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && status.st_dev == other.st_dev && status.st_ino == other.st_ino;
}

/// The name of the shared memory of a write-ahead log.
bool isNameOfSharedMemory(std::string const& name)
{
    constexpr char kSuffix[] = "-shm";
    constexpr std::size_t kLength = sizeof kSuffix - 1;
    return name.size() > kLength && name.compare(name.size() - kLength, kLength, kSuffix) == 0;
}

std::string contentOf(int descriptor)
{
    std::string bytes(lengthOf(descriptor), '\0');
    EXPECT_EQ(pread(descriptor, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    return bytes;
}

} // namespace

// These replace the system's functions, also for SQLite and the library. They synchronise nothing: the tests do not
// depend on this machine's power, and they recover thousands of states.

int fsync(int descriptor)
{
    DiskModelVfs::getInstance().recordSynchronisation(descriptor);
    return 0;
}

int fdatasync(int descriptor)
{
    DiskModelVfs::getInstance().recordSynchronisation(descriptor);
    return 0;
}

/// The functions that SQLite calls. They are noexcept, as an exception must not pass through SQLite.
struct DiskModelVfs::Hooks
{
    static int open(sqlite3_vfs*, char const* path, sqlite3_file* file, int flags, int* outFlags) noexcept
    {
        DiskModelVfs& self = getInstance();
        bool const isRecorded = path != nullptr && self.isRecorded(path);
        if (isRecorded)
        {
            self.noticeOutsideChanges();
        }
        sqlite3_vfs* const unixVfs = self.m_hooks->unixVfs;
        int const code = unixVfs->xOpen(unixVfs, path, unixFile(file), flags, outFlags);
        file->pMethods = unixFile(file)->pMethods != nullptr ? &self.m_hooks->methods : nullptr;
        auto& number = reinterpret_cast<ModelFile*>(file)->number;
        number = -1;
        if (code == SQLITE_OK && isRecorded)
        {
            if (self.m_files.count(self.nameOf(path)) == 0)
            {
                self.recordCreation(self.nameOf(path));
            }
            number = self.fileNumber(path);
        }
        return code;
    }

    static int remove(sqlite3_vfs*, char const* path, int syncDirectory) noexcept
    {
        DiskModelVfs& self = getInstance();
        if (self.m_areJournalsKept)
        {
            return SQLITE_IOERR_DELETE;
        }
        if (self.isRecorded(path))
        {
            self.noticeOutsideChanges();
            // Record this first, as the unix VFS may synchronise the directory before it returns.
            if (self.m_files.count(self.nameOf(path)) != 0)
            {
                self.recordRemoval(self.nameOf(path));
            }
        }
        sqlite3_vfs* const unixVfs = self.m_hooks->unixVfs;
        return unixVfs->xDelete(unixVfs, path, syncDirectory);
    }

    /// Calls a method of the unix VFS.
    template <auto Method, class... Arguments>
    static int forward(sqlite3_file* file, Arguments... arguments) noexcept
    {
        return (unixFile(file)->pMethods->*Method)(unixFile(file), arguments...);
    }

    static int write(sqlite3_file* file, void const* bytes, int count, sqlite3_int64 offset) noexcept
    {
        if (numberOf(file) >= 0)
        {
            std::string text(static_cast<char const*>(bytes), static_cast<std::size_t>(count));
            getInstance().record(
                {DiskOperation::WRITE, numberOf(file), {}, static_cast<std::size_t>(offset), std::move(text)});
        }
        return forward<&sqlite3_io_methods::xWrite>(file, bytes, count, offset);
    }

    static int truncate(sqlite3_file* file, sqlite3_int64 length) noexcept
    {
        if (numberOf(file) >= 0)
        {
            getInstance().record({DiskOperation::TRUNCATE, numberOf(file), {}, static_cast<std::size_t>(length)});
        }
        return forward<&sqlite3_io_methods::xTruncate>(file, length);
    }

    static void shmBarrier(sqlite3_file* file) noexcept { unixFile(file)->pMethods->xShmBarrier(unixFile(file)); }

    sqlite3_vfs* const unixVfs = sqlite3_vfs_find("unix");
    sqlite3_vfs vfs = *unixVfs;
    sqlite3_io_methods methods = {};
};

DiskModelVfs& DiskModelVfs::getInstance()
{
    // Never deleted, as SQLite keeps a pointer to it.
    static DiskModelVfs* const instance = new DiskModelVfs;
    return *instance;
}

DiskModelVfs::DiskModelVfs() : m_hooks(new Hooks)
{
    using Methods = sqlite3_io_methods;
    Methods& methods = m_hooks->methods;
    // Version 2 has shared memory but no mapped pages: every change of a durable file is a call.
    methods.iVersion = 2;
    methods.xClose = Hooks::forward<&Methods::xClose>;
    methods.xRead = Hooks::forward<&Methods::xRead, void*, int, sqlite3_int64>;
    methods.xWrite = Hooks::write;
    methods.xTruncate = Hooks::truncate;
    methods.xSync = Hooks::forward<&Methods::xSync, int>;
    methods.xFileSize = Hooks::forward<&Methods::xFileSize, sqlite3_int64*>;
    methods.xLock = Hooks::forward<&Methods::xLock, int>;
    methods.xUnlock = Hooks::forward<&Methods::xUnlock, int>;
    methods.xCheckReservedLock = Hooks::forward<&Methods::xCheckReservedLock, int*>;
    methods.xFileControl = Hooks::forward<&Methods::xFileControl, int, void*>;
    methods.xSectorSize = Hooks::forward<&Methods::xSectorSize>;
    methods.xDeviceCharacteristics = Hooks::forward<&Methods::xDeviceCharacteristics>;
    methods.xShmMap = Hooks::forward<&Methods::xShmMap, int, int, int, void volatile**>;
    methods.xShmLock = Hooks::forward<&Methods::xShmLock, int, int, int>;
    methods.xShmBarrier = Hooks::shmBarrier;
    methods.xShmUnmap = Hooks::forward<&Methods::xShmUnmap, int>;

    // Copy the unix VFS, so that its other functions find their data in the copy.
    sqlite3_vfs& vfs = m_hooks->vfs;
    vfs.pNext = nullptr;
    vfs.zName = "disk-model";
    vfs.szOsFile += static_cast<int>(kUnixFileOffset);
    vfs.xOpen = Hooks::open;
    vfs.xDelete = Hooks::remove;

    if (sqlite3_vfs_register(&vfs, 1) != SQLITE_OK)
    {
        throw std::runtime_error("SQLite does not take the disk model");
    }
}

void DiskModelVfs::start(std::string const& directory)
{
    m_directory = std::filesystem::canonical(directory).string() + "/"; // The form of SQLite's paths.
    m_operations.clear();
    m_nextFile = 0;
}

void DiskModelVfs::stop()
{
    for (auto const& [name, file] : m_files)
    {
        ::close(file.descriptor);
    }
    m_files.clear();
    m_directory.clear();
}

std::vector<DiskOperation> const& DiskModelVfs::operations()
{
    if (!m_directory.empty())
    {
        noticeOutsideChanges();
    }
    return m_operations;
}

bool DiskModelVfs::isRecorded(std::string const& path) const
{
    return !m_directory.empty() && path.compare(0, m_directory.size(), m_directory) == 0;
}

std::string DiskModelVfs::nameOf(std::string const& path) const
{
    return path.substr(m_directory.size());
}

int DiskModelVfs::fileNumber(std::string const& path) const
{
    return m_files.at(nameOf(path)).number;
}

void DiskModelVfs::recordSynchronisation(int descriptor)
{
    if (m_directory.empty())
    {
        return;
    }
    noticeOutsideChanges();
    struct stat directory = {};
    if (stat(m_directory.c_str(), &directory) == 0 && isSameFile(descriptor, directory))
    {
        record({DiskOperation::SYNC_DIRECTORY});
        return;
    }
    for (auto const& [name, file] : m_files)
    {
        struct stat status = {};
        if (fstat(file.descriptor, &status) == 0 && isSameFile(descriptor, status))
        {
            record({DiskOperation::SYNC_FILE, file.number});
            return;
        }
    }
}

void DiskModelVfs::record(DiskOperation operation)
{
    for (auto& [name, file] : m_files)
    {
        if (file.number == operation.file && operation.kind == DiskOperation::WRITE)
        {
            file.length = std::max(file.length, operation.position + operation.bytes.size());
        }
        else if (file.number == operation.file && operation.kind == DiskOperation::TRUNCATE)
        {
            file.length = operation.position;
        }
    }
    m_operations.push_back(std::move(operation));
}

void DiskModelVfs::recordCreation(std::string const& name)
{
    int const descriptor = ::open((m_directory + name).c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
    {
        throw std::runtime_error("cannot read " + name);
    }
    int const number = m_nextFile++;
    m_files[name] = {number, descriptor, 0, isNameOfSharedMemory(name), {}};
    record({DiskOperation::CREATE, number, name});
    if (m_files[name].isSharedMemory)
    {
        record({DiskOperation::SHARE, number}); // Also an empty file is one that loses its content.
        recordSharedMemory(name);
        return;
    }
    std::string bytes = contentOf(descriptor);
    if (!bytes.empty())
    {
        record({DiskOperation::WRITE, number, {}, 0, std::move(bytes)});
    }
}

void DiskModelVfs::recordRemoval(std::string const& name)
{
    ::close(m_files.at(name).descriptor);
    m_files.erase(name);
    record({DiskOperation::REMOVE, -1, name});
}

void DiskModelVfs::recordSharedMemory(std::string const& name)
{
    NamedFile& file = m_files.at(name);
    std::string bytes = contentOf(file.descriptor);
    if (bytes != file.shared)
    {
        file.shared = bytes;
        record({DiskOperation::SHARE, file.number, {}, 0, std::move(bytes)});
    }
}

void DiskModelVfs::noticeOutsideChanges()
{
    auto const files = m_files;
    for (auto const& [name, file] : files)
    {
        if (!hasName(file.descriptor))
        {
            recordRemoval(name);
        }
        else if (file.isSharedMemory)
        {
            recordSharedMemory(name);
        }
        else if (lengthOf(file.descriptor) != file.length)
        {
            record({DiskOperation::TRUNCATE, file.number, {}, lengthOf(file.descriptor)});
        }
    }
    for (auto const& entry : std::filesystem::directory_iterator(m_directory))
    {
        std::string const name = entry.path().filename().string();
        if (m_files.count(name) == 0)
        {
            recordCreation(name);
        }
    }
}
