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

/// Numbers of rows.
struct Counts
{
    std::uint64_t faults = 0;           ///< rows of the fault table
    std::uint64_t statistics = 0;       ///< rows of the statistic table
    std::uint64_t activeStatistics = 0; ///< statistics with an active code
};

/// One start-up, as its faults show it.
struct Startup
{
    unsigned int startupId = 0;       ///< start-up id of its faults
    std::uint64_t faults = 0;         ///< number of its faults
    unsigned long long firstKey = 0;  ///< smallest key of its faults
    unsigned long long lastKey = 0;   ///< largest key of its faults
    unsigned long long firstTime = 0; ///< time stamp of the fault with the smallest key
    unsigned long long lastTime = 0;  ///< time stamp of the fault with the largest key
};

/// Reads a fault database and never changes a byte of it. Works on a read-only medium, beside writers, and in
/// write-ahead-log mode.
///
/// Threads: one thread at a time uses a reader and its cursors; a follower has a connection of its own.
///
/// Ownership: cursors share the reader's connection and keep it open until the last of them is destroyed.
///
/// Failures: with a result below 0, `lastProblem` has the text and result arguments are unchanged. Standard exceptions
/// (allocation) pass through.
///
/// Forking: a forked child may destroy a reader, its cursors and its followers, which leaves those of the parent as
/// they are. Any other use in the child is forbidden and not detected: open a new reader there, under the rule for
/// recorders in FaultRecorder.h.
class FIRAIM_EXPORT FaultReader
{
public:
    FaultReader();
    ~FaultReader();
    FaultReader(FaultReader const&) = delete;
    FaultReader& operator=(FaultReader const&) = delete;

    /// Opens the fault database at `path` for reading. `path` always names a file. A relative path is resolved once: a
    /// later change of the current folder does not affect the reader and its followers.
    ///
    /// A file in write-ahead-log mode on a medium where nothing can be written is read as immutable.
    ///
    /// - HISTORY_OK
    /// - HISTORY_INVALID_STATE: open already
    /// - HISTORY_NO_FILE
    /// - HISTORY_BAD_PATH: without waiting
    /// - HISTORY_FAILED: the file cannot be read, also because its medium fails
    /// - HISTORY_HOT_JOURNAL: a writer was cut off; open the file once for writing (`FaultRecorder::open` or `firaim
    ///   recover`)
    /// - HISTORY_LOG_UNREADABLE: faults are in a log that cannot be read where nothing can be written; make a copy
    ///   (`firaim recover --to`)
    /// - HISTORY_FOREIGN_FILE
    /// - HISTORY_VERSION_MISMATCH
    /// - HISTORY_DAMAGED: also for an empty file beside a journal or log with content
    /// - HISTORY_BUSY
    /// - HISTORY_CANCELLED
    int open(std::string const& path, ReaderOptions const& options = {});

    /// Closes the reader. HISTORY_OK; HISTORY_INVALID_STATE when not open.
    int close();

    /// Returns a cursor over the faults that match `query`. The call reads nothing yet. The cursor has bounded memory
    /// and releases the file between batches of bounded size, so writers never wait for a slow reader and a query is no
    /// snapshot.
    FaultCursor faults(FaultQuery const& query = {});

    /// Returns a cursor over the rows of a table, with the cells as the file holds them. The call reads nothing yet.
    RowCursor rows(HistoryTable table, FaultQuery::Order order = FaultQuery::OLDEST_FIRST,
                   RowCursor::KeyRange range = {});

    /// Reads the fault with the key `key`. HISTORY_OK; HISTORY_NOT_FOUND; or below 0.
    int fault(unsigned long long key, Fault& fault);

    /// Reads all rows of the statistics, in the order of their keys. HISTORY_OK or below 0.
    int statistics(std::vector<FaultStatistic>& statistics);

    /// Reads the statistic of a code, the first one if there are several. HISTORY_OK; HISTORY_NOT_FOUND; or below 0.
    int statistic(std::uint32_t code, FaultStatistic& statistic);

    /// Counts rows, in batches as a cursor does. HISTORY_OK or below 0.
    int counts(Counts& counts);

    /// Reads the newest fault of each triple of code, module and parameter, if that fault is active, in the order of
    /// their keys. Reads every fault; needs memory for the largest number of faults that are active at a time.
    /// HISTORY_OK or below 0.
    int activeNow(std::vector<Fault>& faults);

    /// Lists the start-ups in the order of their ids. Reads every fault. HISTORY_OK or below 0.
    int startups(std::vector<Startup>& startups);

    /// Reads the format version. HISTORY_OK; HISTORY_NOT_FOUND unless the file has exactly one; or below 0.
    int formatVersion(std::string& version);

    /// Returns a follower of the faults after `position` that match `query`; its order, keys and limit are ignored. The
    /// reader must be open. The follower opens the file itself, with the options of this reader, which may then be
    /// closed.
    FaultFollower follow(FollowPosition const& position, FaultQuery const& query = {});

    /// Reads the position behind the newest fault, to follow faults from now on. HISTORY_OK or below 0.
    int newestPosition(FollowPosition& position);

    /// Whether the file is read as immutable.
    bool isImmutable() const;

    /// The text of the last failed call of this reader or its cursors, with the name of the file; empty before the
    /// first failure.
    std::string const& lastProblem() const;

private:
    template <class Visit>
    FIRAIM_HIDDEN int visitStatistics(Visit const& visit);

    std::shared_ptr<ReaderCore> m_core; ///< never null
};

} // namespace firaim
