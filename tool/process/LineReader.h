#pragma once

#include <cstddef>
#include <string>

namespace tool
{

/// Reads standard input line by line and tells before it would have to wait.
class LineReader
{
public:
    /// Longer lines are thrown away and reported as too long.
    explicit LineReader(std::size_t longestLine) : m_longestLine(longestLine) {}

    /// Whether a whole line can be taken without waiting.
    bool hasLine() const { return m_lineEnd != std::string::npos || m_isAtEnd; }
    /// Whether there is anything that was not taken, as far as can be told without waiting.
    bool hasMore();
    /// Whether the end of the input was met.
    bool isAtEnd() const { return m_isAtEnd; }
    /// Waits for more input; a signal ends that. Throws a Problem when it cannot be read.
    void fill();
    /// Takes the next line into `line`, without its end; returns whether there was one. `isTooLong` tells of a line
    /// that was thrown away, at least in part. Needs `hasLine`.
    bool take(std::string& line, bool& isTooLong);

    /// How many bytes have been taken, and how many there are; 0 when that is not known.
    std::size_t taken() const { return m_taken; }
    std::size_t total() const;

private:
    bool hasPending() const { return m_begin < m_pending.size() || m_isCut; }

    std::size_t const m_longestLine;
    std::string m_pending;
    std::size_t m_begin = 0; ///< of what has not been taken
    std::size_t m_taken = 0;
    std::size_t m_lineEnd = std::string::npos; ///< of the first line in `m_pending`, if that is whole
    bool m_isCut = false;                      ///< what came before of that line was thrown away
    bool m_isAtEnd = false;
};

} // namespace tool
