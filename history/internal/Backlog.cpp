#include <history/internal/Backlog.h>

#include <history/internal/Deadline.h>

#include <algorithm>
#include <csignal>
#include <mutex>
#include <new>
#include <system_error>

namespace firaim
{

namespace
{

using clock_t = std::chrono::steady_clock;

constexpr std::size_t kMostInBatch = 1000;
/// How long one attempt waits for other processes, so that closing is soon noticed.
constexpr std::chrono::milliseconds kPatienceOfAttempt(500);
constexpr std::chrono::milliseconds kPauseAfterFailure(200);

/// Signals are for the application's own threads.
class WithoutSignals
{
public:
    WithoutSignals()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~WithoutSignals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    WithoutSignals(WithoutSignals const&) = delete;
    WithoutSignals& operator=(WithoutSignals const&) = delete;

private:
    sigset_t m_before;
};

} // namespace

Backlog::Backlog(CommitQueue& queue) : m_queue(queue)
{
    m_queue.tellStored([this](Request const& request) { stored(request); });
}

void Backlog::open(RecorderOptions const& options)
{
    std::lock_guard<Mutex> const lock(m_mutex);
    m_options = options;
    m_storms.emplace(options.stormBurst, options.stormRowsPerMinute);
    m_isOpen = true;
    m_postedCount = 0;
    m_settledCount = 0;
    m_lostCount = 0;
    m_toldCount = 0;
    m_countedCount = 0;
    m_storesWanted = 0;
    m_storesDone = 0;
    m_endsWanted = 0;
    m_endsDone = 0;
    m_postedBeforeEnd = 0;
    m_lastResult = HISTORY_OK;
    m_retryAt = {};
}

int Backlog::close(patience_t patience)
{
    {
        std::lock_guard<Mutex> const lock(m_mutex);
        if (!m_isOpen || m_isClosing)
        {
            return HISTORY_INVALID_STATE;
        }
        m_isClosing = true;
        m_closeBy = deadline::after(patience);
        m_changed.notifyAll();
    }
    bool isFlushed = false;
    std::thread thread;
    {
        std::lock_guard<Mutex> const lock(m_mutex);
        std::uint64_t left = 0;
        // Whoever cancels waits is about to end, and posted events are to outlive that.
        isFlushed = waitForAll(left, m_closeBy, nullptr) == HISTORY_OK;
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
        lost = m_lostCount + unsettledBefore(m_postedCount) + m_storms->uncounted();
        m_posted.clear();
        m_settledCount = m_postedCount;
        m_isClosing = false;
    }
    if (lost > 0 && m_options.onLost)
    {
        m_options.onLost(lost); // Without a lock: it may call the recorder.
    }
    return isFlushed && lost == 0 ? HISTORY_OK : HISTORY_FAILED;
}

int Backlog::post(Request const& request, patience_t patience)
{
    time_t const end = deadline::after(patience);
    std::lock_guard<Mutex> const lock(m_mutex);
    while (m_isOpen && !m_isClosing && m_posted.size() >= m_options.queueLimit && m_options.doesPostWait &&
           clock_t::now() < end)
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
    m_posted.push_back({*request.event, request.now, request.upTime, request.order, 0, false});
    ++m_postedCount;
    m_work.notifyOne();
    return HISTORY_QUEUED;
}

bool Backlog::admits(Request& request)
{
    std::lock_guard<Mutex> const lock(m_mutex);
    request.order = ++m_order;
    // Without a thread nothing could be counted; the row is then the better answer.
    if (!m_isOpen || m_isClosing || m_options.stormBurst == 0 || !startThread() ||
        m_storms->admits(*request.event, request.now, request.order, clock_t::now()))
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

/// Called before anything else is written: the row of a storm, which comes later, leaves the state.
void Backlog::stored(Request const& request)
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
        WithoutSignals const withoutSignals;
        m_thread = std::thread([this] { work(); });
        m_isThreadRunning = true;
        return true;
    }
    catch (std::system_error const&)
    {
        return false;
    }
}

int Backlog::flush(std::uint64_t& left, patience_t patience)
{
    time_t const end = deadline::after(patience);
    std::lock_guard<Mutex> const lock(m_mutex);
    left = 0;
    return m_isOpen ? waitForAll(left, end, m_options.isCancelled) : static_cast<int>(HISTORY_INVALID_STATE);
}

int Backlog::passOn(patience_t patience)
{
    time_t const end = deadline::after(patience);
    std::lock_guard<Mutex> const lock(m_mutex);
    if (!m_isOpen || !m_isThreadRunning)
    {
        return HISTORY_OK; // There is nothing.
    }
    ++m_storesWanted;
    return waitFor({m_postedCount, m_storesWanted, 0}, end, m_options.isCancelled);
}

int Backlog::waitForAll(std::uint64_t& left, time_t end, bool (*isCancelled)())
{
    if (!m_isThreadRunning)
    {
        return HISTORY_OK; // There never was anything.
    }
    ++m_endsWanted;
    m_postedBeforeEnd = m_postedCount;
    goal_t const goal = {m_postedCount, 0, m_endsWanted};
    std::uint64_t const lostBefore = m_toldCount;
    int const result = waitFor(goal, end, isCancelled);
    left = m_lostCount - lostBefore + unsettledBefore(goal.posted);
    m_toldCount = m_lostCount;
    return result == HISTORY_OK && left > 0 ? static_cast<int>(HISTORY_FAILED) : result;
}

int Backlog::waitFor(goal_t const& goal, time_t end, bool (*isCancelled)())
{
    m_work.notifyOne();
    bool isEnded = false;
    while (m_isOpen && !isReached(goal) && !isEnded && clock_t::now() < end)
    {
        waitForChange(end, isCancelled);
        isEnded = isCancelled != nullptr && isCancelled();
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

void Backlog::waitForChange(time_t end, bool (*isCancelled)())
{
    m_changed.waitUntil(m_mutex,
                        isCancelled == nullptr ? end : std::min(end, clock_t::now() + CommitQueue::kCancelLook));
}

bool Backlog::isReached(goal_t const& goal) const
{
    return m_settledCount >= goal.posted && m_storesDone >= goal.stores && m_endsDone >= goal.ends;
}

/// Of the events that were posted first, so many in all, those that are neither recorded nor lost.
std::uint64_t Backlog::unsettledBefore(std::uint64_t postedTarget) const
{
    std::uint64_t const there = postedTarget - std::min(postedTarget, m_settledCount);
    return static_cast<std::uint64_t>(std::count_if(m_posted.begin(),
                                                    m_posted.begin() + static_cast<std::ptrdiff_t>(there),
                                                    [](posted_t const& posted) { return !posted.isSettled; }));
}

std::uint64_t Backlog::queued()
{
    std::lock_guard<Mutex> const lock(m_mutex);
    return unsettledBefore(m_postedCount);
}

std::uint64_t Backlog::counted()
{
    std::lock_guard<Mutex> const lock(m_mutex);
    return m_countedCount;
}

void Backlog::work()
{
    std::lock_guard<Mutex> const lock(m_mutex);
    while (m_isOpen)
    {
        if (isWorkThere(clock_t::now()))
        {
            workOnce();
        }
        else
        {
            waitForWork();
        }
    }
}

bool Backlog::isWorkThere(time_t now) const
{
    std::optional<time_t> const stormDeadline = m_storms->deadline();
    bool const isThere = !m_posted.empty() || m_endsWanted > m_endsDone || m_storesWanted > m_storesDone ||
                         (stormDeadline && *stormDeadline <= now);
    return isThere && now >= m_retryAt;
}

void Backlog::waitForWork()
{
    time_t const now = clock_t::now();
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
        std::uint64_t const stores = m_storesWanted;
        std::uint64_t const ends = m_endsWanted;
        std::uint64_t end = 0;
        std::vector<posted_t*> const posted = firstPosted(end);
        // The row of a storm is written after the rows that were posted before it, so that it leaves the right status.
        bool const isEnding = ends > m_endsDone && end >= m_postedBeforeEnd;
        runBatch(posted, m_storms->take(clock_t::now(), isEnding));
        if (m_retryAt == time_t{})
        {
            m_storesDone = stores;
            m_endsDone = isEnding ? ends : m_endsDone;
        }
    }
    catch (std::exception const&) // Of memory, or of a standard output that was told to throw.
    {
        m_lastResult = HISTORY_FAILED;
        m_retryAt = clock_t::now() + kPauseAfterFailure;
    }
    m_changed.notifyAll();
}

/// The first events that are not settled; `end` is set to the number of the one behind them.
std::vector<Backlog::posted_t*> Backlog::firstPosted(std::uint64_t& end)
{
    std::vector<posted_t*> posted;
    end = m_settledCount;
    for (auto event = m_posted.begin(); event != m_posted.end() && posted.size() < kMostInBatch; ++event, ++end)
    {
        if (!event->isSettled)
        {
            posted.push_back(&*event);
        }
    }
    return posted;
}

void Backlog::runBatch(std::vector<posted_t*> const& posted, std::vector<Storms::report_t> const& reports)
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
        requests[i].event = &posted[i]->event;
        requests[i].now = posted[i]->now;
        requests[i].upTime = posted[i]->upTime;
        requests[i].order = posted[i]->order;
        requests[i].doubtfulKey = posted[i]->doubtfulKey;
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
    patience_t const patience = patienceOfAttempt();
    {
        Unlocked const unlocked(m_mutex);
        m_queue.run(requests, patience);
    }
    settle(requests, posted, reports);
}

Backlog::patience_t Backlog::patienceOfAttempt() const
{
    return m_isClosing ? std::min(deadline::timeTo(m_closeBy), kPatienceOfAttempt) : kPatienceOfAttempt;
}

void Backlog::giveBack(std::vector<Storms::report_t> const& reports)
{
    for (Storms::report_t const& report : reports)
    {
        m_storms->notStored(report, clock_t::now());
    }
}

/// Takes note of what became of a batch. What failed is tried again, unless the file refused it alone, beside others
/// that were stored: that event is lost.
void Backlog::settle(std::vector<Request> const& requests, std::vector<posted_t*> const& posted,
                     std::vector<Storms::report_t> const& reports)
{
    bool const isAnyStored = std::any_of(requests.begin(), requests.end(),
                                         [](Request const& request) { return request.receipt.result >= 0; });
    bool isAnyKept = false;
    m_lastResult = HISTORY_OK;
    for (std::size_t i = 0; i < requests.size(); ++i)
    {
        int const result = requests[i].receipt.result;
        m_lastResult = result < 0 ? result : m_lastResult;
        if (i >= posted.size())
        {
            Storms::report_t const& report = reports[i - posted.size()];
            if (result < 0 && isAnyStored && requests[i].isRefusedByFile)
            {
                m_lostCount += report.uncounted.events;
            }
            else if (result < 0) // Counted twice rather than not at all where nobody can tell.
            {
                m_storms->notStored(report, clock_t::now());
                isAnyKept = true;
            }
            continue;
        }
        posted[i]->doubtfulKey = requests[i].doubtfulKey;
        posted[i]->isSettled = result >= 0 || (isAnyStored && requests[i].isRefusedByFile);
        m_lostCount += posted[i]->isSettled && result < 0 ? 1 : 0;
        isAnyKept = isAnyKept || !posted[i]->isSettled;
    }
    while (!m_posted.empty() && m_posted.front().isSettled)
    {
        m_posted.pop_front();
        ++m_settledCount;
    }
    m_retryAt = !isAnyKept ? time_t{} : clock_t::now() + kPauseAfterFailure;
}

} // namespace firaim
