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

/// Whether a row tells more of a code by this name than its number.
bool isName(std::string_view name);

/// A recorder's memory of its file: the statistics, and which triples are active.
///
/// Everything that writes is called inside a write transaction, and everything that reads inside any, before rows are
/// written; `loadSources` may also be called outside. `committed` or `rolledBack` says what became of the transaction.
class FaultState
{
public:
    /// Compiles its statements; `connection` must stay until `disconnect`.
    void connect(sqlite::Connection const& connection);
    void disconnect();
    /// Forgets what was read: it belongs to another file.
    void forget();

    /// Brings what is remembered up to what others have written. Reads a bounded number of faults: where that is not
    /// enough to tell which triples are active, they are known no longer.
    void refresh();

    /// Makes sure that the active triples are known. Called outside a transaction, it lets go of the file now and then,
    /// as it may read all faults; `refresh`, in the transaction, then takes what others have written meanwhile into
    /// account.
    void loadSources();
    bool areSourcesKnown() const { return m_areSourcesKnown; }

    StatisticMemory& statistics() { return m_statistics; }
    StatisticMemory const& statistics() const { return m_statistics; }

    /// The key of the row that made a triple active; none when it is not active. The triples must be known.
    std::optional<std::int64_t> activeKey(std::uint32_t code, SourceView const& source) const
    {
        return m_active.keyOf(code, source);
    }
    /// The active triples of a code. The triples must be known.
    Sources const& activeSources(std::uint32_t code) const { return m_active.of(code); }
    bool isAnyActive(std::uint32_t code) const { return !activeSources(code).empty(); }
    /// The keys of the rows that something active refers to, sorted. The triples must be known.
    std::vector<std::int64_t> neededKeys() const;
    /// `row` was written with that key.
    void rowWritten(Fault const& row, std::int64_t key);

    /// The largest start-up id of the newest fault and the statistics.
    unsigned int lastStartup();
    /// The name that a code has in the newest fault that names it; empty without one. The triples must be known: names
    /// are read with them.
    std::string const& nameInFaults(std::uint32_t code) const;
    /// The time stamp of the newest fault; none without a fault.
    std::optional<unsigned long long> lastTimeStamp();

    void committed();
    void rolledBack();

private:
    static constexpr std::int64_t kBeforeAllKeys = std::numeric_limits<std::int64_t>::min();

    /// Tells a row from another one that has the same key after the content was replaced.
    struct RowMark
    {
        std::int64_t key = kBeforeAllKeys;
        std::uint32_t code = 0;
        std::int64_t timeStamp = 0;
        std::size_t systemTimeHash = 0; ///< of the text of the moment when it was written
    };

    void forgetSources();
    std::optional<RowMark> markOf(std::int64_t key);
    bool isLastSeenRowThere();
    void readAllSources();
    bool readNewRows();
    bool areActiveRowsThere();
    bool noteName(std::uint32_t code, std::string_view name);
    bool isActiveRow(std::int64_t key, std::uint32_t code, Source const& source);
    std::string rowColumns() const;
    std::string selectNewest(std::string const& column) const;

    FaultTable m_faults;
    std::string m_activeWord; ///< of the status of a fault

    sqlite::Connection const* m_connection = nullptr;
    sqlite::Statement m_version;
    sqlite::Statement m_readRows;
    sqlite::Statement m_readMark;

    std::optional<std::int64_t> m_seenVersion; ///< of the file, as SQLite counts what others write
    StatisticMemory m_statistics;
    ActiveTriples m_active;
    std::map<std::uint32_t, std::string> m_names; ///< see `nameInFaults`
    std::string const m_noName;
    bool m_hasNewName = false; ///< since the last commit
    bool m_areSourcesKnown = false;
    RowMark m_seen;       ///< the last row that `m_active` takes into account
    RowMark m_seenBefore; ///< the same, before this transaction
};

} // namespace firaim
