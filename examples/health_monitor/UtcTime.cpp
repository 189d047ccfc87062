#include "UtcTime.h"

#include <ctime>
#include <iomanip>
#include <sstream>

namespace healthMonitor
{

std::string utcText(unsigned long long milliseconds)
{
    auto const seconds = static_cast<std::time_t>(milliseconds / 1000);
    std::tm calendar{};
    if (gmtime_r(&seconds, &calendar) == nullptr)
    {
        return std::to_string(milliseconds);
    }
    std::ostringstream text;
    text << std::put_time(&calendar, "%Y-%m-%dT%H:%M:%S") << '.' << std::setfill('0') << std::setw(3)
         << milliseconds % 1000 << 'Z';
    return text.str();
}

} // namespace healthMonitor
