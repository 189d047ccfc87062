#pragma once

#include <history/FaultFollower.h>
#include <history/internal/FileWatch.h>
#include <history/internal/QueryFilter.h>
#include <history/internal/ReaderCore.h>
#include <history/internal/RowCursorState.h>
#include <history/internal/StatisticChanges.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace firaim
{

/// A follower without the waiting loop of FaultFollower::next.
class FIRAIM_HIDDEN FaultFollower::Core
{
public:
    Core(ReaderCore const& reader, FollowPosition const& position, FaultQuery const& query);

    /// Results as of FaultFollower::next with a wait of 0.
    int take(Fault& fault);
    int takeStatistic(FaultStatistic& statistic);

    /// Whether another `take` may return something at once.
    bool hasMore() const;
    /// Waits until the file seems to have changed, up to `longest`; returns whether it has.
    bool waitForChange(std::chrono::milliseconds longest);
    bool isCancelled() const { return m_options.isCancelled != nullptr && m_options.isCancelled(); }

    FollowPosition position() const;
    RowCursor const& row() const { return m_rows; }
    std::string const& problem() const { return m_problem; }

private:
    std::optional<std::int64_t> lastRemoved() const;
    int passRemoved(std::int64_t last);
    int readBehindPosition();
    int readRows();
    int checkContinuity(bool isChanged);
    int startOver(std::string const& reason);
    int reopen(std::chrono::milliseconds busyTimeout);
    void dropConnection();
    int report(int result, std::string const& problem);
    int reportOnce(int result, std::string const& problem);

    FilePath const m_path;
    ReaderOptions const m_options;
    QueryFilter const m_filter;
    FileWatch m_watch;
    FollowPosition m_position; ///< while `m_isHashDue`, without the hash of its row
    bool m_isHashDue = false;  ///< the position is at the present row of `m_rows`
    std::shared_ptr<ReaderCore> m_core;
    RowCursor m_rows;
    FaultTable m_table;
    std::optional<std::int64_t> m_version;         ///< `PRAGMA data_version` when all was read
    std::optional<std::int64_t> m_comparedVersion; ///< `PRAGMA data_version` when rows were compared with the position
    bool m_hasMoreRows = false;                    ///< rows remain behind the batch
    std::optional<std::int64_t>
        m_largestKey;       ///< the largest key that the fault table ever had, if no rows remain behind the batch
    bool m_wasBusy = false; ///< a writer was active at the last attempt to read
    std::chrono::steady_clock::time_point m_lastEvent; ///< when the system last reported a change of a log

    StatisticChanges m_statistics;

    int m_reported = HISTORY_OK; ///< the last reported reason why the file cannot be read
    std::string m_problem;
};

} // namespace firaim
