#include <history/internal/Storms.h>

#include <algorithm>

namespace firaim
{

namespace
{

/// A count is on the storage within a second, including the commit.
constexpr std::chrono::milliseconds kStoreWithin(960);
/// The number of triples from which on idle ones are forgotten.
constexpr std::size_t kMaxIdleBuckets = 10000;

void add(Storms::Count& count, FaultEvent const& event, std::int64_t time, std::uint64_t order)
{
    if (count.events++ == 0)
    {
        count.firstTime = time;
    }
    count.lastTime = time;
    count.lastOrder = order;
    count.actives += event.status == FAULT_ACTIVE ? 1 : 0;
}

template <class Time>
void setEarlier(std::optional<Time>& time, Time other)
{
    time = time ? std::min(*time, other) : other;
}

} // namespace

Storms::Storms(unsigned int burst, unsigned int rowsPerMinute)
    : m_burst(burst), m_interval(60.0 / std::max(rowsPerMinute, 1U)), m_forgetAt(kMaxIdleBuckets)
{
}

bool Storms::admits(FaultEvent const& event, std::int64_t time, std::uint64_t order, TimePoint now)
{
    if (m_burst < 1)
    {
        return true;
    }
    Bucket& bucket = bucketOf(event, now);
    fill(bucket, now);
    if (bucket.tokens >= 1)
    {
        bucket.tokens -= 1;
        return true;
    }
    FaultEvent copy = event; // Short of memory, nothing is counted.
    bucket.last = std::move(copy);
    bucket.order = order;
    add(bucket.uncounted, event, time, order);
    add(bucket.total, event, time, order);
    bucket.lastCounted = now;
    setEarlier(m_storeBy, now + kStoreWithin);
    setEarlier(m_endBy, now + std::chrono::duration_cast<TimePoint::duration>(m_interval));
    return false;
}

void Storms::setStatus(Bucket& bucket, faultStatus_t status, std::uint64_t order)
{
    if (order > bucket.order)
    {
        bucket.last.status = status;
        bucket.order = order;
    }
}

void Storms::stateSet(FaultEvent const& event, faultStatus_t status, std::uint64_t order)
{
    auto const found = m_buckets.find(tripleOf(event));
    if (found != m_buckets.end())
    {
        setStatus(found->second, status, order);
    }
}

void Storms::codeCleared(std::uint64_t code, std::uint64_t order)
{
    for (auto bucket = m_buckets.lower_bound(TripleView(code, SourceView()));
         bucket != m_buckets.end() && bucket->first.first == code; ++bucket)
    {
        setStatus(bucket->second, FAULT_INACTIVE, order);
    }
}

std::optional<faultStatus_t> Storms::statusOf(FaultEvent const& event) const
{
    auto const found = m_buckets.find(tripleOf(event));
    return found != m_buckets.end() ? std::optional(found->second.last.status) : std::nullopt;
}

std::optional<faultStatus_t> Storms::countedStatusOf(FaultEvent const& event) const
{
    auto const found = m_buckets.find(tripleOf(event));
    bool const isCounted = found != m_buckets.end() && found->second.total.events > 0;
    return isCounted ? std::optional(found->second.last.status) : std::nullopt;
}

std::uint64_t Storms::uncounted() const
{
    std::uint64_t events = 0;
    for (auto const& [triple, bucket] : m_buckets)
    {
        events += bucket.uncounted.events;
    }
    return events;
}

Storms::TripleView Storms::tripleOf(FaultEvent const& event)
{
    return {event.code, SourceView(event.module, event.parameter)};
}

Storms::Bucket& Storms::bucketOf(FaultEvent const& event, TimePoint now)
{
    TripleView const triple = tripleOf(event);
    auto const found = m_buckets.find(triple);
    if (found != m_buckets.end())
    {
        return found->second;
    }
    if (m_buckets.size() >= m_forgetAt)
    {
        forgetIdle(now);
        m_forgetAt = std::max(kMaxIdleBuckets, 2 * m_buckets.size()); // So that few events examine all of them.
    }
    Bucket bucket = {};
    bucket.tokens = m_burst;
    bucket.filled = now;
    return m_buckets.emplace(Triple(event.code, Source(event.module, event.parameter)), std::move(bucket))
        .first->second;
}

void Storms::forgetIdle(TimePoint now)
{
    for (auto bucket = m_buckets.begin(); bucket != m_buckets.end();)
    {
        fill(bucket->second, now);
        bool const isIdle = bucket->second.tokens >= m_burst && bucket->second.total.events == 0;
        bucket = isIdle ? m_buckets.erase(bucket) : std::next(bucket);
    }
}

void Storms::fill(Bucket& bucket, TimePoint now) const
{
    bucket.tokens = std::min(m_burst, bucket.tokens + (now - bucket.filled) / m_interval);
    bucket.filled = now;
}

std::optional<Storms::TimePoint> Storms::deadline() const
{
    std::optional<TimePoint> result = m_storeBy;
    if (m_endBy)
    {
        setEarlier(result, *m_endBy);
    }
    return result;
}

std::vector<Storms::Report> Storms::take(TimePoint now, bool isEnding)
{
    auto const interval = std::chrono::duration_cast<TimePoint::duration>(m_interval);
    std::vector<Report> reports;
    std::vector<Bucket*> reported;
    for (auto& [triple, bucket] : m_buckets)
    {
        bool const isOver = isEnding || bucket.lastCounted + interval <= now;
        if (bucket.total.events > 0 && (isOver || bucket.uncounted.events > 0))
        {
            reported.push_back(&bucket);
            reports.push_back({bucket.last, bucket.uncounted, bucket.total, isOver});
        }
    }
    for (std::size_t i = 0; i < reports.size(); ++i)
    {
        reported[i]->uncounted = {};
        if (reports[i].isOver)
        {
            reported[i]->total = {};
        }
    }
    m_storeBy.reset();
    m_endBy.reset();
    for (auto const& [triple, bucket] : m_buckets)
    {
        if (bucket.total.events > 0)
        {
            setEarlier(m_endBy, bucket.lastCounted + interval);
        }
    }
    return reports;
}

/// Adds a report that could not be stored to the next counts.
void Storms::putBack(Report const& report, TimePoint now)
{
    auto const restore = [](Count& count, Count const& taken)
    {
        if (taken.events == 0)
        {
            return;
        }
        count.lastTime = count.events == 0 ? taken.lastTime : count.lastTime;
        count.lastOrder = std::max(count.lastOrder, taken.lastOrder);
        count.firstTime = taken.firstTime;
        count.events += taken.events;
        count.actives += taken.actives;
    };
    Bucket& bucket = bucketOf(report.event, now);
    std::uint64_t const order = std::max(report.uncounted.lastOrder, report.total.lastOrder);
    if (bucket.order < order) // The bucket was forgotten as idle meanwhile, and this is a new one.
    {
        bucket.last = report.event;
        bucket.order = order;
    }
    restore(bucket.uncounted, report.uncounted);
    if (report.isOver)
    {
        restore(bucket.total, report.total);
    }
    setEarlier(m_storeBy, now + kStoreWithin);
}

} // namespace firaim
