#pragma once

#include <array>
#include <cstddef>
#include <vector>

/// The blocks that this thread gives back while the object lives, in order.
class ReleaseLog
{
public:
    ReleaseLog();
    ~ReleaseLog();
    ReleaseLog(ReleaseLog const&) = delete;
    ReleaseLog& operator=(ReleaseLog const&) = delete;

    void note(void const* block);

    /// The order in which those of `blocks` were released that were released. Ends the log.
    std::vector<void const*> of(std::vector<void const*> const& blocks) const;

private:
    // In a fixed place, because noting a block must not allocate.
    std::array<void const*, 100> m_blocks{};
    std::size_t m_count = 0;
};

/// Makes operator new fail on this thread for as long as it lives.
class RefusedAllocations
{
public:
    RefusedAllocations();
    ~RefusedAllocations();
    RefusedAllocations(RefusedAllocations const&) = delete;
    RefusedAllocations& operator=(RefusedAllocations const&) = delete;
};
