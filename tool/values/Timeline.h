#pragma once

#include <tool/values/Times.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tool
{

/// A histogram of times whose range is not known in advance, in little memory.
class Timeline
{
public:
    struct Bin
    {
        std::int64_t begin;
        std::int64_t end;
        unsigned long long count;
    };

    void add(std::int64_t milliseconds);

    bool isEmpty() const { return m_bins.empty(); }
    std::int64_t first() const { return m_first; }
    std::int64_t last() const { return m_last; }

    /// The whole range in at most `most` periods of the same round length, from a second to a thousand years; in more
    /// only if `most` periods of a thousand years do not cover it. A time shortly after the end of a period may be
    /// counted in that period.
    std::vector<Bin> periods(std::size_t most) const;

private:
    std::map<std::int64_t, unsigned long long> m_bins; ///< by time, in units of 2 to the power of `m_shift` ms
    unsigned int m_shift = 0;
    std::int64_t m_first = 0;
    std::int64_t m_last = 0;
};

/// The beginning of the period, only as precise as its length requires.
std::string periodText(Timeline::Bin const& period, TimeStyle const& style);

/// The length of a period: "10 min", "month".
std::string lengthText(Timeline::Bin const& period);

/// A duration in its two largest units: "3 d 4 h".
std::string durationText(std::int64_t milliseconds);

} // namespace tool
