#pragma once

#include <tool/files/TemporaryFile.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tool
{

/// The pages of a file, as its header and its size tell them.
struct PageCounts
{
    std::uint32_t pageSize = 0; ///< 0: the header is none of a database
    std::uint64_t expected = 0; ///< by the header; 0: the header does not tell
    std::uint64_t whole = 0;    ///< that lie in the file
    std::uint64_t size = 0;     ///< of the file, in bytes
    bool isInWalMode = false;
    bool hasLog = false; ///< a write-ahead log with content is beside it

    /// Whether the end of the file is missing.
    bool isCut() const { return whole < expected; }
};

/// Reads the counts of the file at `path`. A file in write-ahead-log mode beside a log has no expected number, as pages
/// may be in the log or on their way from there. Throws sqlite::Error.
PageCounts countPages(std::string const& path);

/// The file at `path`, copied byte by byte under a shared lock.
struct ByteCopy
{
    PageCounts pages;
    std::vector<std::uint64_t> unreadable; ///< pages that the medium failed to give; zeros in the copy
};

/// Copies the whole pages of the file at `path`, for a file that SQLite does not open because it is cut off or because
/// the medium fails at a page. The header of the copy says how many pages the copy has, and that it has no write-ahead
/// log, so that SQLite opens it. Throws sqlite::Error when the file cannot be read, std::system_error when the copy
/// cannot be written.
ByteCopy copyBytes(std::string const& path, TemporaryFile const& copy,
                   std::function<void(double share)> const& showShare);

/// Makes the header of `copy`, a copy of a file in write-ahead-log mode, ask for no log.
void leaveWalMode(TemporaryFile const& copy);

} // namespace tool
