#include <history/FaultRecorder.h>

#include <history/internal/Backlog.h>
#include <history/internal/CommitQueue.h>
#include <history/internal/Failure.h>

#include <limits>
#include <new>

#include <unistd.h>

namespace firaim
{

namespace
{

/// SQLite's integers are signed.
constexpr unsigned long long kMaxStamp = std::numeric_limits<std::int64_t>::max();

bool hasZeroByte(std::string const& text)
{
    return text.find('\0') != std::string::npos;
}

/// Why an event cannot be recorded; null if it can.
char const* refusalOf(FaultEvent const& event)
{
    for (std::string const* const text :
         {&event.module, &event.parameter, &event.description, &event.signalsFile, &event.configBackup})
    {
        if (hasZeroByte(*text))
        {
            return "a text has a zero byte";
        }
    }
    for (std::optional<std::string> const* const text :
         {&event.timeZone, &event.codeName, &event.dateTimeText, &event.systemTimeText})
    {
        if (*text && hasZeroByte(**text))
        {
            return "a text has a zero byte";
        }
    }
    if (event.code > std::numeric_limits<std::uint32_t>::max())
    {
        return "the fault code has more than 32 bits";
    }
    return event.time && *event.time > kMaxStamp ? "the time is beyond 2^63 - 1" : nullptr;
}

} // namespace

class FIRAIM_HIDDEN FaultRecorder::Core
{
public:
    /// Runs one request; `event` is null for a request without one.
    Request run(Request::Kind kind, FaultEvent const* event, Timeout timeout)
    {
        Request withoutMemory;
        withoutMemory.receipt.result = HISTORY_FAILED;
        try
        {
            std::vector<Request> requests(1);
            prepare(requests.front(), kind, event);
            if (requests.front().isEdge() && requests.front().phase == Request::WAITING)
            {
                backlog.prepareEdge(requests.front());
            }
            queue.run(requests, timeout);
            return std::move(requests.front());
        }
        catch (std::bad_alloc const&)
        {
            return withoutMemory; // Nothing was begun.
        }
    }

    void prepare(Request& request, Request::Kind kind, FaultEvent const* event)
    {
        request.kind = kind;
        request.event = event;
        request.hasReceipt = true;
        request.setTimes();
        char const* const refusal = event != nullptr ? refusalOf(*event) : nullptr;
        if (refusal != nullptr)
        {
            request.phase = Request::DONE;
            request.receipt.result = HISTORY_REFUSED;
            request.problem = refusal;
        }
    }

    Receipt record(FaultEvent const& event, Timeout timeout)
    {
        try
        {
            std::vector<Request> requests(1);
            prepareRecord(requests.front(), event);
            queue.run(requests, timeout);
            return requests.front().receipt;
        }
        catch (std::bad_alloc const&)
        {
            return {HISTORY_FAILED, 0}; // Nothing was begun.
        }
    }

    /// As `prepare`, for an event that a storm may count instead.
    void prepareRecord(Request& request, FaultEvent const& event)
    {
        prepare(request, Request::RECORD, &event);
        if (request.phase == Request::WAITING && !backlog.admits(request))
        {
            request.phase = Request::DONE;
            request.receipt.result = HISTORY_COUNTED;
        }
    }

    int post(FaultEvent const& event, Timeout timeout)
    {
        Request request;
        prepareRecord(request, event);
        if (request.phase == Request::DONE)
        {
            return request.receipt.result < 0 ? queue.refuseCounted(request.receipt.result, request.problem.c_str())
                                              : request.receipt.result;
        }
        int const result = backlog.post(request, timeout);
        switch (result)
        {
        case HISTORY_INVALID_STATE:
            return queue.refuse(result, kNotOpen);
        case HISTORY_QUEUE_FULL:
            return queue.refuseCounted(result, "the queue of posted events is full");
        case HISTORY_FAILED:
            return queue.refuseCounted(result, "no thread can be had");
        case HISTORY_CANCELLED:
            return queue.refuseCounted(result, "the wait for room in the queue was ended");
        default:
            return result;
        }
    }

    int endCycle(Timeout timeout)
    {
        auto const begin = std::chrono::steady_clock::now();
        // Events acknowledged before now belong to the cycle that ends.
        int const result = backlog.drain(timeout);
        if (result != HISTORY_OK)
        {
            return queue.refuseCounted(result, "not all that was posted or counted in this cycle is recorded yet");
        }
        auto const passed = std::chrono::duration_cast<Timeout>(std::chrono::steady_clock::now() - begin);
        return run(Request::END_CYCLE, nullptr, timeout - passed).receipt.result;
    }

    int close(Timeout timeout)
    {
        int const result = backlog.close(timeout);
        if (result == HISTORY_INVALID_STATE)
        {
            return queue.refuse(result, kNotOpen);
        }
        static_cast<void>(queue.close()); // Cannot fail: only the call that has closed the backlog comes here.
        return result == HISTORY_OK ? result
                                    : queue.refuse(result, "not all that was posted or counted could be recorded");
    }

    CommitQueue queue;
    Backlog backlog{queue};
};

FaultRecorder::FaultRecorder() : m_core(std::make_unique<Core>()), m_ownerPid(getpid()) {}

FaultRecorder::~FaultRecorder()
{
    if (isForked())
    {
        static_cast<void>(m_core.release()); // Belongs to the parent: locks may be held, and the connection is in use.
        return;
    }
    static_cast<void>(m_core->close(kDefaultTimeout)); // onLost has reported lost events.
}

bool FaultRecorder::isForked() const
{
    return getpid() != m_ownerPid;
}

int FaultRecorder::open(std::string const& path, RecorderOptions const& options, Timeout timeout)
{
    if (isForked())
    {
        return HISTORY_INVALID_STATE;
    }
    if (hasZeroByte(options.timeZone))
    {
        return m_core->queue.refuse(HISTORY_REFUSED, "the time zone has a zero byte");
    }
    int const result = m_core->queue.open(path, options, timeout);
    if (result != HISTORY_OK)
    {
        return result;
    }
    try
    {
        m_core->backlog.open(options);
    }
    catch (...)
    {
        static_cast<void>(m_core->queue.close()); // A recorder that is open in part could never be closed.
        throw;
    }
    return HISTORY_OK;
}

int FaultRecorder::close(Timeout timeout)
{
    return isForked() ? HISTORY_INVALID_STATE : m_core->close(timeout);
}

Receipt FaultRecorder::record(FaultEvent const& event, Timeout timeout)
{
    return isForked() ? Receipt() : m_core->record(event, timeout);
}

Receipt FaultRecorder::raise(FaultEvent const& event, Timeout timeout)
{
    return isForked() ? Receipt() : m_core->run(Request::RAISE, &event, timeout).receipt;
}

Receipt FaultRecorder::clear(FaultEvent const& event, Timeout timeout)
{
    return isForked() ? Receipt() : m_core->run(Request::CLEAR, &event, timeout).receipt;
}

int FaultRecorder::recordAll(std::vector<FaultEvent> const& events, std::vector<Receipt>& receipts, Timeout timeout)
{
    receipts.assign(events.size(), Receipt());
    if (isForked())
    {
        return HISTORY_INVALID_STATE;
    }
    std::vector<Request> requests;
    try
    {
        requests = std::vector<Request>(events.size());
        for (std::size_t i = 0; i < events.size(); ++i)
        {
            m_core->prepareRecord(requests[i], events[i]);
        }
    }
    catch (std::bad_alloc const&)
    {
        receipts.assign(events.size(), {HISTORY_FAILED, 0});
        return HISTORY_FAILED;
    }
    m_core->queue.run(requests, timeout);
    int result = HISTORY_OK;
    for (std::size_t i = 0; i < requests.size(); ++i)
    {
        receipts[i] = requests[i].receipt;
        int const own = receipts[i].result;
        result = result == HISTORY_OK || (result > 0 && own < 0) ? own : result;
    }
    return result;
}

int FaultRecorder::clearCode(FaultEvent const& event, std::vector<unsigned long long>& keys, Timeout timeout)
{
    keys.clear();
    if (isForked())
    {
        return HISTORY_INVALID_STATE;
    }
    Request request = m_core->run(Request::CLEAR_CODE, &event, timeout);
    keys = std::move(request.keys);
    return request.receipt.result;
}

int FaultRecorder::post(FaultEvent const& event, Timeout timeout)
{
    if (isForked())
    {
        return HISTORY_INVALID_STATE;
    }
    try
    {
        return m_core->post(event, timeout);
    }
    catch (std::bad_alloc const&)
    {
        return m_core->queue.refuseCounted(HISTORY_FAILED, kNoMemory); // The event was not taken.
    }
}

int FaultRecorder::flush(std::uint64_t& left, Timeout timeout)
{
    left = 0;
    if (isForked())
    {
        return HISTORY_INVALID_STATE;
    }
    int const result = m_core->backlog.flush(left, timeout);
    switch (result)
    {
    case HISTORY_INVALID_STATE:
        return m_core->queue.refuse(result, kNotOpen);
    case HISTORY_BUSY:
    case HISTORY_CANCELLED:
        return m_core->queue.refuse(result, "not all that was posted or counted is recorded yet");
    default:
        return result; // The failed request has set its own text.
    }
}

int FaultRecorder::endCycle(Timeout timeout)
{
    return isForked() ? static_cast<int>(HISTORY_INVALID_STATE) : m_core->endCycle(timeout);
}

unsigned int FaultRecorder::startupId() const
{
    return isForked() ? 0 : m_core->queue.startupId();
}

FaultRecorder::Counters FaultRecorder::counters() const
{
    if (isForked())
    {
        return {};
    }
    Counters counters = m_core->queue.counters();
    counters.counted = m_core->backlog.counted();
    counters.queued = m_core->backlog.queued();
    return counters;
}

std::string FaultRecorder::lastProblem() const
{
    return isForked() ? std::string() : m_core->queue.lastProblem();
}

} // namespace firaim
