#include <tool/rescue/MissingKeys.h>

#include <algorithm>
#include <limits>

namespace tool
{

namespace
{

constexpr std::int64_t kFirstKey = 1; ///< the library's tables never use a smaller one

class Finder
{
public:
    Finder(SurveyedTable const& table, std::optional<std::int64_t> lastKey) : m_leaves(table.leaves), m_lastKey(lastKey)
    {
    }

    /// To be called in the order of the ranges.
    void addLost(TableTree::Lost const& lost)
    {
        bool const hasStart = lost.range.first != std::numeric_limits<std::int64_t>::min();
        bool const hasEnd = lost.range.last != std::numeric_limits<std::int64_t>::max();
        std::int64_t next = std::max({hasStart ? lost.range.first : kFirstKey, m_next});
        for (auto leaf = firstLeafBehind(next); leaf != m_leaves.end() && leaf->keys.first <= lost.range.last; ++leaf)
        {
            add(next, leaf->keys.first - 1, !lost.isInterior && hasStart);
            next = std::max(next, leaf->keys.last + 1);
        }
        hasEnd ? add(next, lost.range.last, !lost.isInterior && hasStart) : addEnd(next);
        m_next = std::max(m_next, next);
    }

    MissingKeys const& missing() const { return m_missing; }

private:
    std::vector<SurveyedLeaf>::const_iterator firstLeafBehind(std::int64_t key) const
    {
        return std::lower_bound(m_leaves.begin(), m_leaves.end(), key,
                                [](SurveyedLeaf const& leaf, std::int64_t first) { return leaf.keys.last < first; });
    }

    void add(std::int64_t first, std::int64_t last, bool isExact)
    {
        if (first > last)
        {
            return;
        }
        auto& ranges = m_missing.ranges;
        bool const goesOn = !ranges.empty() && ranges.back().last && *ranges.back().last >= first - 1;
        if (goesOn)
        {
            ranges.back().last = std::max(*ranges.back().last, last);
        }
        else
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
        m_missing.ranges.push_back({first, std::nullopt});
        m_missing.isExact = false;
    }

    std::vector<SurveyedLeaf> const& m_leaves;
    std::optional<std::int64_t> const m_lastKey;
    std::int64_t m_next = std::numeric_limits<std::int64_t>::min(); ///< behind the keys that were added
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
