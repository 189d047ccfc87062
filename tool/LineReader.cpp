#include "LineReader.h"

#include "Interrupt.h"
#include "Problem.h"

#include <array>
#include <cerrno>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

namespace tool
{

namespace
{

constexpr std::size_t kChunk = 1 << 16;

} // namespace

void LineReader::fill()
{
    std::array<char, kChunk> chunk;
    while (!interrupt::waitFor(STDIN_FILENO, interrupt::READING, -1))
    {
        interrupt::check();
    }
    ssize_t const size = ::read(STDIN_FILENO, chunk.data(), chunk.size());
    if (size < 0)
    {
        int const error = errno;
        if (error != EINTR && error != EAGAIN)
        {
            throw Problem(STATUS_BAD_FILE, "cannot read standard input: " + std::generic_category().message(error));
        }
        interrupt::check();
        return;
    }
    m_isAtEnd = size == 0;
    m_pending.append(chunk.data(), static_cast<std::size_t>(size));
    // What will be refused anyway is not kept.
    std::size_t const lineEnd = m_pending.find('\n');
    if (lineEnd == std::string::npos && m_pending.size() > m_longestLine)
    {
        m_taken += m_pending.size() - m_longestLine;
        m_pending.resize(m_longestLine);
        m_isCut = true;
    }
}

bool LineReader::take(std::string& line, bool& isTooLong)
{
    std::size_t const end = m_pending.find('\n');
    if (end == std::string::npos && m_pending.empty())
    {
        return false;
    }
    line = m_pending.substr(0, end);
    isTooLong = m_isCut || line.size() > m_longestLine;
    m_isCut = false;
    std::size_t const used = end == std::string::npos ? m_pending.size() : end + 1;
    m_pending.erase(0, used);
    m_taken += used;
    return true;
}

std::size_t LineReader::total() const
{
    struct stat status = {};
    bool const isFile = fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode);
    return isFile ? static_cast<std::size_t>(status.st_size) : 0;
}

} // namespace tool
