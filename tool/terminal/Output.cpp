#include <tool/terminal/Output.h>

#include <tool/process/Interrupt.h>
#include <tool/process/Problem.h>
#include <tool/terminal/Progress.h>
#include <tool/terminal/SafeText.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <iostream>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool
{

namespace
{

/// Buffered bytes that are worth a write: the rows of some milliseconds.
constexpr std::size_t kFlushSize = 1 << 16;

/// Whether `descriptor` is a pipe, a socket or a terminal, so that writing may block.
bool mayBlock(int descriptor)
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 &&
           (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode) || isatty(descriptor) == 1);
}

/// Writes one line to standard error, after removing the progress bar. Ignores errors, which it cannot report.
void writeErrorLine(std::string const& line)
{
    Progress::clearShown();
    std::string const whole = line + "\n";
    std::string_view left = whole;
    while (!left.empty())
    {
        if (!interrupt::waitFor(STDERR_FILENO, interrupt::WRITING, -1))
        {
            if (interrupt::isPending())
            {
                return; // After a signal, do not wait for the reader.
            }
            continue;
        }
        ssize_t const written = ::write(STDERR_FILENO, left.data(), std::min<std::size_t>(left.size(), PIPE_BUF));
        if (written < 0 && errno != EINTR && errno != EAGAIN)
        {
            return;
        }
        left.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
}

} // namespace

LogBuffer::int_type LogBuffer::overflow(int_type character)
{
    if (!traits_type::eq_int_type(character, traits_type::eof()))
    {
        m_pending.push_back(traits_type::to_char_type(character));
        writeWholeLines();
    }
    return traits_type::not_eof(character);
}

std::streamsize LogBuffer::xsputn(char const* text, std::streamsize size)
{
    m_pending.append(text, static_cast<std::size_t>(size));
    writeWholeLines();
    return size;
}

void LogBuffer::writeWholeLines()
{
    for (std::size_t end = m_pending.find('\n'); end != std::string::npos; end = m_pending.find('\n'))
    {
        if (!interrupt::isPending())
        {
            writeErrorLine(escape(std::string_view(m_pending).substr(0, end)));
        }
        m_pending.erase(0, end + 1);
    }
}

void reserveStandardDescriptors()
{
    for (int const descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    {
        if (fcntl(descriptor, F_GETFD) < 0)
        {
            // open() returns this descriptor. Use the wrong mode, so that any I/O on it fails.
            static_cast<void>(open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY));
        }
    }
}

Output::Output()
    : m_terminal(examineTerminal(STDOUT_FILENO)), m_mayBlock(mayBlock(STDOUT_FILENO)),
      m_consoleBuffer(std::cout.rdbuf(&m_logLines))
{
}

Output::~Output()
{
    std::cout.rdbuf(m_consoleBuffer);
}

void Output::writeLine(std::string_view text)
{
    m_pending.append(text);
    m_pending.push_back('\n');
}

void Output::flush()
{
    std::string_view left = m_pending;
    while (!left.empty())
    {
        // Writes of up to PIPE_BUF bytes do not block once poll reports room, and a signal always ends poll.
        while (m_mayBlock && !interrupt::waitFor(STDOUT_FILENO, interrupt::WRITING, -1))
        {
            interrupt::throwIfPending();
        }
        std::size_t const size = m_mayBlock ? std::min<std::size_t>(left.size(), PIPE_BUF) : left.size();
        ssize_t const written = ::write(STDOUT_FILENO, left.data(), size);
        if (written >= 0)
        {
            left.remove_prefix(static_cast<std::size_t>(written));
            continue;
        }
        int const error = errno;
        if (error == EPIPE)
        {
            throw BrokenPipe();
        }
        if (error != EINTR && error != EAGAIN)
        {
            m_pending.clear();
            throw Problem(STATUS_BAD_FILE,
                          "cannot write to standard output: " + std::generic_category().message(error));
        }
        interrupt::throwIfPending();
    }
    m_pending.clear();
}

void Output::flushIfLarge()
{
    if (m_pending.size() >= kFlushSize)
    {
        flush();
    }
}

void reportDone(std::string const& text, Output& output)
{
    try
    {
        output.writeLine(text);
        output.flush();
    }
    catch (...)
    {
        printMessage("this was done all the same: " + text);
        throw;
    }
}

void printMessage(std::string_view text)
{
    writeErrorLine("firaim: " + escape(text));
}

} // namespace tool
