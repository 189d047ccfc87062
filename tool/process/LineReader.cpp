#include <tool/process/LineReader.h>

#include <tool/process/Interrupt.h>
#include <tool/process/Problem.h>

#include <algorithm>
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
        interrupt::throwIfPending();
    }
    ssize_t const size = ::read(STDIN_FILENO, chunk.data(), chunk.size());
    if (size < 0)
    {
        int const error = errno;
        if (error != EINTR && error != EAGAIN)
        {
            throw Problem(STATUS_BAD_FILE, "cannot read standard input: " + std::generic_category().message(error));
        }
        interrupt::throwIfPending();
        return;
    }
    m_isAtEnd = size == 0;
    m_pending.erase(0, m_begin);
    m_lineEnd -= m_lineEnd == std::string::npos ? 0 : m_begin;
    m_begin = 0;
    if (m_lineEnd == std::string::npos)
    {
        // The earlier bytes hold no line feed.
        auto const* const end = std::find(chunk.data(), chunk.data() + size, '\n');
        m_lineEnd = end == chunk.data() + size ? std::string::npos
                                               : m_pending.size() + static_cast<std::size_t>(end - chunk.data());
    }
    m_pending.append(chunk.data(), static_cast<std::size_t>(size));
    if (m_lineEnd == std::string::npos && m_pending.size() > m_longestLine)
    {
        // Do not keep a line that is too long: it is refused anyway.
        m_takenBytes += m_pending.size();
        m_pending.clear();
        m_isCut = true;
    }
}

bool LineReader::take(std::string& line, bool& isTooLong)
{
    if (m_lineEnd == std::string::npos && !hasPending())
    {
        return false;
    }
    std::size_t const end = std::min(m_lineEnd, m_pending.size());
    line.assign(m_pending, m_begin, end - m_begin);
    isTooLong = m_isCut || line.size() > m_longestLine;
    m_isCut = false;
    std::size_t const next = m_lineEnd == std::string::npos ? m_pending.size() : m_lineEnd + 1;
    m_takenBytes += next - m_begin;
    m_begin = next;
    m_lineEnd = m_pending.find('\n', m_begin);
    return true;
}

bool LineReader::hasMore()
{
    if (!hasPending() && !m_isAtEnd && interrupt::waitFor(STDIN_FILENO, interrupt::READING, 0))
    {
        fill();
    }
    return hasPending();
}

std::size_t LineReader::totalBytes() const
{
    struct stat status = {};
    bool const isFile = fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode);
    return isFile ? static_cast<std::size_t>(status.st_size) : 0;
}

} // namespace tool
