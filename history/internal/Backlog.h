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

/// Events that were acknowledged before they are on the storage: posted events, and events counted in storms. A thread,
/// started when there is work for the first time, passes them to the commit queue. Any thread may call any operation at
/// any time, except the destructor.
class Backlog
{
public:
    using Timeout = std::chrono::milliseconds;

    /// `queue` calls back for each stored request.
    explicit Backlog(CommitQueue& queue);
    /// Requires that it is closed.
    ~Backlog() = default;
    Backlog(Backlog const&) = delete;
    Backlog& operator=(Backlog const&) = delete;

    void open(RecorderOptions const& options);
    /// Records the remaining events for up to `timeout` and ends the thread. HISTORY_OK; HISTORY_FAILED if not all
    /// could be recorded; HISTORY_INVALID_STATE if it is not open or another thread is closing it.
    int close(Timeout timeout);

    /// Copies the event of `request` into the queue; with RecorderOptions::doesPostWait, waits for room up to
    /// `timeout`. Returns a HistoryResult.
    int post(Request const& request, Timeout timeout);

    /// Whether a RECORD gets a row; if not, it has been counted.
    bool admits(Request& request);
    /// Gives a RAISE, CLEAR or CLEAR_CODE access to the status that a storm of its triple has counted.
    void prepareEdge(Request& request);

    int flush(std::uint64_t& left, Timeout timeout);
    /// As `flush`, but storms get no row and lost events are ignored.
    int drain(Timeout timeout);

    std::uint64_t queued();
    std::uint64_t counted();

private:
    using Posted = PostedEvents::Posted;
    using TimePoint = Condition::TimePoint;

    /// Work that calls request from the thread.
    struct Job
    {
        std::uint64_t wanted; ///< number of calls that have requested it
        std::uint64_t done;   ///< number of the first of these calls for which it is done
    };

    /// The condition that a call waits for.
    struct Goal
    {
        std::uint64_t posted;  ///< number of posted events to be finished
        std::uint64_t stores;  ///< value of `m_stores.done`
        std::uint64_t ends;    ///< value of `m_ends.done`
        std::uint64_t opening; ///< the opening that the call belongs to
    };

    void onStored(Request const& request);
    bool startThread();
    void work();
    bool hasWork(TimePoint now) const;
    void waitForWork();
    void workOnce();
    void runBatch(std::vector<Posted*> const& posted, std::vector<Storms::Report> const& reports);
    void putBack(std::vector<Storms::Report> const& reports);
    void handleOutcome(std::vector<Request> const& requests, std::vector<Posted*> const& posted,
                       std::vector<Storms::Report> const& reports);
    int waitForAll(std::uint64_t& left, TimePoint end, bool (*isCancelled)());
    int waitFor(Goal const& goal, TimePoint end, bool (*isCancelled)());
    void waitForChange(TimePoint end, bool (*isCancelled)());
    Timeout timeoutOfAttempt() const;
    bool isReached(Goal const& goal) const;

    CommitQueue& m_queue;
    Mutex m_mutex; ///< held for moments only, never while the file is accessed
    Condition m_work;
    Condition m_changed; ///< events were finished, or there is room
    RecorderOptions m_options;
    std::optional<Storms> m_storms;
    std::uint64_t m_opening = 0; ///< counts calls of `open`
    bool m_isOpen = false;
    bool m_isClosing = false;
    TimePoint m_closeBy{}; ///< deadline of `close`
    bool m_isThreadRunning = false;
    std::thread m_thread;
    std::optional<TimePoint> m_watched; ///< the deadline of storms that the thread waits for
    TimePoint m_retryAt{};              ///< after a failure: no attempt before this
    int m_lastResult = HISTORY_OK;

    PostedEvents m_posted; ///< the thread works on the first events
    std::uint64_t m_lostCount = 0;
    std::uint64_t m_reportedLostCount = 0; ///< lost events that a `flush` has reported
    std::uint64_t m_countedCount = 0;
    std::uint64_t m_order = 0;           ///< of the last acknowledgement
    Job m_stores{};                      ///< storing the counts of storms
    Job m_ends{};                        ///< ending all storms
    std::uint64_t m_postedBeforeEnd = 0; ///< posted events that are recorded before the storms end
};

} // namespace firaim
