#include <history/internal/Backlog.h>

#include <db/internal/BlockSignals.h>
#include <history/internal/Deadline.h>

#include <algorithm>
#include <mutex>
#include <new>
#include <system_error>

namespace firaim
{

namespace
{

using Clock = std::chrono::steady_clock;

} // namespace

Backlog::Backlog(CommitQueue& queue) : m_queue(queue)
{
    m_queue.setSink([this](Request const& request) { onStored(request); });
}

void Backlog::open(RecorderOptions const& options)
{
    std::lock_guard<Mutex> const lock(m_mutex);
    m_options = options;
    m_storms.emplace(options.stormBurst, options.stormRowsPerMinute);
    m_isOpen = true;
    ++m_opening;
    m_posted.clear();
    m_lostCount = 0;
    m_reportedLostCount = 0;
    m_countedCount = 0;
    m_stores = {};
    m_ends = {};
    m_postedBeforeEnd = 0;
    m_lastResult = HISTORY_OK;
    m_retryAt = {};
}

int Backlog::close(Timeout timeout)
{
    {
        std::lock_guard<Mutex> const lock(m_mutex);
        if (!m_isOpen || m_isClosing)
        {
            return HISTORY_INVALID_STATE;
        }
        m_isClosing = true;
        m_closeBy = deadline::after(timeout);
        m_changed.notifyAll();
    }
    m_queue.refuseCalls();
    bool isAllStored = false;
    std::thread thread;
    {
        std::lock_guard<Mutex> const lock(m_mutex);
        std::uint64_t left = 0;
        // Without cancellation: an application that cancels waits is about to end, and posted events must outlive it.
        isAllStored = waitForAll(left, m_closeBy, nullptr) == HISTORY_OK;
        m_isOpen = false;
        m_isThreadRunning = false;
        m_work.notifyAll();
        m_changed.notifyAll();
        thread = std::move(m_thread);
    }
    if (thread.joinable())
    {
        thread.join();
    }
    std::uint64_t lost = 0;
    {
        std::lock_guard<Mutex> const lock(m_mutex);
        // The last attempt may have ended after the wait.
        isAllStored = isAllStored || (m_posted.isEmpty() && !m_storms->deadline());
        m_lostCount += m_posted.unfinished();
        m_posted.dropAll();
        lost = m_lostCount + m_storms->uncounted();
        m_isClosing = false;
    }
    if (lost > 0 && m_options.onLost)
    {
        m_options.onLost(lost); // Without a lock: it may call the recorder.
    }
    return isAllStored && lost == 0 ? HISTORY_OK : HISTORY_FAILED;
}

int Backlog::post(Request const& request, Timeout timeout)
{
    TimePoint const end = deadline::after(timeout);
    std::lock_guard<Mutex> const lock(m_mutex);
    while (m_isOpen && !m_isClosing && m_posted.size() >= m_options.queueLimit && m_options.doesPostWait &&
           Clock::now() < end)
    {
        if (m_options.isCancelled != nullptr && m_options.isCancelled())
        {
            return HISTORY_CANCELLED;
        }
        waitForChange(end, m_options.isCancelled);
    }
    if (!m_isOpen || m_isClosing)
    {
        return HISTORY_INVALID_STATE;
    }
    if (m_posted.size() >= m_options.queueLimit)
    {
        return HISTORY_QUEUE_FULL;
    }
    if (!startThread())
    {
        return HISTORY_FAILED;
    }
    m_posted.add(request);
    m_work.notifyOne();
    return HISTORY_QUEUED;
}

bool Backlog::admits(Request& request)
{
    std::lock_guard<Mutex> const lock(m_mutex);
    request.order = ++m_order;
    // Without a thread, nothing could be counted later: write the row instead.
    if (!m_isOpen || m_isClosing || m_options.stormBurst == 0 || !startThread() ||
        m_storms->admits(*request.event, request.now, request.order, Clock::now()))
    {
        return true;
    }
    ++m_countedCount;
    if (m_countedCount == 1 || m_storms->deadline() != m_watched)
    {
        m_work.notifyOne();
    }
    return false;
}

void Backlog::prepareEdge(Request& request)
{
    std::lock_guard<Mutex> const lock(m_mutex);
    request.order = ++m_order;
    if (m_isOpen && m_options.stormBurst > 0)
    {
        request.status = [this, event = request.event]
        {
            std::lock_guard<Mutex> const laterLock(m_mutex);
            return m_storms->countedStatusOf(*event);
        };
    }
}

/// Called before anything else is written, so that the later row of a storm keeps the state that this request has set.
void Backlog::onStored(Request const& request)
{
    std::lock_guard<Mutex> const lock(m_mutex);
    if (!m_storms)
    {
        return;
    }
    switch (request.kind)
    {
    case Request::RECORD:
        m_storms->stateSet(*request.event, request.event->status, request.order);
        break;
    case Request::RAISE:
        m_storms->stateSet(*request.event, FAULT_ACTIVE, request.order);
        break;
    case Request::CLEAR:
        m_storms->stateSet(*request.event, FAULT_INACTIVE, request.order);
        break;
    case Request::CLEAR_CODE:
        m_storms->codeCleared(request.event->code, request.order);
        break;
    case Request::END_CYCLE:
    case Request::STORM:
        break;
    }
}

bool Backlog::startThread()
{
    if (m_isThreadRunning)
    {
        return true;
    }
    try
    {
        BlockSignals const blocked; // Signals belong to the application's own threads.
        m_thread = std::thread([this] { work(); });
        m_isThreadRunning = true;
        return true;
    }
    catch (std::system_error const&)
    {
        return false;
    }
}

int Backlog::flush(std::uint64_t& left, Timeout timeout)
{
    TimePoint const end = deadline::after(timeout);
    std::lock_guard<Mutex> const lock(m_mutex);
    left = 0;
    return m_isOpen ? waitForAll(left, end, m_options.isCancelled) : static_cast<int>(HISTORY_INVALID_STATE);
}

int Backlog::drain(Timeout timeout)
{
    TimePoint const end = deadline::after(timeout);
    std::lock_guard<Mutex> const lock(m_mutex);
    if (!m_isOpen || !m_isThreadRunning)
    {
        return HISTORY_OK; // Without a thread, nothing is posted or counted.
    }
    ++m_stores.wanted;
    return waitFor({m_posted.count(), m_stores.wanted, 0, m_opening}, end, m_options.isCancelled);
}

int Backlog::waitForAll(std::uint64_t& left, TimePoint end, bool (*isCancelled)())
{
    if (!m_isThreadRunning)
    {
        return HISTORY_OK; // The thread starts with the first event that is posted or counted.
    }
    ++m_ends.wanted;
    m_postedBeforeEnd = m_posted.count();
    Goal const goal = {m_posted.count(), 0, m_ends.wanted, m_opening};
    std::uint64_t const lostBefore = m_reportedLostCount;
    int const result = waitFor(goal, end, isCancelled);
    if (result == HISTORY_INVALID_STATE)
    {
        return result;
    }
    left = m_lostCount - lostBefore + m_posted.unfinishedBefore(goal.posted);
    m_reportedLostCount = m_lostCount;
    return result == HISTORY_OK && left > 0 ? static_cast<int>(HISTORY_FAILED) : result;
}

int Backlog::waitFor(Goal const& goal, TimePoint end, bool (*isCancelled)())
{
    m_work.notifyOne();
    bool isEnded = false;
    while (m_isOpen && m_opening == goal.opening && !isReached(goal) && !isEnded && Clock::now() < end)
    {
        waitForChange(end, isCancelled);
        isEnded = isCancelled != nullptr && isCancelled();
    }
    if (m_opening != goal.opening)
    {
        return HISTORY_INVALID_STATE; // Closed meanwhile, and opened again.
    }
    if (isReached(goal))
    {
        return HISTORY_OK;
    }
    if (isEnded)
    {
        return HISTORY_CANCELLED;
    }
    return m_lastResult < 0 && m_lastResult != HISTORY_BUSY ? HISTORY_FAILED : HISTORY_BUSY;
}

void Backlog::waitForChange(TimePoint end, bool (*isCancelled)())
{
    m_changed.waitUntil(m_mutex, isCancelled == nullptr ? end : std::min(end, Clock::now() + CommitQueue::kCancelPoll));
}

bool Backlog::isReached(Goal const& goal) const
{
    return m_posted.finishedCount() >= goal.posted && m_stores.done >= goal.stores && m_ends.done >= goal.ends;
}

std::uint64_t Backlog::queued()
{
    std::lock_guard<Mutex> const lock(m_mutex);
    return m_posted.unfinished();
}

std::uint64_t Backlog::counted()
{
    std::lock_guard<Mutex> const lock(m_mutex);
    return m_countedCount;
}

} // namespace firaim
