#pragma once

#include <db/LogUtil.h>

/// Log lines of the facade, for its source files only.
namespace faultDbLog
{

template <class... Pieces>
void debug(char const* function, Pieces const&... message)
{
    LogUtil::write(LogUtil::SEVERITY_DEBUG, "FDB", function, message...);
}

template <class... Pieces>
void info(char const* function, Pieces const&... message)
{
    LogUtil::write(LogUtil::SEVERITY_INFO, "FDB", function, message...);
}

template <class... Pieces>
void warning(char const* function, Pieces const&... message)
{
    LogUtil::write(LogUtil::SEVERITY_WARNING, "FDB", function, message...);
}

template <class... Pieces>
void error(char const* function, Pieces const&... message)
{
    LogUtil::write(LogUtil::SEVERITY_ERROR, "FDB", function, message...);
}

} // namespace faultDbLog
