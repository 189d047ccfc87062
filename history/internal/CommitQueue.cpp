#include <history/internal/CommitQueue.h>

#include <history/internal/Deadline.h>
#include <history/internal/Failure.h>

#include <algorithm>
#include <mutex>
#include <new>

namespace firaim
{

namespace
{

using Clock = std::chrono::steady_clock;

/// Limits of a group: they bound the wait of others and the size of the journal. A single request may be larger.
constexpr std::size_t kMaxRequests = 1000;
constexpr std::size_t kMaxBytes = 1 << 20;

} // namespace

CommitQueue::~CommitQueue()
{
    static_cast<void>(close());
}

int CommitQueue::open(std::string const& path, RecorderOptions const& options, Timeout timeout)
{
    std::lock_guard<Mutex> const lock(m_mutex);
    if (m_writer || m_isOpening || m_isClosing)
    {
        setProblem(m_problem, path, "open already");
        return HISTORY_INVALID_STATE;
    }
    m_isOpening = true;
    int result = HISTORY_OK;
    std::string problem;
    std::string ownPath;
    RecorderOptions ownOptions;
    std::unique_ptr<GroupWriter> writer;
    {
        Unlocked const unlocked(m_mutex);
        try
        {
            m_group.reserve(kMaxRequests); // No call leads yet.
            ownPath = path;
            ownOptions = options;
            writer = std::make_unique<GroupWriter>(path, options);
            writer->open(deadline::bounded(timeout));
        }
        catch (...)
        {
            result = caughtResult(path, problem); // The application's std::cout may throw.
        }
    }
    m_isOpening = false;
    if (result != HISTORY_OK)
    {
        m_problem.swap(problem);
        bool const isEnded = options.isCancelled != nullptr && options.isCancelled() && result == HISTORY_BUSY;
        return isEnded ? static_cast<int>(HISTORY_CANCELLED) : result;
    }
    m_writer = std::move(writer);
    m_options = std::move(ownOptions);
    m_path.swap(ownPath);
    m_counters = {};
    m_refusesCalls = false;
    return HISTORY_OK;
}

int CommitQueue::close()
{
    std::unique_ptr<GroupWriter> writer;
    std::lock_guard<Mutex> const lock(m_mutex);
    if (!isOpen())
    {
        setProblem(m_problem, kNotOpen);
        return HISTORY_INVALID_STATE;
    }
    m_isClosing = true;
    while (m_hasLeader || !m_waiting.empty())
    {
        m_idle.wait(m_mutex);
    }
    writer = std::move(m_writer);
    {
        Unlocked const unlocked(m_mutex);
        writer.reset();
    }
    m_isClosing = false;
    return HISTORY_OK;
}

void CommitQueue::run(std::vector<Request>& requests, Timeout timeout)
{
    Call call;
    call.deadline = deadline::after(timeout);
    std::lock_guard<Mutex> const lock(m_mutex);
    enqueue(requests, call);
    while (call.pending > 0)
    {
        if (!m_hasLeader)
        {
            lead(call);
        }
        else
        {
            wait(call);
        }
    }
}

/// Refuses the requests, or appends them to the queue.
void CommitQueue::enqueue(std::vector<Request>& requests, Call& call)
{
    // Only requests of posted or counted events have no receipt.
    if (!isOpen() || (m_refusesCalls && !requests.empty() && requests.front().hasReceipt))
    {
        setProblem(m_problem, kNotOpen);
        for (Request& request : requests)
        {
            if (request.receipt.result == HISTORY_REFUSED)
            {
                request.receipt.result = HISTORY_INVALID_STATE; // The result of requests that were not handled.
            }
        }
        return;
    }
    bool isMemoryShort = false;
    for (Request& request : requests)
    {
        request.call = &call;
        if (request.phase == Request::WAITING && !isMemoryShort)
        {
            isMemoryShort = !append(request);
        }
        else if (request.phase == Request::DONE && request.receipt.result < 0)
        {
            ++m_counters.refused;
            setProblem(m_problem, m_path, request.problem);
        }
    }
    if (isMemoryShort)
    {
        failWaiting(call, HISTORY_FAILED, kNoMemory);
        for (Request& request : requests)
        {
            if (request.phase == Request::WAITING)
            {
                request.phase = Request::DONE;
                request.receipt = {HISTORY_FAILED, 0};
                m_counters.refused += request.hasReceipt ? 1 : 0;
            }
        }
    }
}

/// Returns false if memory is short.
bool CommitQueue::append(Request& request)
{
    try
    {
        m_waiting.push_back(&request);
    }
    catch (std::bad_alloc const&)
    {
        return false;
    }
    ++request.call->pending;
    return true;
}

/// Waits for the leader, or until the call's deadline.
void CommitQueue::wait(Call& call)
{
    auto const now = Clock::now();
    bool const isEnded = isCancelled();
    if (now < call.deadline && !isEnded)
    {
        call.changed.waitUntil(m_mutex, m_options.isCancelled == nullptr
                                            ? call.deadline
                                            : std::min<Condition::TimePoint>(call.deadline, now + kCancelPoll));
        return;
    }
    std::string problem;
    setProblem(problem, m_path, "other calls of this process are still waiting");
    failWaiting(call, isEnded ? HISTORY_CANCELLED : HISTORY_BUSY, problem);
    if (call.pending > 0)
    {
        call.changed.wait(m_mutex); // The group that is being written will be finished soon.
    }
}

void CommitQueue::lead(Call& call)
{
    m_hasLeader = true;
    int result = HISTORY_OK;
    std::string problem;
    m_group.clear();
    try
    {
        bool const needsSources = std::any_of(m_waiting.begin(), m_waiting.end(),
                                              [&](Request const* request) { return m_writer->needsSources(*request); });
        {
            Unlocked const unlocked(m_mutex);
            m_writer->begin(deadline::timeTo(call.deadline), needsSources);
        }
        takeGroup(needsSources);
        Condition::TimePoint end = call.deadline;
        for (Request const* const request : m_group)
        {
            end = std::max(end, request->call->deadline);
        }
        Unlocked const unlocked(m_mutex);
        m_writer->write(m_group, deadline::timeTo(end));
        callSink();
    }
    catch (...)
    {
        result = caughtResult(m_path, problem);
        result = result == HISTORY_BUSY && isCancelled() ? static_cast<int>(HISTORY_CANCELLED) : result;
    }
    m_hasLeader = false;
    if (result != HISTORY_OK)
    {
        failWaiting(call, result, problem);
    }
    m_counters.groups = m_writer->groups();
    m_counters.pruned = m_writer->pruned();
    for (Request* const request : m_group)
    {
        if (request->receipt.result == HISTORY_BUSY && isCancelled())
        {
            request->receipt.result = HISTORY_CANCELLED; // The commit was waiting for a reader.
        }
        finish(*request);
    }
    wakeNext();
}

/// `areSourcesLoaded`: the active triples were read for this group, before its transaction began.
void CommitQueue::takeGroup(bool areSourcesLoaded)
{
    std::size_t bytes = 0;
    bool hasEdge = false;
    while (!m_waiting.empty() && m_group.size() < kMaxRequests)
    {
        Request* const request = m_waiting.front();
        if (!m_group.empty() && bytes + request->size() > kMaxBytes)
        {
            return;
        }
        if (!m_group.empty() && !areSourcesLoaded && m_writer->needsReading(*request))
        {
            return; // It came after the transaction began. Do not let others wait while all faults are read.
        }
        if (hasEdge && request->kind == Request::STORM)
        {
            return; // The storm's row must keep the state that the edge sets.
        }
        hasEdge = hasEdge || request->isEdge();
        bytes += request->size();
        request->phase = Request::TAKEN;
        m_group.push_back(request);
        m_waiting.pop_front();
    }
}

void CommitQueue::callSink() const
{
    for (Request const* const request : m_group)
    {
        if (m_options.stormBurst > 0 && request->receipt.result >= 0)
        {
            m_sink(*request);
        }
    }
}

/// Removes the waiting requests of a call from the queue.
void CommitQueue::failWaiting(Call& call, int result, std::string const& problem)
{
    for (Request* const request : m_waiting)
    {
        if (request->call == &call)
        {
            request->receipt = {result, 0};
            setProblem(request->problem, problem);
            finish(*request);
        }
    }
    auto const isOurs = [&](Request const* request) { return request->call == &call; };
    m_waiting.erase(std::remove_if(m_waiting.begin(), m_waiting.end(), isOurs), m_waiting.end());
}

void CommitQueue::finish(Request& request)
{
    request.phase = Request::DONE;
    m_counters.recorded += request.keys.size();
    if (request.receipt.result < 0)
    {
        m_counters.refused += request.hasReceipt ? 1 : 0;
        setProblem(m_problem, request.problem);
    }
    if (--request.call->pending == 0)
    {
        request.call->changed.notifyAll();
    }
}

/// Wakes the next call so that it leads, if there is one.
void CommitQueue::wakeNext()
{
    if (!m_waiting.empty())
    {
        m_waiting.front()->call->changed.notifyAll();
    }
    else
    {
        m_idle.notifyAll();
    }
}

bool CommitQueue::isCancelled() const
{
    return m_options.isCancelled != nullptr && m_options.isCancelled();
}

unsigned int CommitQueue::startupId()
{
    std::lock_guard<Mutex> const lock(m_mutex);
    return m_writer ? m_writer->startupId() : 0;
}

FaultRecorder::Counters CommitQueue::counters()
{
    std::lock_guard<Mutex> const lock(m_mutex);
    return m_counters;
}

int CommitQueue::refuse(int result, char const* problem)
{
    std::lock_guard<Mutex> const lock(m_mutex);
    if (m_path.empty())
    {
        setProblem(m_problem, problem);
    }
    else
    {
        setProblem(m_problem, m_path, problem);
    }
    return result;
}

int CommitQueue::refuseCounted(int result, char const* problem)
{
    std::lock_guard<Mutex> const lock(m_mutex);
    if (!isOpen() || m_refusesCalls)
    {
        setProblem(m_problem, kNotOpen);
        return HISTORY_INVALID_STATE;
    }
    ++m_counters.refused;
    setProblem(m_problem, m_path, problem);
    return result;
}

void CommitQueue::refuseCalls()
{
    std::lock_guard<Mutex> const lock(m_mutex);
    m_refusesCalls = true;
}

std::string CommitQueue::lastProblem()
{
    std::lock_guard<Mutex> const lock(m_mutex);
    return m_problem;
}

} // namespace firaim
