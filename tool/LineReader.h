#pragma once

#include <cstddef>
#include <string>

namespace tool
{

/// Reads standard input line by line and tells before it would have to wait.
class LineReader
{
public:
    /// Longer lines are cut off there, and said to be.
    explicit LineReader(std::size_t longestLine) : m_longestLine(longestLine) {}

    /// Whether a whole line can be taken without waiting.
    bool hasLine() const { return m_pending.find('\n') != std::string::npos || m_isAtEnd; }
    /// Waits for more input; a signal ends that. Throws a Problem when it cannot be read.
    void fill();
    /// Takes the next line into `line`, without its end; returns whether there was one. `isTooLong` tells of a line
    /// that was cut off. Needs `hasLine`.
    bool take(std::string& line, bool& isTooLong);

    /// How many bytes have been taken, and how many there are; 0 when that is not known.
    std::size_t taken() const { return m_taken; }
    std::size_t total() const;

private:
    std::size_t const m_longestLine;
    std::string m_pending;
    std::size_t m_taken = 0;
    bool m_isCut = false; ///< the rest of the line in `m_pending` was thrown away, or is to be
    bool m_isAtEnd = false;
};

} // namespace tool
