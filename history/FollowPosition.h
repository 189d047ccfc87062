#pragma once

#include <db/Export.h>

#include <cstdint>
#include <optional>
#include <string>

namespace firaim
{

/// The position of a follower in a file: behind the row with a key. A plain value; its text can be kept over restarts.
/// The default is the position before the first fault of any file.
///
/// The row identifies a history. Device and inode alone do not: they change when a device restarts with other disks or
/// the file is copied or restored, and they stay when the content is replaced in place.
/// - The same row under the same key: the same history, whatever device and inode are.
/// - Another row under that key: another history.
/// - No row under that key, and another device or inode: another history.
/// - No row under that key, and the same device and inode: the row was removed, unless keys have gone back.
///
/// Two rows are the same when their code, module, parameter, time stamp and system date-time text are. Status, start-up
/// id, names and description may be rewritten.
struct FIRAIM_EXPORT FollowPosition
{
    std::uint64_t device = 0;        ///< of the file, from stat; 0 with `inode` 0: any file
    std::uint64_t inode = 0;         ///< of the file, from stat
    std::optional<std::int64_t> key; ///< key of the last row, even if it is gone; none before the first
    std::optional<std::uint64_t>
        rowHash; ///< FNV-1a of the identifying cells of that row; none if it is known to be gone

    /// The position as one line of printable ASCII without blanks.
    std::string toText() const;
    /// Parses a text of `toText`. Returns false and leaves `position` unchanged for any other text.
    static bool fromText(std::string const& text, FollowPosition& position);
};

} // namespace firaim
