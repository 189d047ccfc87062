#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace tool
{

/// The work of a recovery.
struct Recovery
{
    bool isRolledBack = false;   ///< the file had a hot journal
    std::int64_t pagesOfLog = 0; ///< copied from the write-ahead log into the file
};

/// Rolls back a hot journal of the fault database at `path` and checkpoints its write-ahead log, so that the file can
/// be read alone. Throws a Problem when that fails.
Recovery recoverFile(std::string const& path);

/// Copies the fault database at `path` with its journal and log, and recovers the copy. Changes no byte of the file or
/// beside it. The copy gets its name `target` when it is whole and on the storage. Throws a Problem, also if `target`
/// exists, and interrupt::Interrupted; there is no `target` then. Calls `showShare` as `copySnapshot` does.
Recovery recoverCopy(std::string const& path, std::string const& target,
                     std::function<void(double share)> const& showShare);

} // namespace tool
