#pragma once

#include <db/Export.h>
#include <fdb/records/Fault.h>
#include <fdb/records/FaultStatistic.h>
#include <history/FaultQuery.h>
#include <history/FollowPosition.h>
#include <history/HistoryResult.h>
#include <history/ReaderOptions.h>
#include <history/RowCursor.h>

#include <chrono>
#include <memory>
#include <string>

namespace firaim
{

/// Follows a fault database: returns the faults that this process or others record. Made by FaultReader::follow.
///
/// No fault behind the position is returned twice or missed: rows that were removed before they were read, and a
/// replaced file, have results of their own. File system events wake the follower; where there are none, it polls every
/// 2 s. It holds no lock between two calls. Its memory is bounded, apart from one number for each statistic.
///
/// A missing or unreadable file does not end following: the cause is returned once, and the follower tries again.
///
/// Threads: one thread at a time uses a follower. It has a connection of its own and can outlive its reader. It can be
/// moved; a moved-from follower can only be assigned to.
class FIRAIM_EXPORT FaultFollower
{
public:
    FaultFollower(FaultFollower&& other) noexcept;            ///< see the class
    FaultFollower& operator=(FaultFollower&& other) noexcept; ///< see the class
    ~FaultFollower();

    /// Reads the next new fault that matches the query, or waits for it up to `wait`. If the file is locked, one read
    /// takes up to 0.5 s, also with a `wait` of 0.
    ///
    /// - HISTORY_OK
    /// - HISTORY_END: none came in that time
    /// - HISTORY_CANCELLED
    /// - HISTORY_ROWS_REMOVED, once for each gap: rows behind the position were removed before they were read. Keys
    ///   that another program has skipped count as removed. Whether the missing rows match the query is not known.
    ///   There is no gap before the first row of a history. Also once when the row at the position is gone: rows behind
    ///   it may have been removed then.
    /// - HISTORY_FILE_REPLACED, once: the history is another one, as another file has the name, the row at the position
    ///   is another one, or keys went back. It is followed from its beginning. `lastProblem` says which.
    /// - HISTORY_BUSY: a writer kept the file locked until the end of the wait
    /// - HISTORY_NO_FILE, HISTORY_HOT_JOURNAL, HISTORY_DAMAGED and the other results of FaultReader::open: once for
    ///   each cause, without further waiting
    ///
    /// With any result but HISTORY_OK, `fault` is unchanged.
    int next(Fault& fault, std::chrono::milliseconds wait);

    /// Waits until `next` or `nextStatistic` may have something to return without waiting. HISTORY_OK, also when there
    /// turns out to be nothing; HISTORY_END after that time; HISTORY_CANCELLED.
    int wait(std::chrono::milliseconds wait);

    /// The fault read last, as the file holds it; valid until the next call of `next`.
    RowCursor const& row() const;

    /// Reads the next statistic that has changed since the follower was made, or since it was last returned; after a
    /// change of file, every statistic. Does not wait for a change, and notices another file only after `next` has
    /// reported it. HISTORY_OK; HISTORY_END; below 0 as for `next`. With any result but HISTORY_OK, `statistic` is
    /// unchanged.
    int nextStatistic(FaultStatistic& statistic);

    /// The position behind the last row read, also if the query did not match it, or behind the removed rows reported
    /// since. A new follower with this position continues exactly where this one is.
    FollowPosition position() const;

    /// Describes the last result other than HISTORY_OK and HISTORY_END, with the name of the file.
    std::string const& lastProblem() const;

private:
    friend class FaultReader;
    FIRAIM_HIDDEN FaultFollower(ReaderCore const& reader, FollowPosition const& position, FaultQuery const& query);

    class FIRAIM_HIDDEN Core;
    std::unique_ptr<Core> m_core;
};

} // namespace firaim
