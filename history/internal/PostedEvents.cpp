#include <history/internal/PostedEvents.h>

#include <algorithm>

namespace firaim
{

void PostedEvents::Posted::fillRequest(Request& request) const
{
    request.event = &event;
    request.now = now;
    request.upTime = upTime;
    request.order = order;
    request.doubtfulKey = doubtfulKey;
}

void PostedEvents::clear()
{
    m_events.clear();
    m_count = 0;
    m_finishedCount = 0;
}

void PostedEvents::add(Request const& request)
{
    m_events.push_back({*request.event, request.now, request.upTime, request.order, 0, false});
    ++m_count;
}

std::vector<PostedEvents::Posted*> PostedEvents::first(std::size_t most, std::uint64_t& end)
{
    std::vector<Posted*> posted;
    end = m_finishedCount;
    for (auto event = m_events.begin(); event != m_events.end() && posted.size() < most; ++event, ++end)
    {
        if (!event->isFinished)
        {
            posted.push_back(&*event);
        }
    }
    return posted;
}

void PostedEvents::dropFinished()
{
    while (!m_events.empty() && m_events.front().isFinished)
    {
        m_events.pop_front();
        ++m_finishedCount;
    }
}

void PostedEvents::dropAll()
{
    m_events.clear();
    m_finishedCount = m_count;
}

std::uint64_t PostedEvents::unfinishedBefore(std::uint64_t count) const
{
    std::uint64_t const there = std::min<std::uint64_t>(count - std::min(count, m_finishedCount), m_events.size());
    return static_cast<std::uint64_t>(std::count_if(m_events.begin(),
                                                    m_events.begin() + static_cast<std::ptrdiff_t>(there),
                                                    [](Posted const& posted) { return !posted.isFinished; }));
}

} // namespace firaim
