#pragma once

#include "Database.h"
#include "Ledger.h"

#include <cstdint>
#include <map>
#include <string>

namespace soak
{

/// Compares a file with the model, through SQLite. No recorder may be in a call that concerns the file. Each function
/// throws Violation at the first difference.
class FileCheck
{
public:
    FileCheck(std::uint64_t seed, std::string const& path, Generation const& generation, Ledger& ledger);

    void run();

    std::size_t rows() const { return m_rows.size(); }
    unsigned long long newestKey() const { return m_newestKey; } ///< that was ever used

private:
    struct Occurrences
    {
        std::uint64_t sure = 0;
        std::uint64_t possible = 0;
    };

    void readRows();
    void expectRowsAreRecorded();
    void expectRowIsRecorded(StoredRow const& row);
    void expectEventsAreStored();
    void expectEventIsStored(Identity const& identity, Entry const& entry) const;
    void expectRaised(Identity const& identity, Entry const& entry) const;
    void expectEdgesOnly() const;
    void expectStatistics();
    void expectStatistic(Database::Row const& row, std::map<std::uint64_t, Occurrences> const& model) const;
    void expectReference(std::uint64_t code, unsigned long long reference) const;
    void expectState(std::uint64_t code, bool isActive) const;
    void expectStorms() const;
    std::map<std::uint64_t, Occurrences> occurrences() const;
    bool mayBeRemoved(unsigned long long key) const;
    bool mayHold(Entry const& entry) const;
    bool mustHold(Entry const& entry) const;

    std::uint64_t const m_seed;
    Generation const& m_generation;
    Ledger& m_ledger;
    Database m_database;
    std::map<unsigned long long, StoredRow> m_rows; ///< by key
    unsigned long long m_newestKey = 0;
};

} // namespace soak
