#include "DiskModelVfs.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr std::size_t kSectorSize = 512;

/// A file that SQLite has opened; the file of the unix VFS lies behind it in memory.
struct modelFile_t
{
    sqlite3_file base;
    int number; ///< -1: not recorded
};

constexpr std::size_t kUnixFileOffset = (sizeof(modelFile_t) + 15) / 16 * 16;

sqlite3_file* unixFile(sqlite3_file* file)
{
    return reinterpret_cast<sqlite3_file*>(reinterpret_cast<char*>(file) + kUnixFileOffset);
}

int numberOf(sqlite3_file* file)
{
    return reinterpret_cast<modelFile_t*>(file)->number;
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

std::string contentOf(int descriptor)
{
    std::string bytes(lengthOf(descriptor), '\0');
    EXPECT_EQ(pread(descriptor, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    return bytes;
}

/// A number below `bound`, the same on every standard library.
std::size_t pick(std::mt19937_64& random, std::size_t bound)
{
    return static_cast<std::size_t>(random() % bound);
}

} // namespace

// In place of the system's functions, for SQLite and the library too. Nothing is really synchronised: the power of this
// machine is not at stake, and thousands of states are recovered.

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

/// What SQLite calls. An exception must not pass through SQLite, so these end the process with it.
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
        auto& number = reinterpret_cast<modelFile_t*>(file)->number;
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
        if (self.isRecorded(path))
        {
            self.noticeOutsideChanges();
            // Beforehand, as the unix VFS may synchronise the directory before it returns.
            if (self.m_files.count(self.nameOf(path)) != 0)
            {
                self.recordRemoval(self.nameOf(path));
            }
        }
        sqlite3_vfs* const unixVfs = self.m_hooks->unixVfs;
        return unixVfs->xDelete(unixVfs, path, syncDirectory);
    }

    static int close(sqlite3_file* file) noexcept { return unixFile(file)->pMethods->xClose(unixFile(file)); }

    static int read(sqlite3_file* file, void* bytes, int count, sqlite3_int64 offset) noexcept
    {
        return unixFile(file)->pMethods->xRead(unixFile(file), bytes, count, offset);
    }

    static int write(sqlite3_file* file, void const* bytes, int count, sqlite3_int64 offset) noexcept
    {
        if (numberOf(file) >= 0)
        {
            std::string text(static_cast<char const*>(bytes), static_cast<std::size_t>(count));
            getInstance().record(
                {DiskOperation::WRITE, numberOf(file), {}, static_cast<std::size_t>(offset), std::move(text)});
        }
        return unixFile(file)->pMethods->xWrite(unixFile(file), bytes, count, offset);
    }

    static int truncate(sqlite3_file* file, sqlite3_int64 length) noexcept
    {
        if (numberOf(file) >= 0)
        {
            getInstance().record({DiskOperation::TRUNCATE, numberOf(file), {}, static_cast<std::size_t>(length)});
        }
        return unixFile(file)->pMethods->xTruncate(unixFile(file), length);
    }

    static int sync(sqlite3_file* file, int flags) noexcept
    {
        return unixFile(file)->pMethods->xSync(unixFile(file), flags);
    }

    static int fileSize(sqlite3_file* file, sqlite3_int64* size) noexcept
    {
        return unixFile(file)->pMethods->xFileSize(unixFile(file), size);
    }

    static int lock(sqlite3_file* file, int level) noexcept
    {
        return unixFile(file)->pMethods->xLock(unixFile(file), level);
    }

    static int unlock(sqlite3_file* file, int level) noexcept
    {
        return unixFile(file)->pMethods->xUnlock(unixFile(file), level);
    }

    static int checkReservedLock(sqlite3_file* file, int* result) noexcept
    {
        return unixFile(file)->pMethods->xCheckReservedLock(unixFile(file), result);
    }

    static int fileControl(sqlite3_file* file, int operation, void* argument) noexcept
    {
        return unixFile(file)->pMethods->xFileControl(unixFile(file), operation, argument);
    }

    static int sectorSize(sqlite3_file* file) noexcept { return unixFile(file)->pMethods->xSectorSize(unixFile(file)); }

    static int deviceCharacteristics(sqlite3_file* file) noexcept
    {
        return unixFile(file)->pMethods->xDeviceCharacteristics(unixFile(file));
    }

    sqlite3_vfs* const unixVfs = sqlite3_vfs_find("unix");
    sqlite3_vfs vfs = *unixVfs;
    sqlite3_io_methods methods = {};
};

DiskModelVfs& DiskModelVfs::getInstance()
{
    // Never deleted: SQLite keeps pointing to it.
    static DiskModelVfs* const instance = new DiskModelVfs;
    return *instance;
}

DiskModelVfs::DiskModelVfs() : m_hooks(new Hooks)
{
    sqlite3_io_methods& methods = m_hooks->methods;
    // Version 1 has neither shared memory nor mapped pages: every change of a file is a call.
    methods.iVersion = 1;
    methods.xClose = Hooks::close;
    methods.xRead = Hooks::read;
    methods.xWrite = Hooks::write;
    methods.xTruncate = Hooks::truncate;
    methods.xSync = Hooks::sync;
    methods.xFileSize = Hooks::fileSize;
    methods.xLock = Hooks::lock;
    methods.xUnlock = Hooks::unlock;
    methods.xCheckReservedLock = Hooks::checkReservedLock;
    methods.xFileControl = Hooks::fileControl;
    methods.xSectorSize = Hooks::sectorSize;
    methods.xDeviceCharacteristics = Hooks::deviceCharacteristics;

    // The other functions of the copy find in it what they would find in the original.
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
    m_directory = std::filesystem::canonical(directory).string() + "/"; // As SQLite writes its paths.
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
    m_files[name] = {number, descriptor, 0};
    record({DiskOperation::CREATE, number, name});
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

void DiskModelVfs::noticeOutsideChanges()
{
    auto const files = m_files;
    for (auto const& [name, file] : files)
    {
        if (!hasName(file.descriptor))
        {
            recordRemoval(name);
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

void DiskModel::apply(DiskOperation const& operation)
{
    switch (operation.kind)
    {
    case DiskOperation::CREATE:
        m_files[operation.file] = {};
        setEntry(operation.name, operation.file);
        break;
    case DiskOperation::REMOVE:
        setEntry(operation.name, std::nullopt);
        break;
    case DiskOperation::WRITE:
        m_files.at(operation.file).write(operation.position, operation.bytes);
        break;
    case DiskOperation::TRUNCATE:
        m_files.at(operation.file).truncate(operation.position);
        break;
    case DiskOperation::SYNC_FILE:
        m_files.at(operation.file).synchronise();
        break;
    case DiskOperation::SYNC_DIRECTORY:
        m_synchronisedNames = m_currentNames;
        m_pendingNames.clear();
        break;
    }
}

void DiskModel::synchronise()
{
    for (auto& [number, file] : m_files)
    {
        file.synchronise();
    }
    apply({DiskOperation::SYNC_DIRECTORY});
}

void DiskModel::setEntry(std::string const& name, entry_t entry)
{
    m_pendingNames[name].push_back(entry);
    if (entry)
    {
        m_currentNames[name] = *entry;
    }
    else
    {
        m_currentNames.erase(name);
    }
}

bool DiskModel::isPending() const
{
    auto const isFilePending = [this](auto const& entry) { return m_files.at(entry.second).isPending(); };
    return !m_pendingNames.empty() || std::any_of(m_currentNames.begin(), m_currentNames.end(), isFilePending);
}

DiskModel::files_t DiskModel::synchronised() const
{
    files_t files;
    for (auto const& [name, number] : m_synchronisedNames)
    {
        files[name] = m_files.at(number).synchronised();
    }
    return files;
}

DiskModel::files_t DiskModel::current() const
{
    files_t files;
    for (auto const& [name, number] : m_currentNames)
    {
        files[name] = m_files.at(number).current();
    }
    return files;
}

DiskModel::files_t DiskModel::anyState(std::uint64_t seed) const
{
    std::mt19937_64 random(seed);
    auto names = m_synchronisedNames;
    for (auto const& [name, entries] : m_pendingNames)
    {
        std::size_t const choice = pick(random, entries.size() + 1);
        if (choice == entries.size())
        {
            continue; // As it was synchronised.
        }
        names.erase(name);
        if (entries[choice])
        {
            names[name] = *entries[choice];
        }
    }
    files_t files;
    for (auto const& [name, number] : names)
    {
        files[name] = m_files.at(number).anyState(random);
    }
    return files;
}

void DiskModel::File::write(std::size_t position, std::string const& bytes)
{
    std::size_t const end = position + bytes.size();
    std::size_t const oldLength = m_current.size();
    if (end > oldLength)
    {
        m_current.resize(end);
        m_lengths.push_back(end);
    }
    m_current.replace(position, bytes.size(), bytes);
    rememberSectors(std::min(position, oldLength), end); // From the old end on: a gap reads as zeros.
}

void DiskModel::File::truncate(std::size_t length)
{
    std::size_t const oldLength = m_current.size();
    m_current.resize(length);
    m_lengths.push_back(length);
    if (length > oldLength)
    {
        rememberSectors(oldLength, length); // Reads as zeros. What is cut off stays, for the old length may come back.
    }
}

/// Remembers the content of the sectors that hold the bytes from `begin` to `end`, as it is now.
void DiskModel::File::rememberSectors(std::size_t begin, std::size_t end)
{
    for (std::size_t sector = begin / kSectorSize; sector * kSectorSize < end; ++sector)
    {
        std::string content = m_current.substr(sector * kSectorSize, kSectorSize);
        content.resize(kSectorSize);
        m_sectors[sector].push_back(std::move(content));
    }
}

void DiskModel::File::synchronise()
{
    m_synchronised = m_current;
    m_sectors.clear();
    m_lengths.clear();
}

/// The synchronised content at another length.
std::string DiskModel::File::resized(std::size_t length, std::mt19937_64& random) const
{
    std::string content = m_synchronised.substr(0, length);
    std::size_t const oldLength = content.size();
    content.resize(length); // Zeros.
    switch (pick(random, 3))
    {
    case 0:
        for (std::size_t i = oldLength; i < length; ++i)
        {
            content[i] = static_cast<char>(random() & 0xFF);
        }
        break;
    case 1:
        // Blocks that were in use before, and look like what belongs there.
        for (std::size_t i = oldLength; i < length && oldLength != 0; ++i)
        {
            content[i] = content[i % oldLength];
        }
        break;
    default:
        break;
    }
    return content;
}

std::string DiskModel::File::anyState(std::mt19937_64& random) const
{
    // All or nothing of a file, and nearly so, is what a disk does most; each sector for itself would hardly ever.
    enum share_t
    {
        NOTHING,
        FEW,
        HALF,
        MOST,
        EVERYTHING,
        SHARE_COUNT
    };
    constexpr std::size_t kKeptOfTen[SHARE_COUNT] = {0, 1, 5, 9, 10};
    std::size_t const keptOfTen = kKeptOfTen[pick(random, SHARE_COUNT)];
    bool const isLatestLength = m_lengths.empty() || pick(random, 10) < keptOfTen;
    std::size_t const lengthChoice = pick(random, m_lengths.size() + 1);

    std::size_t length = m_current.size();
    if (!isLatestLength)
    {
        length = lengthChoice == m_lengths.size() ? m_synchronised.size() : m_lengths[lengthChoice];
    }
    std::string content = resized(length, random);
    for (auto const& [sector, versions] : m_sectors)
    {
        if (pick(random, 10) >= keptOfTen || sector * kSectorSize >= length)
        {
            continue;
        }
        // Mostly the last content; sometimes an earlier one that had been on its way to the disk.
        std::size_t const choice = pick(random, 4) == 0 ? pick(random, versions.size()) : versions.size() - 1;
        std::size_t const count = std::min(kSectorSize, length - sector * kSectorSize);
        content.replace(sector * kSectorSize, count, versions[choice], 0, count);
    }
    return content;
}
