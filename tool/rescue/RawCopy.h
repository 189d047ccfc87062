#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace tool
{

/// A copy of the bytes of a database, its journal and its log, taken together under the lock of a reader. Bytes that
/// the storage cannot read are zeros.
class RawCopy
{
public:
    /// Bytes that could not be read.
    struct Gap
    {
        std::string path;
        std::uint64_t first; ///< offset
        std::uint64_t last;
    };

    /// Copies the database at `path` to `target`, and journal and log, where they have content, beside it. Calls
    /// `showShare` with the copied share, between 0 and 1. Never writes to the folder of `path`. Throws a Problem, also
    /// when another process keeps the file locked for a busy timeout, and interrupt::Interrupted.
    RawCopy(std::string const& path, std::string const& target, std::function<void(double share)> const& showShare);

    /// Whether nobody wrote to the files meanwhile.
    bool isConsistent() const { return m_isConsistent; }
    bool hasJournal() const { return m_hasJournal; }
    bool hasLog() const { return m_hasLog; }
    /// The unreadable bytes, joined where they follow each other.
    std::vector<Gap> const& gaps() const { return m_gaps; }
    /// The permissions of the database.
    mode_t mode() const { return m_mode; }

private:
    struct Source;

    void copyAll(std::vector<Source> const& sources, std::string const& target,
                 std::function<void(double share)> const& showShare);
    void readSectors(Source const& source, std::uint64_t offset, std::string& chunk);
    void addGap(std::string const& path, std::uint64_t offset, std::uint64_t count);

    bool m_isConsistent = false;
    bool m_hasJournal = false;
    bool m_hasLog = false;
    mode_t m_mode = 0;
    std::vector<Gap> m_gaps;
};

} // namespace tool
