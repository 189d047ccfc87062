#include <tool/terminal/Terminal.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string>

#include <sys/ioctl.h>
#include <unistd.h>

namespace tool
{

namespace
{

constexpr int kUsualWidth = 80;
constexpr int kLeastWidth = 20;

std::string environment(char const* name)
{
    char const* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

int widthOf(int descriptor)
{
    winsize size = {};
    if (ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
    {
        return size.ws_col;
    }
    int const columns = std::atoi(environment("COLUMNS").c_str());
    return columns > 0 ? columns : kUsualWidth;
}

/// Whether the user's locale has UTF-8 in its name. The locale of the C library does not matter here.
bool isUtf8Locale()
{
    for (char const* const name : {"LC_ALL", "LC_CTYPE", "LANG"})
    {
        std::string value = environment(name);
        if (!value.empty())
        {
            std::transform(value.begin(), value.end(), value.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
            return value.find("utf-8") != std::string::npos || value.find("utf8") != std::string::npos;
        }
    }
    return false;
}

} // namespace

Terminal examineTerminal(int descriptor)
{
    Terminal terminal;
    terminal.isTerminal = isatty(descriptor) == 1;
    if (terminal.isTerminal)
    {
        terminal.isDecorated = environment("NO_COLOR").empty() && environment("TERM") != "dumb";
        terminal.isUtf8 = isUtf8Locale();
        terminal.width = std::max(widthOf(descriptor), kLeastWidth);
    }
    return terminal;
}

} // namespace tool
