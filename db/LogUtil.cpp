#include <db/LogUtil.h>

#include <iostream>
#include <locale>
#include <mutex>

LogUtil::Mutex LogUtil::mutex;

namespace
{

char const* prefix(LogUtil::Severity severity)
{
    switch (severity)
    {
    case LogUtil::SEVERITY_DEBUG:
        return "[DEBUG] ";
    case LogUtil::SEVERITY_INFO:
        return "[INFO] ";
    case LogUtil::SEVERITY_WARNING:
        return "[WARNING] ";
    case LogUtil::SEVERITY_ERROR:
        break;
    }
    return "[ERROR] ";
}

} // namespace

LogUtil::Line::Line(Severity severity, char const* tag, char const* function)
{
    stream.exceptions(std::ios::badbit); // A stream would otherwise swallow an allocation failure and cut the line.
    stream.imbue(std::locale::classic());
    stream << prefix(severity) << tag << "::" << function << "() ";
}

LogUtil::Line::~Line() = default;

void LogUtil::Line::write() const
{
    writeLine(stream.str());
}

void LogUtil::writeLine(std::string const& line)
{
    std::lock_guard<Mutex> const lock(mutex);
    // Unformatted: a field width left on std::cout would pad the line.
    std::cout.write(line.data(), static_cast<std::streamsize>(line.size())) << std::endl;
}

void SqlTblUtil::printError(char const* message, std::string const& detail)
{
    LogUtil::writeLine(std::string(message) + " " + detail);
}
