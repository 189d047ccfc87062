#pragma once

#include <tool/rescue/Survey.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace tool
{

/// Keys of rows that are lost.
struct MissingKeys
{
    struct Range
    {
        std::int64_t first;
        std::optional<std::int64_t> last; ///< none: nothing says where they end
    };

    std::vector<Range> ranges; ///< in their order; they neither overlap nor touch
    /// Whether every key in the ranges was on a lost page. If not, some of them may have been removed long before, or
    /// there may be more.
    bool isExact = true;
};

/// The keys that the lost pages of a table may have had: those that their parents leave to them, without those of other
/// leaves. `lastKey` is the largest key that was ever used, if it is known. Gaps between two sound leaves are no loss.
MissingKeys findMissingKeys(SurveyedTable const& table, std::optional<std::int64_t> lastKey);

} // namespace tool
