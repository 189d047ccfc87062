#pragma once

#include <algorithm>
#include <chrono>

namespace firaim
{

/// The end of a call's time, on the clock that nobody sets.
namespace deadline
{

using TimePoint = std::chrono::steady_clock::time_point;

/// A wait of years is as good as for ever, and one below 0 is none.
inline std::chrono::milliseconds bounded(std::chrono::milliseconds wait)
{
    constexpr std::chrono::hours kLongest(24 * 365);
    return std::clamp<std::chrono::milliseconds>(wait, std::chrono::milliseconds(0), kLongest);
}

/// The end of a wait that begins now.
inline TimePoint after(std::chrono::milliseconds wait)
{
    return std::chrono::steady_clock::now() + bounded(wait);
}

/// How long it is until `end`; 0 when that has passed.
inline std::chrono::milliseconds timeTo(TimePoint end)
{
    auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    return std::max(left, std::chrono::milliseconds(0));
}

} // namespace deadline

} // namespace firaim
