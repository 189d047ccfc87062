#include "Timeline.h"

#include <algorithm>
#include <chrono>

namespace soak
{

Moment now()
{
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

Generation& Timeline::pull(Moment before, Moment after, bool isWal)
{
    m_beforePull = before;
    m_afterPull = after;
    for (auto& [number, worker] : m_workers)
    {
        worker = {};
    }
    Generation next;
    next.number = current().number + 1;
    next.isWal = isWal;
    return m_generations[next.number] = next;
}

void Timeline::closeOldest()
{
    m_generations.erase(m_generations.begin());
}

void Timeline::stored(unsigned int number, Moment begin, Moment end)
{
    Worker& worker = m_workers[number];
    if (!isPulling() || worker.settled || begin <= m_afterPull)
    {
        return;
    }
    if (!worker.stored)
    {
        worker.stored = end;
    }
    else if (begin > *worker.stored)
    {
        worker.settled = begin;
    }
}

std::optional<Moment> Timeline::settledAt(unsigned int worker) const
{
    auto const found = m_workers.find(worker);
    return found != m_workers.end() ? found->second.settled : std::nullopt;
}

Range Timeline::rangeOf(unsigned int worker, Moment begin, Moment end) const
{
    Range range{oldest().number, m_generations.rbegin()->first};
    std::optional<Moment> const settled = settledAt(worker);
    if (isPulling() && end < m_beforePull)
    {
        range.last = range.first;
    }
    else if (settled && begin >= *settled)
    {
        range.first = range.last;
    }
    return range;
}

void Timeline::troubleBegins()
{
    m_troubles.push_back({now(), std::nullopt});
}

void Timeline::troubleEnds()
{
    m_troubles.back().end = now();
}

bool Timeline::isTroubled(Moment begin, Moment end) const
{
    return std::any_of(m_troubles.begin(), m_troubles.end(),
                       [&](Trouble const& trouble)
                       { return trouble.begin <= end && begin <= trouble.end.value_or(end); });
}

} // namespace soak
