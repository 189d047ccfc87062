#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// Times as people write them (ISO 8601) and as the file holds them: numbers in the unit of whoever recorded them.
/// Between the two, a time is a number of milliseconds since 1970-01-01 UTC.
namespace tool
{

/// The unit of the time stamps in a file.
enum class timeUnit_t
{
    GUESSED, ///< told by the number's size: each unit has its own decades around now
    SECONDS,
    MILLISECONDS,
    MICROSECONDS,
    NANOSECONDS
};

/// How times are read and shown.
struct TimeStyle
{
    timeUnit_t unit = timeUnit_t::GUESSED;
    bool isLocal = false; ///< in the time zone of this machine and not in UTC
};

/// The moments that a text names, which may be a whole day, minute or second: from `begin` up to but not including
/// `end`.
struct period_t
{
    std::int64_t begin;
    std::int64_t end;
};

/// The period that an ISO 8601 text names: "2031-05-04", "2031-05-04T03:02", "2031-05-04T03:02:01.5Z",
/// "2031-05-04 03:02:01+01:00". Without a time zone it is in the one of `style`. None when it is no such text.
std::optional<period_t> parseTime(std::string const& text, TimeStyle const& style);

/// The ISO 8601 text of a time, in milliseconds; the plain number when it lies beyond the calendar.
std::string isoText(std::int64_t milliseconds, TimeStyle const& style);

/// The time that a stamp of the file tells; none for 0, which means that it was not set, and beyond the calendar.
std::optional<std::int64_t> timeOf(unsigned long long stamp, TimeStyle const& style);

/// The ISO 8601 text of a stamp, "-" when it was not set, the plain number beyond the calendar.
std::string stampText(unsigned long long stamp, TimeStyle const& style);

/// The unit that `stamp`, one of the file, seems to be in; GUESSED when it is too small to tell.
timeUnit_t unitOf(unsigned long long stamp);

/// The stamp of a time in `unit`, milliseconds when that is to be guessed; none where it is no number above 0 that
/// SQLite can hold, or where `reader` would take it for another time.
std::optional<unsigned long long> stampOf(std::int64_t milliseconds, timeUnit_t unit, TimeStyle const& reader);

/// The time now.
std::int64_t currentTime();

} // namespace tool
