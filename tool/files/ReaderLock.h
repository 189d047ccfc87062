#pragma once

#include <tool/files/Descriptor.h>

#include <string>

namespace tool
{

/// The locks that keep a database and its write-ahead log unchanged while they are read without SQLite. They are those
/// of SQLite's readers, on files that are opened for reading only. Not while this process has the database open
/// otherwise: closing a descriptor drops all locks of the process on the file.
class ReaderLock
{
public:
    /// Opens and locks the database at `path`, which is no link. Waits for a writer. Throws a Problem if the database
    /// cannot be opened or stays locked, and interrupt::Interrupted. A file system without locks grants none: the
    /// caller looks for changes.
    explicit ReaderLock(std::string const& path);

    Descriptor const& file() const { return m_file; }

    /// Whether another process has begun to write. Its journal is not hot: the database is whole without it as long as
    /// the lock is held.
    bool isBeingWritten() const;

private:
    Descriptor const m_file;
    Descriptor const m_sharedMemory; ///< of the log; empty if no process uses the log
};

/// Opens a regular file for reading; the result is empty if there is none. Throws a Problem.
Descriptor openIfThere(std::string const& path);

} // namespace tool
