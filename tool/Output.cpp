#include "Output.h"

#include "Interrupt.h"
#include "Problem.h"
#include "Text.h"

#include <cerrno>
#include <iostream>
#include <system_error>

#include <unistd.h>

namespace tool
{

Output::Output() : m_terminal(examineTerminal(STDOUT_FILENO)), m_consoleBuffer(std::cout.rdbuf(std::cerr.rdbuf())) {}

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
        ssize_t const written = ::write(STDOUT_FILENO, left.data(), left.size());
        if (written >= 0)
        {
            left.remove_prefix(static_cast<std::size_t>(written));
            continue;
        }
        int const error = errno;
        if (error == EPIPE)
        {
            throw ReaderGone();
        }
        if (error != EINTR)
        {
            throw Problem(STATUS_BAD_FILE,
                          "cannot write to standard output: " + std::generic_category().message(error));
        }
        interrupt::check();
    }
    m_pending.clear();
}

void complain(std::string_view text)
{
    std::cerr << "firaim: " + visible(text) + "\n" << std::flush;
}

} // namespace tool
