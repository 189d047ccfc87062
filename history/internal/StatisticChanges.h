#pragma once

#include <fdb/records/FaultStatistic.h>
#include <history/internal/ReaderCore.h>

#include <cstdint>
#include <deque>
#include <map>
#include <optional>

namespace firaim
{

/// Finds out which statistics of a followed file have changed, by comparing hashes of their rows.
class StatisticChanges
{
public:
    /// Reads the statistics that changes are compared with, unless that is done. A failure is left for `compare`.
    void readFirst(ReaderCore& core);
    /// There is no file: every statistic that it gets is a change.
    void setNoFile() { m_isFirstRead = true; }
    /// Appends the statistics that have changed since the last call. HISTORY_OK; below 0 with the problem in `core`.
    int compare(ReaderCore& core);
    /// Another connection is used from now on.
    void forgetVersion() { m_version.reset(); }
    /// The file's content is another one: every statistic in it is a change.
    void clear();

    bool isEmpty() const { return m_changed.empty(); }
    /// Takes the oldest change; requires that there is one.
    void pop(FaultStatistic& statistic);

private:
    int read(ReaderCore& core, bool isTold);

    std::map<std::int64_t, std::uint64_t> m_hashes; ///< of each statistic when it was last read, by key
    std::optional<std::int64_t> m_version;          ///< `PRAGMA data_version` when they were read
    bool m_isFirstRead = false;
    std::deque<FaultStatistic> m_changed;
};

} // namespace firaim
