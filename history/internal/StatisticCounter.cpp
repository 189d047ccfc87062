#include <history/internal/StatisticCounter.h>

#include <algorithm>
#include <limits>

namespace firaim
{

namespace
{

/// Counters stop at their largest value.
void add(unsigned short& counter, std::uint64_t amount)
{
    constexpr std::uint64_t kMax = std::numeric_limits<unsigned short>::max();
    counter = static_cast<unsigned short>(std::min(kMax, std::min(kMax, amount) + counter));
}

} // namespace

void StatisticCounter::count(FaultStatistic& statistic, Occurrences const& occurrences)
{
    if (occurrences.events == 0)
    {
        return;
    }
    if (statistic.OccurenceCnt == 0)
    {
        statistic.TimeFirstOccurredUTC = occurrences.timeStamp;
        statistic.TimeZoneFirstOccurred = occurrences.timeZone;
    }
    std::uint64_t& lastOrder = m_lastOrder[statistic.FaultCode];
    if (occurrences.order >= lastOrder) // The count of a storm may be older than rows that are already written.
    {
        lastOrder = occurrences.order;
        statistic.TimeLastOccurredUTC = occurrences.timeStamp;
        statistic.TimeZoneLastOccurred = occurrences.timeZone;
    }
    add(statistic.OccurenceCnt, occurrences.events);
    add(statistic.FaultActiveCycleCnt, occurrences.events);
    if (m_countedInCycle.count(statistic.FaultCode) == 0)
    {
        keepCountedInCycle();
        m_countedInCycle.insert(statistic.FaultCode);
    }
    m_statistics.touch(statistic.FaultCode);
}

void StatisticCounter::countRow(FaultStatistic& statistic, Occurrences const& occurrence)
{
    std::uint64_t const lastOrder = std::max(m_lastOrder[statistic.FaultCode], occurrence.order);
    count(statistic, {occurrence.events, lastOrder, occurrence.timeStamp, occurrence.timeZone});
}

void StatisticCounter::endCycle()
{
    for (auto& [code, statistic] : m_statistics.all())
    {
        if (statistic.FaultActive == FAULT_ACTIVE && m_countedInCycle.count(code) == 0)
        {
            add(statistic.FaultActiveCycleCnt, 1);
            m_statistics.touch(code);
        }
    }
    keepCountedInCycle();
    m_countedInCycle.clear();
}

/// To be called before a change, so that `rolledBack` can undo it.
void StatisticCounter::keepCountedInCycle()
{
    if (!m_countedInCycleBefore)
    {
        m_countedInCycleBefore = m_countedInCycle;
    }
}

void StatisticCounter::rolledBack()
{
    if (m_countedInCycleBefore)
    {
        m_countedInCycle.swap(*m_countedInCycleBefore);
        m_countedInCycleBefore.reset();
    }
}

void StatisticCounter::forget()
{
    m_lastOrder.clear();
    rolledBack();
}

} // namespace firaim
