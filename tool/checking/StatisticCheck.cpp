#include <tool/checking/StatisticCheck.h>

#include <tool/schema/TableSchema.h>
#include <tool/values/Text.h>

#include <limits>

namespace tool
{

using firaim::RowCursor;

namespace
{

constexpr std::int64_t kLargestCount = std::numeric_limits<unsigned short>::max();
constexpr std::int64_t kLargestCode = std::numeric_limits<std::uint32_t>::max();

/// The code of a row; none if it is damaged, which the check of the cells reports.
std::optional<std::int64_t> codeOf(RowCursor const& row, std::size_t column)
{
    bool const isCode =
        row.type(column) == RowCursor::CELL_INTEGER && row.integer(column) >= 0 && row.integer(column) <= kLargestCode;
    return isCode ? std::optional(row.integer(column)) : std::nullopt;
}

} // namespace

StatisticCheck::StatisticCheck()
    : m_statusColumn(positionOf(faultSchema(), "Status")), m_countColumn(positionOf(statisticSchema(), "OccurenceCnt"))
{
}

void StatisticCheck::addFault(RowCursor const& row)
{
    std::string const& active = faultSchema().columns[m_statusColumn].words[FAULT_ACTIVE];
    std::optional<std::int64_t> const code = codeOf(row, faultColumn::CODE);
    if (code && row.type(m_statusColumn) == RowCursor::CELL_TEXT && row.bytes(m_statusColumn) == active)
    {
        ++m_faults[*code];
    }
}

void StatisticCheck::addStatistic(RowCursor const& row)
{
    std::optional<std::int64_t> const code = codeOf(row, statisticColumn::CODE);
    if (!code)
    {
        return;
    }
    // A damaged count is a finding of its own.
    bool const isCount = row.type(m_countColumn) == RowCursor::CELL_INTEGER;
    Statistic const statistic = {row.key(), isCount ? row.integer(m_countColumn) : kLargestCount};
    auto const [known, isNew] = m_statistics.emplace(*code, statistic);
    if (!isNew && known->second.count < statistic.count)
    {
        known->second = statistic;
    }
}

void StatisticCheck::compare(bool areStatisticsWhole, std::function<void(std::string const&)> const& take) const
{
    for (auto const& [code, faults] : m_faults)
    {
        compare(code, faults, areStatisticsWhole, take);
    }
}

void StatisticCheck::compare(std::int64_t code, std::uint64_t faults, bool areStatisticsWhole,
                             std::function<void(std::string const&)> const& take) const
{
    std::string const recorded =
        counted(faults, "fault") + " of the code " + (faults == 1 ? "was" : "were") + " recorded as active";
    auto const statistic = m_statistics.find(code);
    if (statistic == m_statistics.end())
    {
        if (areStatisticsWhole && !m_statistics.empty())
        {
            take("FaultCode " + std::to_string(code) + " has no statistic, but " + recorded);
        }
        return;
    }
    auto const [key, count] = statistic->second;
    if (count < kLargestCount && (count < 0 || static_cast<std::uint64_t>(count) < faults))
    {
        take(statisticSchema().name + " row " + std::to_string(key) + " (FaultCode " + std::to_string(code) +
             ") counts " + std::to_string(count) + ", but " + recorded);
    }
}

} // namespace tool
