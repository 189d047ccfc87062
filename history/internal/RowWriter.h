#pragma once

#include <db/internal/Sqlite.h>
#include <history/internal/FaultState.h>
#include <history/internal/Request.h>
#include <history/internal/Retention.h>
#include <history/internal/StatisticCounter.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace firaim
{

/// Writes the rows and statistics that requests ask for, inside a transaction that its caller begins and ends. One
/// thread at a time uses it. Everything that touches the file throws sqlite::Error.
class RowWriter
{
public:
    /// `options` must outlive this object.
    explicit RowWriter(RecorderOptions const& options);
    RowWriter(RowWriter const&) = delete;
    RowWriter& operator=(RowWriter const&) = delete;

    /// Compiles its statements and reads what it has to know of the file; they must go, by `disconnect`, before the
    /// connection does.
    void connect(sqlite::Connection const& connection);
    void disconnect();
    /// Forgets what was read, which belongs to another file or to a transaction that came to nothing. Needs no memory.
    void forget();

    /// Reads which triples are active, outside a transaction and letting go of the file now and then.
    void loadSources() { m_state.loadSources(); }
    bool areSourcesKnown() const { return m_state.areSourcesKnown(); }
    /// Whether a request can only be written when the active triples, and the names of codes in the faults, are known.
    bool needsSources(Request const& request);

    /// Brings what is remembered up to what others have written, inside a transaction; returns whether it is known
    /// which triples are active.
    bool refresh();
    /// Reads what `write` has to know, inside its transaction.
    void prepare(std::vector<Request*> const& group);
    /// Writes what the requests ask for and sets their receipts, as if the transaction were committed.
    void write(std::vector<Request*> const& group);
    /// Removes old rows, as many as the rows just written call for.
    void prune();
    /// `prune` does nothing until the next `connect`.
    void stopPruning() { m_isPruningStopped = true; }

    /// The effects of the transaction besides its rows. Taken before it is rolled back.
    struct Outcome
    {
        std::vector<FaultStatistic> statistics;
        std::set<std::uint32_t> countedInCycle;
    };
    Outcome outcome() const;

    void committed();
    /// Throws nothing.
    void rolledBack();

    /// Whether the last transaction is in the file, on a new connection: every row that is kept, as it was to be
    /// written, or, where it had none, every statistic. `foundStored` then takes note of that.
    bool isStored(Outcome const& outcome);
    void foundStored(Outcome outcome);

    unsigned int startupId() const { return m_startupId; }
    /// How many rows have been removed.
    std::uint64_t pruned() const { return m_pruned; }

private:
    /// A row of this transaction, and what it takes to write the same row again.
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
    bool isThere(Request& request);
    void applyClearCode(Request& request);
    void applyStorm(Request& request);

    Row const& writeRow(Request& request, SourceView const& source, faultStatus_t status,
                        std::string const& description);
    void fillRow(Row const& row);
    std::string const& codeNameOf(FaultEvent const& event, FaultStatistic const& statistic);
    std::string const& builtInNameOf(std::uint32_t code);
    bool needsName(FaultEvent const& event);
    std::string const& timeZoneOf(FaultEvent const& event) const;
    unsigned long long stampOf(Request const& request) const;

    void keepStatistic(Row const& row);
    void keepState(Row const& row, FaultStatistic& statistic);

    RecorderOptions const& m_options;
    unsigned int m_startupId;
    bool m_isStartupChosen;
    TimeUnit m_timeUnit;

    sqlite::Connection const* m_connection = nullptr;
    sqlite::Statement m_insert;
    FaultTable m_faults;
    FaultState m_state;
    StatisticCounter m_counter;
    Retention m_retention;
    std::map<std::uint32_t, std::string> m_builtInNames;

    std::vector<Row> m_rows; ///< of this transaction
    std::uint64_t m_pruned = 0;
    std::uint64_t m_prunedNow = 0; ///< in this transaction
    bool m_isPruningStopped = false;
};

} // namespace firaim
