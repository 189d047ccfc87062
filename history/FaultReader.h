#pragma once

#include <db/Export.h>
#include <fdb/records/Fault.h>
#include <fdb/records/FaultStatistic.h>
#include <history/FaultCursor.h>
#include <history/FaultFollower.h>
#include <history/FaultQuery.h>
#include <history/HistoryResult.h>
#include <history/ReaderOptions.h>
#include <history/RowCursor.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace firaim
{

/// How many rows there are.
struct Counts
{
    std::uint64_t faults = 0;           ///< rows of the fault table
    std::uint64_t statistics = 0;       ///< rows of the statistic table
    std::uint64_t activeStatistics = 0; ///< those of them that are active
};

/// One start-up, as far as the file tells.
struct Startup
{
    unsigned int startupId = 0;       ///< as its faults have it
    std::uint64_t faults = 0;         ///< how many it has
    unsigned long long firstKey = 0;  ///< smallest key of its faults
    unsigned long long lastKey = 0;   ///< largest key of its faults
    unsigned long long firstTime = 0; ///< stamp of the fault with the smallest key
    unsigned long long lastTime = 0;  ///< stamp of the fault with the largest key
};

/// Reads a fault database without ever changing a byte of it: on a read-only medium, beside writers, and in
/// write-ahead-log mode.
///
/// Threads: one thread at a time uses a reader and its cursors; a follower is on its own.
/// Ownership: cursors share the reader's connection and keep it open until the last of them is gone.
/// Failures: results below 0 have a text, `lastProblem`; result arguments are then as they were. Standard exceptions
/// (allocation) pass through.
/// Forking: in a forked child, a reader and what it has handed out may be destroyed, which leaves those of the parent
/// as they are. No other use is allowed there, and none is noticed: a child opens a reader of its own, as
/// FaultRecorder.h says of recorders.
class FIRAIM_EXPORT FaultReader
{
public:
    FaultReader();
    ~FaultReader();
    FaultReader(FaultReader const&) = delete;
    FaultReader& operator=(FaultReader const&) = delete;

    /// Opens the fault database at `path`, which always names a file, for reading. A relative path is looked up once:
    /// the reader and its followers stay with that name when the process changes its current folder.
    ///
    /// A file in write-ahead-log mode on a medium where nothing can be written is read as one that cannot change.
    ///
    /// HISTORY_OK; HISTORY_INVALID_STATE when open already; HISTORY_NO_FILE; HISTORY_BAD_PATH, nothing waited for;
    /// HISTORY_FAILED when it cannot be read; HISTORY_HOT_JOURNAL when a writer was cut off, and opening the file once
    /// for writing (`FaultRecorder::open` or `firaim recover`) is what it needs; HISTORY_LOG_UNREADABLE when faults are
    /// in a log that cannot be read where nothing can be written: copy file and log together elsewhere;
    /// HISTORY_FOREIGN_FILE; HISTORY_VERSION_MISMATCH; HISTORY_DAMAGED, also for an empty file beside a journal or log
    /// that holds something; HISTORY_BUSY; HISTORY_CANCELLED.
    int open(std::string const& path, ReaderOptions const& options = {});

    /// Closes. HISTORY_OK; HISTORY_INVALID_STATE when not open.
    int close();

    /// A cursor over the faults that `query` asks for. It has bounded memory and lets go of the file between batches of
    /// bounded size, so writers never wait for a slow reader; a query is therefore no snapshot. Nothing is read yet.
    FaultCursor faults(FaultQuery const& query = {});

    /// A cursor over the rows of a table, with the cells as the file holds them. Nothing is read yet.
    RowCursor rows(HistoryTable table, FaultQuery::Order order = FaultQuery::OLDEST_FIRST,
                   RowCursor::KeyRange range = {});

    /// Reads the fault with that key. HISTORY_OK; HISTORY_NOT_FOUND; or below 0.
    int fault(unsigned long long key, Fault& fault);

    /// Reads all statistics, one for each code, in the order of their keys. HISTORY_OK or below 0.
    int statistics(std::vector<FaultStatistic>& statistics);

    /// Reads the statistic of a code, the first one should there be several. HISTORY_OK; HISTORY_NOT_FOUND; or below 0.
    int statistic(std::uint32_t code, FaultStatistic& statistic);

    /// Counts the rows, in batches as a cursor does. HISTORY_OK or below 0.
    int counts(Counts& counts);

    /// Reads the newest fault of every triple of code, module and parameter whose newest fault is active, in the order
    /// of their keys. It reads every fault, and holds in memory as many as are active at a time.
    /// HISTORY_OK or below 0.
    int activeNow(std::vector<Fault>& faults);

    /// Reads what start-ups there are, in the order of their ids. It reads every fault. HISTORY_OK or below 0.
    int startups(std::vector<Startup>& startups);

    /// Reads the format version. HISTORY_OK; HISTORY_NOT_FOUND unless there is exactly one; or below 0.
    int formatVersion(std::string& version);

    /// A follower of faults that come after `position` and answer to `query`, whose order, keys and limit do not
    /// matter. It opens the file on its own, with the options of this reader, which must be open; that may be closed
    /// then.
    FaultFollower follow(FollowPosition const& position, FaultQuery const& query = {});

    /// Reads the position behind the newest fault: what to follow from now on. HISTORY_OK or below 0.
    int newestPosition(FollowPosition& position);

    /// Whether the file is read as one that cannot change.
    bool isImmutable() const;

    /// The problem of the last call that failed, of this reader or a cursor of it, with the name of the file;
    /// empty before the first.
    std::string const& lastProblem() const;

private:
    template <class Visit>
    FIRAIM_HIDDEN int visitStatistics(Visit const& visit);

    std::shared_ptr<ReaderCore> m_core; ///< never null
};

} // namespace firaim
