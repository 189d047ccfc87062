#pragma once

#include <tool/pages/KeyRange.h>
#include <tool/pages/TableTree.h>

#include <vector>

namespace tool
{

/// The keys that lost interior pages of a table may have led to.
class LostRanges
{
public:
    /// How many of a page's keys are lost.
    enum class Overlap
    {
        NONE,
        PART,
        ALL
    };

    /// Takes the interior ones of these pages.
    explicit LostRanges(std::vector<TableTree::Lost> const& lost);

    Overlap overlapOf(KeyRange const& keys) const;

private:
    std::vector<KeyRange> m_ranges; ///< in their order; they do not overlap
};

} // namespace tool
