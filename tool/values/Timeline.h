#pragma once

#include <tool/values/Times.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tool
{

/// Counts moments over a span that is not known before, in little memory.
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

    /// The whole span in at most `most` periods of the same round length, from a second to a thousand years; in
    /// more than `most` only where these are not enough. Moments close to the end of a period may be counted in it when
    /// they lie just behind it.
    std::vector<Bin> periods(std::size_t most) const;

private:
    std::map<std::int64_t, unsigned long long> m_bins; ///< by time, in units of 2 to the power of `m_shift` ms
    unsigned int m_shift = 0;
    std::int64_t m_first = 0;
    std::int64_t m_last = 0;
};

/// The time of `begin`, written no more exactly than the length of the period asks for.
std::string periodText(Timeline::Bin const& period, TimeStyle const& style);

/// The length of a period: "10 min", "1 month".
std::string lengthText(Timeline::Bin const& period);

/// A length of time in its two largest units: "3 d 4 h".
std::string durationText(std::int64_t milliseconds);

} // namespace tool
