#pragma once

#include <history/FaultRecorder.h>
#include <history/internal/Request.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace firaim
{

/// The events that were posted and are neither recorded nor lost, in their order. References to them stay valid until
/// they are settled and `dropSettled` is called.
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
        bool isSettled;           ///< recorded or lost

        /// Makes a new request one that records the event.
        void ask(Request& request) const;
    };

    /// Begins anew, with no event posted so far.
    void clear();

    bool isEmpty() const { return m_events.empty(); }
    std::size_t size() const { return m_events.size(); }
    /// How many have been posted in all.
    std::uint64_t count() const { return m_count; }
    /// So many of those that were posted first are settled.
    std::uint64_t settledCount() const { return m_settledCount; }

    /// Copies the event of a request.
    void add(Request const& request);
    /// The first events that are not settled, at most so many; `end` is set to the number of the one behind them.
    std::vector<Posted*> first(std::size_t most, std::uint64_t& end);
    void dropSettled();
    /// As if all were settled.
    void dropAll();
    /// How many of the first `count` events are not settled.
    std::uint64_t unsettledBefore(std::uint64_t count) const;
    std::uint64_t unsettled() const { return unsettledBefore(m_count); }

private:
    std::deque<Posted> m_events; ///< the first is not settled
    std::uint64_t m_count = 0;
    std::uint64_t m_settledCount = 0; ///< that have gone from `m_events`
};

} // namespace firaim
