#pragma once

#include <db/Export.h>

#include <cstdint>
#include <optional>
#include <string>

/// The time stamps of a file, which are numbers in the unit of whoever recorded them. Between stamps and texts a time
/// is a number of milliseconds since 1970-01-01 UTC. All functions may be called by any thread.
namespace firaim
{

/// The unit of the time stamps in a file.
enum class TimeUnit : int
{
    GUESSED, ///< told by the number's size: each unit has its own decades around now
    SECONDS,
    MILLISECONDS,
    MICROSECONDS,
    NANOSECONDS
};

/// The time now, in milliseconds.
FIRAIM_EXPORT std::int64_t currentTime();

/// The time that `stamp` tells, in milliseconds; none for 0, which means that it was not set, and beyond the year 9999.
FIRAIM_EXPORT std::optional<std::int64_t> timeOf(unsigned long long stamp, TimeUnit unit);

/// The unit that `stamp` seems to be in; GUESSED when it is too small to tell.
FIRAIM_EXPORT TimeUnit unitOf(unsigned long long stamp);

/// The stamp of a time given in milliseconds; GUESSED means milliseconds. None where it would be no number from 1 to
/// 2^63 - 1.
FIRAIM_EXPORT std::optional<unsigned long long> stampOf(std::int64_t milliseconds, TimeUnit unit);

/// The ISO 8601 text of a time in UTC, "2031-05-04T03:02:01.000Z" for example; the plain number before the year 0 and
/// after the year 9999.
FIRAIM_EXPORT std::string utcText(std::int64_t milliseconds);

} // namespace firaim
