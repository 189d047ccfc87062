#pragma once

#include <algorithm>
#include <chrono>

namespace firaim
{

/// Deadlines of calls, on the monotonic clock.
namespace deadline
{

using TimePoint = std::chrono::steady_clock::time_point;

/// Limits a wait to a year, which is as good as for ever; a negative wait is 0.
inline std::chrono::milliseconds bounded(std::chrono::milliseconds wait)
{
    constexpr std::chrono::hours kLongest(24 * 365);
    return std::clamp<std::chrono::milliseconds>(wait, std::chrono::milliseconds(0), kLongest);
}

/// The deadline of a wait that begins now.
inline TimePoint after(std::chrono::milliseconds wait)
{
    return std::chrono::steady_clock::now() + bounded(wait);
}

/// The time until `end`; 0 if that has passed.
inline std::chrono::milliseconds timeTo(TimePoint end)
{
    auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    return std::max(left, std::chrono::milliseconds(0));
}

} // namespace deadline

} // namespace firaim
