#pragma once

#include <array>
#include <cstddef>
#include <vector>

/// Logs the blocks that this thread releases while the object lives, in order.
class ReleaseLog
{
public:
    ReleaseLog();
    ~ReleaseLog();
    ReleaseLog(ReleaseLog const&) = delete;
    ReleaseLog& operator=(ReleaseLog const&) = delete;

    void note(void const* block);

    /// The released ones among `blocks`, in the order of their release. Ends the log.
    std::vector<void const*> of(std::vector<void const*> const& blocks) const;

private:
    // A fixed array, because logging a block must not allocate.
    std::array<void const*, 100> m_blocks{};
    std::size_t m_count = 0;
};

/// Makes operator new fail on this thread while the object lives.
class RefusedAllocations
{
public:
    RefusedAllocations();
    ~RefusedAllocations();
    RefusedAllocations(RefusedAllocations const&) = delete;
    RefusedAllocations& operator=(RefusedAllocations const&) = delete;
};
