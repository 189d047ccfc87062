#pragma once

#include <history/FaultRecorder.h>
#include <history/internal/Request.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace firaim
{

/// The posted events that are neither recorded nor lost, in their order. References stay valid until an event is
/// finished and `dropFinished` is called.
class PostedEvents
{
public:
    struct Posted
    {
        FaultEvent event;
        std::int64_t now;
        unsigned int upTime;
        std::uint64_t order;      ///< see Request
        std::int64_t doubtfulKey; ///< see Request
        bool isFinished;          ///< recorded or lost

        /// Makes a new request record this event.
        void fillRequest(Request& request) const;
    };

    /// Removes all events and resets the counts.
    void clear();

    bool isEmpty() const { return m_events.empty(); }
    std::size_t size() const { return m_events.size(); }
    /// The number of events posted so far.
    std::uint64_t count() const { return m_count; }
    /// The number of leading events that are finished.
    std::uint64_t finishedCount() const { return m_finishedCount; }

    /// Copies the event of a request.
    void add(Request const& request);
    /// The first events that are not finished, at most `most`. Sets `end` to the number of the event behind them.
    std::vector<Posted*> first(std::size_t most, std::uint64_t& end);
    void dropFinished();
    /// Treats all events as finished.
    void dropAll();
    /// The number of events among the first `count` that are not finished.
    std::uint64_t unfinishedBefore(std::uint64_t count) const;
    std::uint64_t unfinished() const { return unfinishedBefore(m_count); }

private:
    std::deque<Posted> m_events; ///< the first one is not finished
    std::uint64_t m_count = 0;
    std::uint64_t m_finishedCount = 0; ///< events removed from `m_events`
};

} // namespace firaim
