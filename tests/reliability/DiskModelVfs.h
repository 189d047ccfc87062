#pragma once

#include "DiskModel.h"

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// SQLite's default file system for the rest of the process: the unix VFS, whose work in one directory is recorded.
///
/// The library also makes and removes files without SQLite. That is noticed, before the next operation of SQLite or
/// the next synchronisation, by comparing the directory with what it should hold. fsync and fdatasync of the whole
/// process are replaced by functions that record and do nothing else.
///
/// Which synchronisations take place is SQLite's own doing, and the library's: the unix VFS of SQLite runs below the
/// recording and works on real files, and what it asks the system to synchronise is recorded, not imitated. So the
/// directory is synchronised where SQLite does that: with the first synchronisation of a journal that it opened for
/// writing, and after a removal that was asked to last.
///
/// Threads: none; one object for the process, made by the first `getInstance`.
class DiskModelVfs
{
public:
    static DiskModelVfs& getInstance();

    DiskModelVfs(DiskModelVfs const&) = delete;
    DiskModelVfs& operator=(DiskModelVfs const&) = delete;

    /// Records what is done in `directory` until `stop`. Files that are there already are recorded as made and written.
    void start(std::string const& directory);
    void stop();

    /// The operation behind fsync and fdatasync.
    void recordSynchronisation(int descriptor);

    /// Everything done since `start`, changes that went past SQLite included.
    std::vector<DiskOperation> const& operations();

private:
    struct Hooks;

    /// A file that has a name. It is kept open so that its inode is not given to another one.
    struct NamedFile
    {
        int number;
        int descriptor;
        std::size_t length;
    };

    DiskModelVfs();

    bool isRecorded(std::string const& path) const;
    std::string nameOf(std::string const& path) const;
    int fileNumber(std::string const& path) const;
    void record(DiskOperation operation);
    void recordCreation(std::string const& name);
    void recordRemoval(std::string const& name);
    void noticeOutsideChanges();

    std::unique_ptr<Hooks> m_hooks;
    std::string m_directory; ///< empty outside a recording
    std::map<std::string, NamedFile> m_files;
    std::vector<DiskOperation> m_operations;
    int m_nextFile = 0;
};
