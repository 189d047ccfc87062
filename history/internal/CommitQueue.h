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

/// Lets the calls of several threads share commits: the first that waits leads. It begins the transaction, takes all
/// that wait by then into one group, commits, and wakes each with its own result; then the next one leads. Any thread
/// may call anything at any time but the destructor.
class CommitQueue
{
public:
    using Timeout = std::chrono::milliseconds;
    /// How soon a waiting call notices that it was cancelled.
    static constexpr Timeout kCancelPoll{20};

    CommitQueue() = default;
    /// Closes.
    ~CommitQueue();
    CommitQueue(CommitQueue const&) = delete;
    CommitQueue& operator=(CommitQueue const&) = delete;

    int open(std::string const& path, RecorderOptions const& options, Timeout timeout);
    int close();

    /// Runs the requests, whose results it sets, in their order.
    void run(std::vector<Request>& requests, Timeout timeout);

    /// Where storms are limited, calls `sink` for each request that is stored, before anything is written after it. Set
    /// before the first `open`.
    void tellStored(std::function<void(Request const&)> sink) { m_sink = std::move(sink); }

    unsigned int startupId();
    FaultRecorder::Counters counters();
    std::string lastProblem();
    /// Takes note why a call that never came here has failed; returns `result`.
    int refuse(int result, char const* problem);
    /// As `refuse`, for what counts as refused; HISTORY_INVALID_STATE when not open.
    int refuseCounted(int result, char const* problem);
    /// Until `close`, only what was posted or counted is still taken.
    void refuseCalls();

private:
    void enter(std::vector<Request>& requests, Call& call);
    void wait(Call& call);
    void lead(Call& call);
    bool append(Request& request);
    void takeGroup(bool areSourcesLoaded);
    void tellStored() const;
    void giveUp(Call& call, int result, std::string const& problem);
    void finish(Request& request);
    void passOn();
    bool isCancelled() const;
    bool isOpen() const { return m_writer && !m_isClosing; }

    std::function<void(Request const&)> m_sink;
    Mutex m_mutex; ///< held for moments only, never while the file is touched
    std::deque<Request*> m_waiting;
    std::vector<Request*> m_group; ///< that is being written; grown beforehand, so that taking one needs no memory
    bool m_isLed = false;          ///< somebody uses the writer
    bool m_isOpening = false;
    bool m_isClosing = false;
    bool m_refusesCalls = false; ///< see `refuseCalls`
    Condition m_idle;            ///< nobody leads and nobody waits
    std::unique_ptr<GroupWriter> m_writer;
    RecorderOptions m_options;
    std::string m_path;
    FaultRecorder::Counters m_counters;
    std::string m_problem;
};

} // namespace firaim
