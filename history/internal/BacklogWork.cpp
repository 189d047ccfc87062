// The work of Backlog's thread.

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

constexpr std::size_t kMaxBatch = 1000;
/// Busy timeout of one attempt; short, so that `close` is noticed soon.
constexpr std::chrono::milliseconds kTimeoutOfAttempt(500);
constexpr std::chrono::milliseconds kPauseAfterFailure(200);

} // namespace

void Backlog::work()
{
    std::lock_guard<Mutex> const lock(m_mutex);
    while (m_isOpen)
    {
        if (hasWork(Clock::now()))
        {
            workOnce();
        }
        else
        {
            waitForWork();
        }
    }
}

bool Backlog::hasWork(TimePoint now) const
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

/// Passes the present work to the queue. Posted events stay in `m_posted` until they are finished.
void Backlog::workOnce()
{
    try
    {
        std::uint64_t const stores = m_stores.wanted;
        std::uint64_t const ends = m_ends.wanted;
        std::uint64_t end = 0;
        std::vector<Posted*> const posted = m_posted.first(kMaxBatch, end);
        // Write a storm's row after the rows that were posted before it, so that the storm's row sets the right status.
        bool const isEnding = ends > m_ends.done && end >= m_postedBeforeEnd;
        runBatch(posted, m_storms->take(Clock::now(), isEnding));
        if (m_retryAt == TimePoint{})
        {
            m_stores.done = stores;
            m_ends.done = isEnding ? ends : m_ends.done;
        }
    }
    catch (std::exception const&) // Short of memory, or std::cout is set to throw.
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
        putBack(reports);
        throw;
    }
    for (std::size_t i = 0; i < posted.size(); ++i)
    {
        posted[i]->fillRequest(requests[i]);
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
        request.setTimes();
    }
    Timeout const timeout = timeoutOfAttempt();
    {
        Unlocked const unlocked(m_mutex);
        m_queue.run(requests, timeout);
    }
    handleOutcome(requests, posted, reports);
}

Backlog::Timeout Backlog::timeoutOfAttempt() const
{
    return m_isClosing ? std::min(deadline::timeTo(m_closeBy), kTimeoutOfAttempt) : kTimeoutOfAttempt;
}

void Backlog::putBack(std::vector<Storms::Report> const& reports)
{
    for (Storms::Report const& report : reports)
    {
        m_storms->putBack(report, Clock::now());
    }
}

/// Handles the outcome of a batch. Failed requests are tried again, except those that a rule of the file refused, and
/// those that failed alone in a trigger while others were stored: their events are lost.
void Backlog::handleOutcome(std::vector<Request> const& requests, std::vector<Posted*> const& posted,
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
            posted[i]->isFinished = isStored || isLost;
            m_lostCount += isLost ? 1 : 0;
        }
        else if (isLost)
        {
            m_lostCount += reports[i - posted.size()].uncounted.events;
        }
        else if (!isStored) // If the outcome is unknown, rather count twice than not at all.
        {
            m_storms->putBack(reports[i - posted.size()], Clock::now());
        }
    }
    m_posted.dropFinished();
    m_retryAt = !isAnyKept ? TimePoint{} : Clock::now() + kPauseAfterFailure;
}

} // namespace firaim
