#include <db/LogUtil.h>

#include <iostream>
#include <mutex>

LogUtil::Mutex LogUtil::mutex;

char const* LogUtil::prefix(severity_t severity)
{
    switch (severity)
    {
    case SEVERITY_DEBUG:
        return "[DEBUG] ";
    case SEVERITY_INFO:
        return "[INFO] ";
    case SEVERITY_WARNING:
        return "[WARNING] ";
    case SEVERITY_ERROR:
        break;
    }
    return "[ERROR] ";
}

void LogUtil::writeLine(std::string const& line)
{
    std::lock_guard<Mutex> const lock(mutex);
    // Unformatted, because a field width left on std::cout would pad the line.
    std::cout.write(line.data(), static_cast<std::streamsize>(line.size())) << std::endl;
}

void SqlTblUtil::printError(char const* message, std::string const& detail)
{
    LogUtil::writeLine(std::string(message) + " " + detail);
}
