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

/// Follows a fault database: what other processes, or this one, record. FaultReader hands it out.
///
/// No fault behind the position is given twice or missed: what was trimmed before it was read, and a file that was
/// replaced, have a result of their own. The follower is woken by the file system where that tells of changes, and
/// looks every 2 s where not. It holds no lock between two calls and has a bounded memory, apart from one number for
/// each statistic.
///
/// A file that is missing or cannot be read is no end: the cause is returned once, and the follower tries again.
///
/// Threads: one thread at a time uses a follower. It has a connection of its own and can outlive its reader. It can be
/// moved; one that was moved from can only be assigned to.
class FIRAIM_EXPORT FaultFollower
{
public:
    FaultFollower(FaultFollower&& other) noexcept;            ///< see the class
    FaultFollower& operator=(FaultFollower&& other) noexcept; ///< see the class
    ~FaultFollower();

    /// Reads the next new fault that answers to the query, or waits for it. A look at a file that is locked takes up to
    /// 0.5 s, also with no time to wait.
    ///
    /// HISTORY_OK; HISTORY_END when none came in that time; HISTORY_CANCELLED.
    /// HISTORY_ROWS_REMOVED, once for each gap, when rows behind the position are missing: they were removed before
    /// they were read. Keys that another program has left out count as removed; whether the query asks for what is
    /// missing is not known. Before the first row of a history there is no gap. Also once when the row at the position
    /// is gone: rows behind it may have been removed then. HISTORY_FILE_REPLACED, once, when the history is another
    /// one: another file has the name, the row at the position is another one, or keys went back; it is followed from
    /// its beginning. `lastProblem` tells which. HISTORY_BUSY when a writer kept the file locked until the end of the
    /// wait. HISTORY_NO_FILE, HISTORY_HOT_JOURNAL, HISTORY_DAMAGED and whatever else FaultReader::open gives: once for
    /// each cause, without further waiting. With any but HISTORY_OK, `fault` is left as it was.
    int next(Fault& fault, std::chrono::milliseconds wait);

    /// Waits until there may be something for `next` or `nextStatistic`, which then need not wait. HISTORY_OK, also
    /// when it turns out that there is nothing; HISTORY_END after that time; HISTORY_CANCELLED.
    int wait(std::chrono::milliseconds wait);

    /// The fault that was read last, as the file holds it; valid until the next call of `next`.
    RowCursor const& row() const;

    /// Reads the next statistic that has changed since the follower was made, or since it was given last; of another
    /// file, every one. It does not wait for a change, and finds another file only after `next` has told of it.
    /// HISTORY_OK; HISTORY_END; below 0 as `next`. With any but HISTORY_OK, `statistic` is left as it was.
    int nextStatistic(FaultStatistic& statistic);

    /// Behind the last row that was read, also where the query refused it, or behind the removed rows that were told of
    /// since. What is followed from there goes on exactly where this follower is.
    FollowPosition position() const;

    /// The meaning of the last result that was neither HISTORY_OK nor HISTORY_END, with the name of the file.
    std::string const& lastProblem() const;

private:
    friend class FaultReader;
    FIRAIM_HIDDEN FaultFollower(ReaderCore const& reader, FollowPosition const& position, FaultQuery const& query);

    class FIRAIM_HIDDEN Core;
    std::unique_ptr<Core> m_core;
};

} // namespace firaim
