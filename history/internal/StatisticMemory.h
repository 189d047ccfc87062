#pragma once

#include <db/internal/Sqlite.h>
#include <history/internal/Tables.h>

#include <cstdint>
#include <map>
#include <vector>

namespace firaim
{

/// A recorder's memory of the statistics in its file. Everything that touches the file is called inside a transaction
/// and throws sqlite::Error; `committed` or `rolledBack` ends the transaction.
class StatisticMemory
{
public:
    /// Compiles its statements; `connection` must stay until `disconnect`.
    void connect(sqlite::Connection const& connection);
    void disconnect();
    /// Forgets what was read. Needs no memory.
    void forget();

    /// Reads all statistics anew.
    void read();
    /// Writes the statistics that were touched.
    void write();

    /// The statistic of a code; one with the key 0 if the file has none yet.
    FaultStatistic& of(std::uint32_t code);
    /// All statistics by code.
    std::map<std::uint32_t, FaultStatistic>& all() { return m_statistics; }
    std::map<std::uint32_t, FaultStatistic> const& all() const { return m_statistics; }
    /// Marks the statistic of a code as changed, so that `write` writes it.
    void touch(std::uint32_t code) { m_touched.push_back(code); }

    /// The statistics that this transaction has written.
    std::vector<FaultStatistic> written() const;
    /// Returns whether the file holds exactly these rows.
    bool holds(std::vector<FaultStatistic> const& statistics);
    /// The largest start-up id of the statistics in the file; 0 without a statistic.
    unsigned int lastStartup();

    void committed() { m_written.clear(); }
    /// The statistics must be read again before the next use.
    void rolledBack();

private:
    StatisticTable m_table;
    sqlite::Connection const* m_connection = nullptr;
    sqlite::Statement m_read;
    sqlite::Statement m_insert;
    sqlite::Statement m_update;

    std::map<std::uint32_t, FaultStatistic> m_statistics;
    std::vector<std::uint32_t> m_touched; ///< codes, since the last `write`
    std::vector<std::uint32_t> m_written; ///< codes, in this transaction
};

} // namespace firaim
