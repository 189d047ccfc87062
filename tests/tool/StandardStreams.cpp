#include "StandardStreams.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

Stream makeStream(int columns)
{
    if (columns == 0)
    {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        return {ends[0], ends[1]};
    }
    winsize size = {};
    size.ws_col = static_cast<unsigned short>(columns);
    size.ws_row = 50;
    int readEnd = -1;
    int writeEnd = -1;
    EXPECT_EQ(openpty(&readEnd, &writeEnd, nullptr, nullptr, &size), 0);
    EXPECT_EQ(fcntl(readEnd, F_SETFD, FD_CLOEXEC), 0);
    EXPECT_EQ(fcntl(writeEnd, F_SETFD, FD_CLOEXEC), 0);
    return {readEnd, writeEnd};
}

void useTestEnvironment(std::map<std::string, std::string> const& changes)
{
    for (char const* const name : {"NO_COLOR", "LC_ALL", "LC_CTYPE", "COLUMNS"})
    {
        unsetenv(name);
    }
    setenv("LANG", "C.UTF-8", 1);
    setenv("TERM", "xterm", 1);
    setenv("TZ", "UTC", 1);
    for (auto const& [name, value] : changes)
    {
        setenv(name.c_str(), value.c_str(), 1);
    }
}

StandardDescriptor::StandardDescriptor(int descriptor, int other)
    : m_descriptor(descriptor), m_before(fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1))
{
    EXPECT_EQ(dup2(other, descriptor), descriptor);
    close(other);
}

StandardDescriptor::~StandardDescriptor()
{
    dup2(m_before, m_descriptor);
    close(m_before);
}

std::string readToEnd(int descriptor)
{
    std::string text;
    std::array<char, 4096> buffer;
    // A terminal whose writers are all closed gives an error instead of the end of the file.
    for (ssize_t size = 0; (size = read(descriptor, buffer.data(), buffer.size())) > 0;)
    {
        text.append(buffer.data(), static_cast<std::size_t>(size));
    }
    close(descriptor);
    return text;
}
