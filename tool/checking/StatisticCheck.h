#pragma once

#include <history/RowCursor.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace tool
{

/// Compares the counts of the statistics with the faults. Storms, retention and 'firaim trim' make a count larger than
/// the number of rows, so only a smaller one is wrong; a counter at its largest value tells nothing.
class StatisticCheck
{
public:
    StatisticCheck();

    /// Takes a row of the fault table. Only a fault that was recorded as active was counted.
    void addFault(firaim::RowCursor const& row);
    /// Takes a row of the statistic table.
    void addStatistic(firaim::RowCursor const& row);

    /// Hands each problem to `take`. A code without a statistic is one if `areStatisticsWhole` and the file has
    /// statistics at all: not every application keeps them.
    void compare(bool areStatisticsWhole, std::function<void(std::string const&)> const& take) const;

private:
    struct Statistic
    {
        std::int64_t key;
        std::int64_t count;
    };

    void compare(std::int64_t code, std::uint64_t faults, bool areStatisticsWhole,
                 std::function<void(std::string const&)> const& take) const;

    std::size_t const m_statusColumn;
    std::size_t const m_countColumn;
    std::map<std::int64_t, std::uint64_t> m_faults; ///< recorded as active, by code
    std::map<std::int64_t, Statistic> m_statistics; ///< the one with the largest count, by code
};

} // namespace tool
