#pragma once

#include <cstdint>
#include <limits>

namespace tool
{

/// The keys from `first` to `last`, both included.
struct KeyRange
{
    std::int64_t first = std::numeric_limits<std::int64_t>::min();
    std::int64_t last = std::numeric_limits<std::int64_t>::max();

    bool isEmpty() const { return first > last; }
    bool has(std::int64_t key) const { return first <= key && key <= last; }
    /// Whether all keys of `other` lie in this range.
    bool has(KeyRange const& other) const { return first <= other.first && other.last <= last; }
};

} // namespace tool
