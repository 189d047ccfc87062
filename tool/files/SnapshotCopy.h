#pragma once

#include <db/internal/FilePath.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tool
{

/// Bytes of a file that the medium did not return.
struct UnreadableBytes
{
    std::string path; ///< the database, its journal or its log
    std::int64_t offset;
    std::int64_t size;
};

/// A copy of a database together with its journal and its write-ahead log, as they are at one moment. The names of the
/// copies relate as those of the files, so that SQLite finds the journal and the log of the copy.
struct SnapshotCopy
{
    bool hasJournal = false;                 ///< a hot journal was copied: SQLite rolls it back when it opens the copy
    bool hasLog = false;                     ///< a log with content was copied
    std::vector<UnreadableBytes> unreadable; ///< zeros in the copies
};

enum class UnreadablePolicy
{
    REFUSE,         ///< throw a Problem
    FILL_WITH_ZEROS ///< copy the rest of the file
};

/// Copies the database at `path` to the new file `copy`, its journal to `copy`-journal and its log to `copy`-wal. No
/// other process may use the folder of `copy`: a WorkingFolder is made for this. The copies are not synchronised.
///
/// Writes neither to the file nor beside it; nor does SQLite when it rolls the copy back. Judges no content: the file
/// may be damaged. Holds a shared lock, as SQLite's readers do, so that writers wait. Files that change nevertheless
/// are copied again.
///
/// No connection of this process may have the database open: closing a descriptor of it drops their locks.
///
/// Calls `showShare` with the copied share of the database, between 0 and 1. Throws interrupt::Interrupted, or a
/// Problem that names the file that cannot be read or written, that stays locked, or that changes again and again.
SnapshotCopy copySnapshot(FilePath const& path, std::string const& copy, UnreadablePolicy policy,
                          std::function<void(double share)> const& showShare);

} // namespace tool
