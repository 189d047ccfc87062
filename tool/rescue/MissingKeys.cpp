#include <tool/rescue/MissingKeys.h>

#include <algorithm>
#include <limits>

namespace tool
{

namespace
{

constexpr std::int64_t kFirstKey = 1; ///< the library's tables never use a smaller one

/// The keys of the leaves, as ranges that neither overlap nor touch, in their order.
std::vector<KeyRange> joinKeys(std::vector<SurveyedLeaf> const& leaves)
{
    std::vector<KeyRange> ranges;
    for (SurveyedLeaf const& leaf : leaves)
    {
        if (leaf.keys.isEmpty())
        {
            continue;
        }
        // Written without adding to a key, as a key may be the largest number.
        if (!ranges.empty() && leaf.keys.first <= ranges.back().last)
        {
            ranges.back().last = std::max(ranges.back().last, leaf.keys.last);
        }
        else if (!ranges.empty() && leaf.keys.first - 1 == ranges.back().last)
        {
            ranges.back().last = leaf.keys.last;
        }
        else
        {
            ranges.push_back(leaf.keys);
        }
    }
    return ranges;
}

class Finder
{
public:
    Finder(SurveyedTable const& table, std::optional<std::int64_t> lastKey)
        : m_found(joinKeys(table.leaves)), m_lastKey(lastKey)
    {
    }

    /// To be called in the order of the ranges.
    void addLost(TableTree::Lost const& lost)
    {
        bool const hasStart = lost.range.first != std::numeric_limits<std::int64_t>::min();
        bool const hasEnd = lost.range.last != std::numeric_limits<std::int64_t>::max();
        bool const isExact = hasStart && !lost.isInterior;
        std::int64_t next = hasStart ? lost.range.first : kFirstKey;
        for (auto found = firstBehind(next); found != m_found.end() && found->first <= lost.range.last; ++found)
        {
            if (found->first > next)
            {
                add(next, found->first - 1, isExact);
            }
            if (found->last >= lost.range.last)
            {
                return;
            }
            next = found->last + 1;
        }
        hasEnd ? add(next, lost.range.last, isExact) : addEnd(next);
    }

    MissingKeys const& missing() const { return m_missing; }

private:
    /// The first range that ends behind `key` or with it.
    std::vector<KeyRange>::const_iterator firstBehind(std::int64_t key) const
    {
        return std::lower_bound(m_found.begin(), m_found.end(), key,
                                [](KeyRange const& range, std::int64_t first) { return range.last < first; });
    }

    void add(std::int64_t first, std::int64_t last, bool isExact)
    {
        if (first > last)
        {
            return;
        }
        auto& ranges = m_missing.ranges;
        bool const goesOn = !ranges.empty() && (!ranges.back().last || *ranges.back().last >= first - 1);
        if (goesOn && ranges.back().last)
        {
            ranges.back().last = std::max(*ranges.back().last, last);
        }
        else if (!goesOn)
        {
            ranges.push_back({first, last});
        }
        m_missing.isExact = m_missing.isExact && isExact;
    }

    /// The rows behind the last known ones.
    void addEnd(std::int64_t first)
    {
        if (m_lastKey)
        {
            add(first, *m_lastKey, false);
            return;
        }
        add(first, first, false);
        m_missing.ranges.back().last.reset();
    }

    std::vector<KeyRange> const m_found;
    std::optional<std::int64_t> const m_lastKey;
    MissingKeys m_missing;
};

} // namespace

MissingKeys findMissingKeys(SurveyedTable const& table, std::optional<std::int64_t> lastKey)
{
    std::vector<TableTree::Lost> lost = table.lost;
    std::sort(lost.begin(), lost.end(),
              [](TableTree::Lost const& left, TableTree::Lost const& right)
              { return left.range.first < right.range.first; });
    Finder finder(table, lastKey);
    for (TableTree::Lost const& page : lost)
    {
        finder.addLost(page);
    }
    return finder.missing();
}

} // namespace tool
