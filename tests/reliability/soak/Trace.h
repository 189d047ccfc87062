#pragma once

#include <cstddef>
#include <deque>
#include <string>

namespace soak
{

/// The latest lines of all processes and actions of the conductor, for the diagnosis of a violation.
class Trace
{
public:
    void add(std::string const& source, std::string const& line)
    {
        constexpr std::size_t kMost = 50000;
        m_lines.push_back(source + ": " + line);
        if (m_lines.size() > kMost)
        {
            m_lines.pop_front();
        }
    }

    /// The latest lines, each with its end.
    std::string last(std::size_t count) const
    {
        std::string text;
        for (std::size_t i = m_lines.size() - (count < m_lines.size() ? count : m_lines.size()); i < m_lines.size();
             ++i)
        {
            text += m_lines[i] + '\n';
        }
        return text;
    }
    std::string all() const { return last(m_lines.size()); }

private:
    std::deque<std::string> m_lines;
};

} // namespace soak
