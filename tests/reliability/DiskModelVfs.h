#pragma once

#include "DiskModel.h"

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// SQLite's default file system for the rest of the process: the unix VFS, recording its operations in one directory.
///
/// The library also creates and removes files without SQLite. To detect this, the directory is compared with its
/// expected content before each operation of SQLite and each synchronisation. fsync and fdatasync of the whole process
/// are replaced by functions that only record.
///
/// The shared memory of a write-ahead log passes through to the unix VFS. Its content is recorded as it is found before
/// these operations, as SQLite changes it without a call.
///
/// SQLite and the library decide about synchronisation: the unix VFS runs below the recording and works on real files,
/// and its calls of fsync are recorded, not imitated. So the directory is synchronised when SQLite does that: with the
/// first synchronisation of a journal that it opened for writing, and after a removal that must be durable.
///
/// Not thread-safe. There is one object for the process, created by the first `getInstance`.
class DiskModelVfs
{
public:
    static DiskModelVfs& getInstance();

    DiskModelVfs(DiskModelVfs const&) = delete;
    DiskModelVfs& operator=(DiskModelVfs const&) = delete;

    /// Records the operations in `directory` until `stop`. Existing files are recorded as created and written.
    void start(std::string const& directory);
    void stop();

    /// Makes SQLite fail to delete a file, as in a folder whose files belong to others, or stops that.
    void keepJournals(bool isOn) { m_areJournalsKept = isOn; }

    /// Called by the replaced fsync and fdatasync.
    void recordSynchronisation(int descriptor);

    /// All operations since `start`, including those without SQLite.
    std::vector<DiskOperation> const& operations();

private:
    struct Hooks;

    /// A file with a directory entry. It is kept open, so that its inode is not reused.
    struct NamedFile
    {
        int number;
        int descriptor;
        std::size_t length;
        bool isSharedMemory;
        std::string shared; ///< the content of shared memory when it was recorded last
    };

    DiskModelVfs();

    bool isRecorded(std::string const& path) const;
    std::string nameOf(std::string const& path) const;
    int fileNumber(std::string const& path) const;
    void record(DiskOperation operation);
    void recordCreation(std::string const& name);
    void recordRemoval(std::string const& name);
    void recordSharedMemory(std::string const& name);
    void noticeOutsideChanges();

    std::unique_ptr<Hooks> m_hooks;
    std::string m_directory; ///< empty while nothing is recorded
    std::map<std::string, NamedFile> m_files;
    std::vector<DiskOperation> m_operations;
    int m_nextFile = 0;
    bool m_areJournalsKept = false;
};
