// The work of a Backlog's thread.

#include <history/internal/Backlog.h>
#include <history/internal/Deadline.h>

#include <algorithm>
#include <mutex>
#include <new>

namespace firaim
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostInBatch = 1000;
/// How long one attempt waits for other processes, so that closing is soon noticed.
constexpr std::chrono::milliseconds kTimeoutOfAttempt(500);
constexpr std::chrono::milliseconds kPauseAfterFailure(200);

} // namespace

void Backlog::work()
{
    std::lock_guard<Mutex> const lock(m_mutex);
    while (m_isOpen)
    {
        if (isWorkThere(Clock::now()))
        {
            workOnce();
        }
        else
        {
            waitForWork();
        }
    }
}

bool Backlog::isWorkThere(TimePoint now) const
{
    std::optional<TimePoint> const stormDeadline = m_storms->deadline();
    bool const isThere = !m_posted.isEmpty() || m_ends.wanted > m_ends.done || m_stores.wanted > m_stores.done ||
                         (stormDeadline && *stormDeadline <= now);
    return isThere && now >= m_retryAt;
}

void Backlog::waitForWork()
{
    TimePoint const now = Clock::now();
    m_watched = m_storms->deadline();
    if (m_retryAt > now)
    {
        m_work.waitUntil(m_mutex, m_retryAt);
    }
    else if (m_watched)
    {
        m_work.waitUntil(m_mutex, *m_watched);
    }
    else
    {
        m_work.wait(m_mutex);
    }
}

/// Passes on what is there. The posted events stay where they are until they are settled.
void Backlog::workOnce()
{
    try
    {
        std::uint64_t const stores = m_stores.wanted;
        std::uint64_t const ends = m_ends.wanted;
        std::uint64_t end = 0;
        std::vector<Posted*> const posted = m_posted.first(kMostInBatch, end);
        // The row of a storm is written after the rows that were posted before it, so that it leaves the right status.
        bool const isEnding = ends > m_ends.done && end >= m_postedBeforeEnd;
        runBatch(posted, m_storms->take(Clock::now(), isEnding));
        if (m_retryAt == TimePoint{})
        {
            m_stores.done = stores;
            m_ends.done = isEnding ? ends : m_ends.done;
        }
    }
    catch (std::exception const&) // Lack of memory, or a standard output that was told to throw.
    {
        m_lastResult = HISTORY_FAILED;
        m_retryAt = Clock::now() + kPauseAfterFailure;
    }
    m_changed.notifyAll();
}

void Backlog::runBatch(std::vector<Posted*> const& posted, std::vector<Storms::Report> const& reports)
{
    std::vector<Request> requests;
    try
    {
        requests = std::vector<Request>(posted.size() + reports.size());
    }
    catch (std::bad_alloc const&)
    {
        giveBack(reports);
        throw;
    }
    for (std::size_t i = 0; i < posted.size(); ++i)
    {
        posted[i]->ask(requests[i]);
    }
    for (std::size_t i = 0; i < reports.size(); ++i)
    {
        Request& request = requests[posted.size() + i];
        request.kind = Request::STORM;
        request.event = &reports[i].event;
        request.storm = &reports[i];
        request.order = reports[i].uncounted.lastOrder;
        request.status = [this, &report = reports[i]]
        {
            std::lock_guard<Mutex> const lock(m_mutex);
            return m_storms->statusOf(report.event);
        };
        request.takeMoment();
    }
    Timeout const timeout = timeoutOfAttempt();
    {
        Unlocked const unlocked(m_mutex);
        m_queue.run(requests, timeout);
    }
    settle(requests, posted, reports);
}

Backlog::Timeout Backlog::timeoutOfAttempt() const
{
    return m_isClosing ? std::min(deadline::timeTo(m_closeBy), kTimeoutOfAttempt) : kTimeoutOfAttempt;
}

void Backlog::giveBack(std::vector<Storms::Report> const& reports)
{
    for (Storms::Report const& report : reports)
    {
        m_storms->notStored(report, Clock::now());
    }
}

/// Takes note of what became of a batch. What failed is tried again, unless the file refused it by a rule, or alone,
/// beside others that were stored: that event is lost.
void Backlog::settle(std::vector<Request> const& requests, std::vector<Posted*> const& posted,
                     std::vector<Storms::Report> const& reports)
{
    bool const isAnyStored = std::any_of(requests.begin(), requests.end(),
                                         [](Request const& request) { return request.receipt.result >= 0; });
    bool isAnyKept = false;
    m_lastResult = HISTORY_OK;
    for (std::size_t i = 0; i < requests.size(); ++i)
    {
        Request const& request = requests[i];
        bool const isStored = request.receipt.result >= 0;
        bool const isLost = request.isRefusedByFile && (isAnyStored || request.receipt.result == HISTORY_REFUSED);
        m_lastResult = isStored ? m_lastResult : request.receipt.result;
        isAnyKept = isAnyKept || (!isStored && !isLost);
        if (i < posted.size())
        {
            posted[i]->doubtfulKey = request.doubtfulKey;
            posted[i]->isSettled = isStored || isLost;
            m_lostCount += isLost ? 1 : 0;
        }
        else if (isLost)
        {
            m_lostCount += reports[i - posted.size()].uncounted.events;
        }
        else if (!isStored) // Counted twice rather than not at all where nobody can tell.
        {
            m_storms->notStored(reports[i - posted.size()], Clock::now());
        }
    }
    m_posted.dropSettled();
    m_retryAt = !isAnyKept ? TimePoint{} : Clock::now() + kPauseAfterFailure;
}

} // namespace firaim
