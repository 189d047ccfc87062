#pragma once

#include <history/internal/GroupWriter.h>
#include <history/internal/Mutex.h>
#include <history/internal/Request.h>

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace firaim
{

/// Lets calls of several threads share commits. The first waiting call leads: it begins the transaction, takes all
/// requests that wait by then into one group, commits, and wakes each call with its own result; then the next call
/// leads. Any thread may call any operation at any time, except the destructor.
class CommitQueue
{
public:
    using Timeout = std::chrono::milliseconds;
    /// How often a waiting call checks for cancellation.
    static constexpr Timeout kCancelPoll{20};

    CommitQueue() = default;
    /// Closes.
    ~CommitQueue();
    CommitQueue(CommitQueue const&) = delete;
    CommitQueue& operator=(CommitQueue const&) = delete;

    int open(std::string const& path, RecorderOptions const& options, Timeout timeout);
    int close();

    /// Runs the requests in their order and sets their results.
    void run(std::vector<Request>& requests, Timeout timeout);

    /// If storms are limited, `sink` is called for each stored request before anything is written after it. Call this
    /// before the first `open`.
    void setSink(std::function<void(Request const&)> sink) { m_sink = std::move(sink); }

    unsigned int startupId();
    FaultRecorder::Counters counters();
    std::string lastProblem();
    /// Sets `lastProblem` for a call that failed before it came here; returns `result`.
    int refuse(int result, char const* problem);
    /// As `refuse`, and counts the call as refused; HISTORY_INVALID_STATE if not open.
    int refuseCounted(int result, char const* problem);
    /// Until `close`, only accepts requests of posted or counted events.
    void refuseCalls();

private:
    void enqueue(std::vector<Request>& requests, Call& call);
    void wait(Call& call);
    void lead(Call& call);
    bool append(Request& request);
    void takeGroup(bool areSourcesLoaded);
    void callSink() const;
    void failWaiting(Call& call, int result, std::string const& problem);
    void finish(Request& request);
    void wakeNext();
    bool isCancelled() const;
    bool isOpen() const { return m_writer && !m_isClosing; }

    std::function<void(Request const&)> m_sink;
    Mutex m_mutex; ///< held for moments only, never while the file is accessed
    std::deque<Request*> m_waiting;
    std::vector<Request*> m_group; ///< being written; reserved beforehand, so that taking a request needs no memory
    bool m_hasLeader = false;      ///< a call uses the writer
    bool m_isOpening = false;
    bool m_isClosing = false;
    bool m_refusesCalls = false; ///< see `refuseCalls`
    Condition m_idle;            ///< no call leads and no request waits
    std::unique_ptr<GroupWriter> m_writer;
    RecorderOptions m_options;
    std::string m_path;
    FaultRecorder::Counters m_counters;
    std::string m_problem;
};

} // namespace firaim
