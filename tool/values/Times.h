#pragma once

#include <history/TimeStamp.h>

#include <cstdint>
#include <optional>
#include <string>

/// Reads and prints times as ISO 8601, in UTC or in the local time zone. Inside the program a time is a number of
/// milliseconds since 1970-01-01 UTC.
namespace tool
{

using firaim::TimeUnit;

/// How times are read and printed.
struct TimeStyle
{
    TimeUnit unit = TimeUnit::GUESSED;
    bool isLocal = false; ///< in the local time zone instead of UTC
};

/// The time span that a text names, such as a whole day, minute or second: from `begin` up to but not including `end`.
struct Period
{
    std::int64_t begin;
    std::int64_t end;
};

/// The period that an ISO 8601 text names: "2031-05-04", "2031-05-04T03:02", "2031-05-04T03:02:01.5Z",
/// "2031-05-04 03:02:01+01:00". A text without a time zone is in that of `style`. None for any other text.
std::optional<Period> parseTime(std::string const& text, TimeStyle const& style);

/// The same for the value of an option, but throws a Problem when it is not a time.
Period requireTime(std::string const& text, TimeStyle const& style);

/// The ISO 8601 text of a time; the plain number of milliseconds outside of the years that ISO 8601 can name.
std::string isoText(std::int64_t milliseconds, TimeStyle const& style);

/// The ISO 8601 text of a stamp; "-" for one that was not set, the plain number for one beyond the year 9999.
std::string stampText(unsigned long long stamp, TimeStyle const& style);

} // namespace tool
