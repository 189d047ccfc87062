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

/// Limits the rows of each triple by a token bucket, and keeps account of what is above the limit. One thread at a time
/// uses it.
class Storms
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// Not limited with a burst of 0.
    Storms(unsigned int burst, unsigned int rowsPerMinute);

    /// The events that were counted for a triple.
    struct Count
    {
        std::uint64_t events = 0;   ///< without a row
        std::uint64_t actives = 0;  ///< of them
        std::int64_t firstTime = 0; ///< of the first and the last, in milliseconds since 1970 UTC
        std::int64_t lastTime = 0;
        std::uint64_t lastOrder = 0; ///< of the last one among all calls of the recorder
    };

    /// The part of a triple's storm that is to be stored.
    struct Report
    {
        FaultEvent event; ///< the last one
        Count uncounted;  ///< not in the statistic yet
        Count total;      ///< since the last row that told of it
        bool isOver;      ///< and gets such a row
    };

    /// Whether `event`, of the moment `time` in milliseconds since 1970 UTC, gets a row; if not, it is counted. `order`
    /// grows from call to call.
    bool admits(FaultEvent const& event, std::int64_t time, std::uint64_t order, TimePoint now);

    /// The state of a triple, or that of all triples of a code, was set by a row that was asked for at `order`: the row
    /// of a storm leaves it, unless what was counted is newer.
    void stateSet(FaultEvent const& event, faultStatus_t status, std::uint64_t order);
    void codeCleared(std::uint64_t code, std::uint64_t order);
    /// The status that a triple has by now; none where nothing is known of it.
    std::optional<faultStatus_t> statusOf(FaultEvent const& event) const;
    /// The same; none unless something was counted that has no row yet.
    std::optional<faultStatus_t> countedStatusOf(FaultEvent const& event) const;
    /// How many events are in no statistic yet.
    std::uint64_t uncounted() const;

    /// When something has to be stored at the latest; none when nothing has.
    std::optional<TimePoint> deadline() const;

    /// The reports to store now. With `isEnding` all storms are over. `notStored` gives a report back
    /// that could not be stored. Without the memory for it, nothing is taken.
    std::vector<Report> take(TimePoint now, bool isEnding);
    void notStored(Report const& report, TimePoint now);

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
        TimePoint filled;    ///< when `tokens` was right
        FaultEvent last;     ///< the last one that was counted, with the status that the triple has now
        std::uint64_t order; ///< of what has set that status
        Count uncounted;
        Count total;
        TimePoint lastCounted; ///< when that was
    };

    static void setStatus(Bucket& bucket, faultStatus_t status, std::uint64_t order);
    static TripleView tripleOf(FaultEvent const& event);
    Bucket& bucketOf(FaultEvent const& event, TimePoint now);
    void forgetIdle(TimePoint now);
    void fill(Bucket& bucket, TimePoint now) const;

    double m_burst;
    std::chrono::duration<double> m_interval; ///< between two tokens
    std::map<Triple, Bucket, TripleLess> m_buckets;
    std::size_t m_forgetAt;             ///< so many
    std::optional<TimePoint> m_storeBy; ///< what is in no statistic yet
    std::optional<TimePoint> m_endBy;   ///< the next look whether a storm is over
};

} // namespace firaim
