#pragma once

#include <history/FaultRecorder.h>
#include <history/internal/CommitQueue.h>
#include <history/internal/Mutex.h>
#include <history/internal/PostedEvents.h>
#include <history/internal/Storms.h>

#include <cstdint>
#include <optional>
#include <thread>
#include <vector>

namespace firaim
{

/// Events that are acknowledged before they are on the storage: posted ones, and those that storms have counted. A
/// thread, started when there is something to do for the first time, passes both on to the commit queue. Any thread may
/// call anything at any time but the destructor.
class Backlog
{
public:
    using Timeout = std::chrono::milliseconds;

    /// `queue` tells it of what is stored.
    explicit Backlog(CommitQueue& queue);
    /// Must be closed.
    ~Backlog() = default;
    Backlog(Backlog const&) = delete;
    Backlog& operator=(Backlog const&) = delete;

    void open(RecorderOptions const& options);
    /// Records what is there, for so long, and ends the thread. HISTORY_OK; HISTORY_FAILED when that was not all;
    /// HISTORY_INVALID_STATE when not open or being closed, by another thread.
    int close(Timeout timeout);

    /// Takes the event of `request`, which it copies, and waits for room for so long where that is wanted. Returns a
    /// HistoryResult.
    int post(Request const& request, Timeout timeout);

    /// Whether a RECORD gets a row; if not, it is counted.
    bool admits(Request& request);
    /// Lets an edge know what was counted of its triple.
    void prepareEdge(Request& request);

    int flush(std::uint64_t& left, Timeout timeout);
    /// As `flush`, without a row for storms, and without regard to what was lost.
    int passOn(Timeout timeout);

    std::uint64_t queued();
    std::uint64_t counted();

private:
    using Posted = PostedEvents::Posted;
    using TimePoint = Condition::TimePoint;

    /// Something that calls want the thread to do.
    struct Errand
    {
        std::uint64_t wanted; ///< by so many calls
        std::uint64_t done;   ///< for the first so many of them
    };

    /// The condition that a call waits for.
    struct Goal
    {
        std::uint64_t posted;  ///< so many are settled
        std::uint64_t stores;  ///< of `m_stores`
        std::uint64_t ends;    ///< of `m_ends`
        std::uint64_t opening; ///< that the call belongs to
    };

    void stored(Request const& request);
    bool startThread();
    void work();
    bool isWorkThere(TimePoint now) const;
    void waitForWork();
    void workOnce();
    void runBatch(std::vector<Posted*> const& posted, std::vector<Storms::Report> const& reports);
    void giveBack(std::vector<Storms::Report> const& reports);
    void settle(std::vector<Request> const& requests, std::vector<Posted*> const& posted,
                std::vector<Storms::Report> const& reports);
    int waitForAll(std::uint64_t& left, TimePoint end, bool (*isCancelled)());
    int waitFor(Goal const& goal, TimePoint end, bool (*isCancelled)());
    void waitForChange(TimePoint end, bool (*isCancelled)());
    Timeout timeoutOfAttempt() const;
    bool isReached(Goal const& goal) const;

    CommitQueue& m_queue;
    Mutex m_mutex; ///< held for moments only, never while the file is touched
    Condition m_work;
    Condition m_changed; ///< something was settled, or there is room
    RecorderOptions m_options;
    std::optional<Storms> m_storms;
    std::uint64_t m_opening = 0; ///< number of the last one
    bool m_isOpen = false;
    bool m_isClosing = false;
    TimePoint m_closeBy{}; ///< when closing
    bool m_isThreadRunning = false;
    std::thread m_thread;
    std::optional<TimePoint> m_watched; ///< the deadline of storms that the thread waits for
    TimePoint m_retryAt{};              ///< not before then, after a failure
    int m_lastResult = HISTORY_OK;

    PostedEvents m_posted; ///< the thread works on the first of them
    std::uint64_t m_lostCount = 0;
    std::uint64_t m_toldCount = 0; ///< lost ones that a `flush` has told of
    std::uint64_t m_countedCount = 0;
    std::uint64_t m_order = 0;           ///< of the last acknowledgement
    Errand m_stores{};                   ///< storing what storms have counted
    Errand m_ends{};                     ///< ending all storms
    std::uint64_t m_postedBeforeEnd = 0; ///< they are recorded before the storms end
};

} // namespace firaim
