#pragma once

#include <db/internal/Sqlite.h>
#include <history/internal/ActiveTriples.h>
#include <history/internal/StatisticMemory.h>
#include <history/internal/Tables.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace firaim
{

/// Whether `name` says more about a code than its number.
bool isName(std::string_view name);

/// A recorder's memory of its file: the statistics, the active triples, and the names of codes.
///
/// Call the operations that write inside a write transaction, and those that read inside any transaction, before rows
/// are written; `loadSources` may also be called outside. End the transaction with `committed` or `rolledBack`.
class FaultState
{
public:
    /// Compiles its statements; `connection` must stay until `disconnect`.
    void connect(sqlite::Connection const& connection);
    void disconnect();
    /// Forgets what was read, for another file.
    void forget();

    /// Reads what other connections have written. Reads a bounded number of faults: if that is not enough to know the
    /// active triples, `areSourcesKnown` becomes false.
    void refresh();

    /// Reads the active triples unless they are known. May read all faults; outside a transaction, it therefore
    /// releases the file now and then. A later `refresh`, in the transaction, reads what was written meanwhile.
    void loadSources();
    bool areSourcesKnown() const { return m_areSourcesKnown; }

    StatisticMemory& statistics() { return m_statistics; }
    StatisticMemory const& statistics() const { return m_statistics; }

    /// The key of the row that made a triple active; none if it is not active. Requires `areSourcesKnown`.
    std::optional<std::int64_t> activeKey(std::uint32_t code, SourceView const& source) const
    {
        return m_active.keyOf(code, source);
    }
    /// The active triples of a code. Requires `areSourcesKnown`.
    Sources const& activeSources(std::uint32_t code) const { return m_active.of(code); }
    bool isAnyActive(std::uint32_t code) const { return !activeSources(code).empty(); }
    /// The keys of the rows that an active statistic or triple refers to, sorted. Requires `areSourcesKnown`.
    std::vector<std::int64_t> neededKeys() const;
    /// Reports that `row` was written with that key.
    void rowWritten(Fault const& row, std::int64_t key);

    /// The largest start-up id of the newest fault and the statistics.
    unsigned int lastStartup();
    /// The name of a code in the newest fault that has one; empty if none has. Requires `areSourcesKnown`: names are
    /// read together with the active triples.
    std::string const& nameInFaults(std::uint32_t code) const;
    /// The time stamp of the newest fault; none without a fault.
    std::optional<unsigned long long> lastTimeStamp();

    void committed();
    void rolledBack();

private:
    static constexpr std::int64_t kBeforeAllKeys = std::numeric_limits<std::int64_t>::min();

    /// Identifies a row, as the content of the file may be replaced by one that uses the same key.
    struct RowMark
    {
        std::int64_t key = kBeforeAllKeys;
        std::uint32_t code = 0;
        std::int64_t timeStamp = 0;
        std::size_t textHash = 0; ///< of module, parameter and SystemDateTimeString
    };

    void forgetSources();
    std::optional<RowMark> markOf(std::int64_t key);
    bool isLastSeenRowThere();
    void readAllSources();
    bool readNewRows();
    bool areActiveRowsThere();
    bool addName(std::uint32_t code, std::string_view name);
    bool isActiveRow(std::int64_t key, std::uint32_t code, Source const& source);
    std::string rowColumns() const;
    std::string selectNewest(std::string const& column) const;

    FaultTable m_faults;
    std::string m_activeWord; ///< the active status of a fault

    sqlite::Connection const* m_connection = nullptr;
    sqlite::Statement m_version;
    sqlite::Statement m_readRows;
    sqlite::Statement m_readMark;

    std::optional<std::int64_t> m_seenVersion; ///< `PRAGMA data_version` of the last reading
    StatisticMemory m_statistics;
    ActiveTriples m_active;
    std::map<std::uint32_t, std::string> m_names; ///< see `nameInFaults`
    std::string const m_noName;
    bool m_hasNewName = false; ///< since the last commit
    bool m_areSourcesKnown = false;
    RowMark m_seen;       ///< the last row included in `m_active`
    RowMark m_seenBefore; ///< the same before this transaction
};

} // namespace firaim
