#pragma once

#include <string>

namespace healthMonitor
{

/// The ISO 8601 text of a time in milliseconds since 1970-01-01 UTC, such as "2031-05-04T03:02:01.000Z"; the plain
/// number when it lies beyond the calendar.
std::string utcText(unsigned long long milliseconds);

} // namespace healthMonitor
