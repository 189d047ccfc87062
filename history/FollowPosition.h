#pragma once

#include <db/Export.h>

#include <cstdint>
#include <optional>
#include <string>

namespace firaim
{

/// Where a follower of new faults stands: behind the row with a key, in a file. A plain value that can be kept as text,
/// over restarts too. The default is before the first fault of any file.
///
/// The row tells one history from another: device and inode alone change when a device is restarted with other
/// disks or the file is copied or restored, and stay when the content is replaced in place. So a file that holds the
/// same row under the same key is the same history, under whatever number. A file that holds another row under that key
/// is another history, and so is a file with another number without that row. In a file with the same number, a row
/// that is missing has been removed, unless keys have gone back.
///
/// A row is the same when its code, module, parameter, time stamp and system date-time text are. Status, start-up id,
/// names and description may be rewritten.
struct FIRAIM_EXPORT FollowPosition
{
    std::uint64_t device = 0;             ///< of the file, as stat tells it; 0 with `inode` 0: of any file
    std::uint64_t inode = 0;              ///< as `device`
    std::optional<std::int64_t> key;      ///< of the last row, also where that is gone; none before the first
    std::optional<std::uint64_t> rowHash; ///< FNV-1a of those cells of that row; none when it is known to be gone

    /// One line of printable ASCII without blanks.
    std::string toText() const;
    /// Returns whether `text` is one that `toText` gives; otherwise `position` is left as it was.
    static bool fromText(std::string const& text, FollowPosition& position);
};

} // namespace firaim
