#pragma once

#include <db/internal/Sqlite.h>
#include <history/internal/CodeNames.h>
#include <history/internal/FaultState.h>
#include <history/internal/Request.h>
#include <history/internal/Retention.h>
#include <history/internal/StatisticCounter.h>

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace firaim
{

/// Writes rows and statistics for requests, inside a transaction of the caller. One thread at a time uses it. All
/// operations that access the file throw sqlite::Error.
class RowWriter
{
public:
    /// `options` must outlive this object.
    explicit RowWriter(RecorderOptions const& options);
    RowWriter(RowWriter const&) = delete;
    RowWriter& operator=(RowWriter const&) = delete;

    /// Prepares its statements and reads the state it needs from the file; call `disconnect` before the connection is
    /// closed.
    void connect(sqlite::Connection const& connection);
    void disconnect();
    /// Forgets what was read, after a change of file or a transaction that failed. Needs no memory.
    void forget();

    /// Reads the active triples, outside a transaction; releases the file now and then.
    void loadSources() { m_state.loadSources(); }
    bool areSourcesKnown() const { return m_state.areSourcesKnown(); }
    /// Whether writing the request requires the active triples or the names of codes in the faults.
    bool needsSources(Request const& request);

    /// Reads what other connections have written, inside a transaction; returns whether the active triples are known.
    bool refresh();
    /// Reads the state that `write` needs, inside its transaction.
    void prepare(std::vector<Request*> const& group);
    /// Writes the requests and sets their receipts, assuming that the transaction will be committed.
    void write(std::vector<Request*> const& group);
    /// Removes old rows, in proportion to the rows just written.
    void prune();
    /// Disables `prune` until the next `connect`.
    void stopPruning() { m_isPruningStopped = true; }

    /// The effects of a transaction besides its rows. To be taken before it is rolled back.
    struct Outcome
    {
        std::vector<FaultStatistic> statistics;
        std::set<std::uint32_t> countedInCycle;
    };
    Outcome outcome() const;

    void committed();
    /// Does not throw.
    void rolledBack();

    /// Whether the last transaction is in the file, on a new connection: every row that is kept, as written; without
    /// rows, every statistic. If so, call `foundStored`.
    bool isStored(Outcome const& outcome);
    void foundStored(Outcome outcome);

    unsigned int startupId() const { return m_startupId; }
    /// The number of rows removed.
    std::uint64_t pruned() const { return m_pruned; }

private:
    /// A row of this transaction, with everything needed to fill it again.
    struct Row
    {
        Request* request;
        SourceView source;
        faultStatus_t status;
        std::string codeName;
        std::string const* description;
        std::int64_t key;
    };

    void chooseStartup();
    void chooseTimeUnit();

    void apply(Request& request);
    bool isAlreadyStored(Request& request);
    void applyClearCode(Request& request);
    void applyStorm(Request& request);

    Row const& writeRow(Request& request, SourceView const& source, faultStatus_t status,
                        std::string const& description);
    void fillRow(Row const& row);
    std::string const& timeZoneOf(FaultEvent const& event) const;
    unsigned long long stampOf(Request const& request) const;

    void updateStatistic(Row const& row);
    void updateState(Row const& row, FaultStatistic& statistic);

    RecorderOptions const& m_options;
    unsigned int m_startupId;
    bool m_isStartupChosen;
    TimeUnit m_timeUnit;

    sqlite::Connection const* m_connection = nullptr;
    sqlite::Statement m_insert;
    FaultTable m_faults;
    FaultState m_state;
    CodeNames m_names;
    StatisticCounter m_counter;
    Retention m_retention;

    std::vector<Row> m_rows; ///< of this transaction
    std::uint64_t m_pruned = 0;
    std::uint64_t m_prunedNow = 0; ///< in this transaction
    bool m_isPruningStopped = false;
};

} // namespace firaim
