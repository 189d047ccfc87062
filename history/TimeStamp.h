#pragma once

#include <db/Export.h>

#include <cstdint>
#include <optional>
#include <string>

/// Conversion of the time stamps in a file, which are numbers in the unit of the recording application. A time between
/// stamp and text is a number of milliseconds since 1970-01-01 UTC. Any thread may call all functions.
namespace firaim
{

/// The unit of the time stamps in a file.
enum class TimeUnit : int
{
    GUESSED, ///< judged by the number's size: each unit has its own range for the decades around now
    SECONDS,
    MILLISECONDS,
    MICROSECONDS,
    NANOSECONDS
};

/// The time now, in milliseconds.
FIRAIM_EXPORT std::int64_t currentTime();

/// The time of `stamp`, in milliseconds; none for 0, which means unset, and beyond the year 9999.
FIRAIM_EXPORT std::optional<std::int64_t> timeOf(unsigned long long stamp, TimeUnit unit);

/// The unit that `stamp` seems to have; GUESSED if it is too small to tell.
FIRAIM_EXPORT TimeUnit unitOf(unsigned long long stamp);

/// The stamp of a time in milliseconds; GUESSED means milliseconds. None if it is not from 1 to 2^63 - 1.
FIRAIM_EXPORT std::optional<unsigned long long> stampOf(std::int64_t milliseconds, TimeUnit unit);

/// The ISO 8601 text of a time in UTC, for example "2031-05-04T03:02:01.000Z"; the plain number before the year 0 and
/// after the year 9999.
FIRAIM_EXPORT std::string utcText(std::int64_t milliseconds);

} // namespace firaim
