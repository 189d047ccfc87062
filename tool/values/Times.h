#pragma once

#include <history/TimeStamp.h>

#include <cstdint>
#include <optional>
#include <string>

/// Times as people write them (ISO 8601), in UTC or in the time zone of this machine. Between texts and the stamps of a
/// file, a time is a number of milliseconds since 1970-01-01 UTC.
namespace tool
{

using firaim::TimeUnit;

/// How times are read and shown.
struct TimeStyle
{
    TimeUnit unit = TimeUnit::GUESSED;
    bool isLocal = false; ///< in the time zone of this machine and not in UTC
};

/// The moments that a text names, which may be a whole day, minute or second: from `begin` up to but not including
/// `end`.
struct Period
{
    std::int64_t begin;
    std::int64_t end;
};

/// The period that an ISO 8601 text names: "2031-05-04", "2031-05-04T03:02", "2031-05-04T03:02:01.5Z",
/// "2031-05-04 03:02:01+01:00". Without a time zone it is in the one of `style`. None when it is no such text.
std::optional<Period> parseTime(std::string const& text, TimeStyle const& style);

/// The period that the text of an option names. Throws a Problem when it names none.
Period requireTime(std::string const& text, TimeStyle const& style);

/// The ISO 8601 text of a time, in milliseconds; the plain number when it lies beyond the calendar.
std::string isoText(std::int64_t milliseconds, TimeStyle const& style);

/// The ISO 8601 text of a stamp, "-" when it was not set, the plain number beyond the calendar.
std::string stampText(unsigned long long stamp, TimeStyle const& style);

} // namespace tool
