#pragma once

#include <cstddef>
#include <string>

namespace tool
{

/// Reads standard input line by line. `hasLine` tells whether the next line is there without waiting.
class LineReader
{
public:
    /// Lines of more than `longestLine` bytes are reported as too long.
    explicit LineReader(std::size_t longestLine) : m_longestLine(longestLine) {}

    /// Whether `take` can be called: a whole line, or the end of the input, has been read.
    bool hasLine() const { return m_lineEnd != std::string::npos || m_isAtEnd; }
    /// Whether there is input that was not taken, as far as is known without waiting.
    bool hasMore();
    /// Whether the end of the input was reached.
    bool isAtEnd() const { return m_isAtEnd; }
    /// Waits for more input and reads it. Throws interrupt::Interrupted after a signal, or a Problem when it cannot be
    /// read.
    void fill();
    /// Takes the next line into `line`, without its line feed; returns whether there was one. If it `isTooLong`, a part
    /// of it may be missing in `line`. Requires `hasLine`.
    bool take(std::string& line, bool& isTooLong);

    /// The bytes that were taken, and those of the whole input; the latter is 0 when it is not known.
    std::size_t takenBytes() const { return m_takenBytes; }
    std::size_t totalBytes() const;

private:
    bool hasPending() const { return m_begin < m_pending.size() || m_isCut; }

    std::size_t const m_longestLine;
    std::string m_pending;
    std::size_t m_begin = 0; ///< of the bytes in `m_pending` that were not taken
    std::size_t m_takenBytes = 0;
    std::size_t m_lineEnd = std::string::npos; ///< of the first line in `m_pending`; npos if it is incomplete
    bool m_isCut = false;                      ///< the beginning of that line was discarded
    bool m_isAtEnd = false;
};

} // namespace tool
