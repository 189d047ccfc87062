#pragma once

#include <history/FaultEvent.h>
#include <history/internal/FaultState.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace firaim
{

/// Limits the rows of each triple by a token bucket, and counts the events above the limit. One thread at a time uses
/// it.
class Storms
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// A `burst` of 0 means no limit.
    Storms(unsigned int burst, unsigned int rowsPerMinute);

    /// Events counted for a triple.
    struct Count
    {
        std::uint64_t events = 0;    ///< without a row
        std::uint64_t actives = 0;   ///< number of active ones
        std::int64_t firstTime = 0;  ///< of the first event, in milliseconds since 1970-01-01 UTC
        std::int64_t lastTime = 0;   ///< of the last event
        std::uint64_t lastOrder = 0; ///< of the last event, among all calls of the recorder
    };

    /// The counts of one triple to store now.
    struct Report
    {
        FaultEvent event; ///< the last event
        Count uncounted;  ///< not yet in the statistic
        Count total;      ///< since the last row of a storm
        bool isOver;      ///< the storm is over and gets a row
    };

    /// Whether `event` gets a row; if not, it has been counted. `time` is in milliseconds since 1970-01-01 UTC; `order`
    /// grows from call to call.
    bool admits(FaultEvent const& event, std::int64_t time, std::uint64_t order, TimePoint now);

    /// Reports that a row, requested at `order`, has set the state of a triple, or of all triples of a code. The row of
    /// a storm then keeps that state, unless a later event was counted.
    void stateSet(FaultEvent const& event, faultStatus_t status, std::uint64_t order);
    void codeCleared(std::uint64_t code, std::uint64_t order);
    /// The present status of a triple; none if it is not known.
    std::optional<faultStatus_t> statusOf(FaultEvent const& event) const;
    /// As `statusOf`; none unless events were counted that have no row yet.
    std::optional<faultStatus_t> countedStatusOf(FaultEvent const& event) const;
    /// The number of events that are in no statistic yet.
    std::uint64_t uncounted() const;

    /// The latest time for the next `take`; none if there is nothing to store.
    std::optional<TimePoint> deadline() const;

    /// Takes the counts to store now; with `isEnding`, all storms are over. Pass a report that could not be stored to
    /// `putBack`. Short of memory, it throws and takes nothing.
    std::vector<Report> take(TimePoint now, bool isEnding);
    void putBack(Report const& report, TimePoint now);

private:
    using Triple = std::pair<std::uint64_t, Source>;
    using TripleView = std::pair<std::uint64_t, SourceView>;

    struct TripleLess
    {
        using is_transparent = void;
        template <class A, class B>
        bool operator()(A const& a, B const& b) const
        {
            return a.first < b.first || (a.first == b.first && SourceLess()(a.second, b.second));
        }
    };

    struct Bucket
    {
        double tokens;
        TimePoint filled;    ///< when `tokens` was computed
        FaultEvent last;     ///< the last counted event, with the present status of the triple
        std::uint64_t order; ///< of the event that set the status
        Count uncounted;
        Count total;
        TimePoint lastCounted; ///< time of the last counted event
    };

    static void setStatus(Bucket& bucket, faultStatus_t status, std::uint64_t order);
    static TripleView tripleOf(FaultEvent const& event);
    Bucket& bucketOf(FaultEvent const& event, TimePoint now);
    void forgetIdle(TimePoint now);
    void fill(Bucket& bucket, TimePoint now) const;

    double m_burst;
    std::chrono::duration<double> m_interval; ///< between two tokens
    std::map<Triple, Bucket, TripleLess> m_buckets;
    std::size_t m_forgetAt;             ///< number of buckets
    std::optional<TimePoint> m_storeBy; ///< deadline of counts that are in no statistic yet
    std::optional<TimePoint> m_endBy;   ///< next check whether a storm is over
};

} // namespace firaim
