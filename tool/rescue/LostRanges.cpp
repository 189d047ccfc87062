#include <tool/rescue/LostRanges.h>

#include <algorithm>
#include <iterator>

namespace tool
{

LostRanges::LostRanges(std::vector<TableTree::Lost> const& lost)
{
    std::vector<KeyRange> ranges;
    for (TableTree::Lost const& page : lost)
    {
        if (page.isInterior)
        {
            ranges.push_back(page.range);
        }
    }
    std::sort(ranges.begin(), ranges.end(),
              [](KeyRange const& left, KeyRange const& right) { return left.first < right.first; });
    for (KeyRange const& range : ranges)
    {
        if (!m_ranges.empty() && range.first <= m_ranges.back().last)
        {
            m_ranges.back().last = std::max(m_ranges.back().last, range.last);
        }
        else
        {
            m_ranges.push_back(range);
        }
    }
}

LostRanges::Overlap LostRanges::overlapOf(KeyRange const& keys) const
{
    auto const next = std::upper_bound(m_ranges.begin(), m_ranges.end(), keys.last,
                                       [](std::int64_t key, KeyRange const& range) { return key < range.first; });
    if (next == m_ranges.begin() || std::prev(next)->last < keys.first)
    {
        return Overlap::NONE;
    }
    return std::prev(next)->has(keys) ? Overlap::ALL : Overlap::PART;
}

} // namespace tool
