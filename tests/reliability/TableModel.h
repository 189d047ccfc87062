#pragma once

#include <fdb/FaultDb.h>

#include <cstddef>
#include <limits>
#include <map>
#include <string>
#include <vector>

/// The text that a literal with `text` between its quotes stands for: each pair of quotes is one.
std::string storedText(std::string const& text);

Fault storedRecord(Fault fault);
FaultStatistic storedRecord(FaultStatistic statistic);
FdbVersion storedRecord(FdbVersion version);

/// The expected content of the three tables, in plain containers and as each operation is documented to change it.
/// Texts are given as to the library, each quote twice, and none is one that the library refuses.
class TableModel
{
public:
    static constexpr std::size_t kAllSteps = std::numeric_limits<std::size_t>::max();

    /// Returns the key of the new row.
    unsigned long long insert(Fault const& fault);
    unsigned long long insert(FaultStatistic const& statistic);
    unsigned long long insert(FdbVersion const& version);
    void update(Fault const& fault);
    void update(FaultStatistic const& statistic);

    /// Moves row by row, the faults first, and stops after `steps` rows. Returns whether all rows were moved.
    bool move(unsigned int newId, unsigned int oldId, std::size_t steps = kAllSteps);

    /// By key, as they are stored.
    std::map<unsigned long long, Fault> faults;
    std::map<unsigned long long, FaultStatistic> statistics;
    std::map<unsigned long long, FdbVersion> versions;
    /// The last key that was given out; no key comes twice, even when its row is gone.
    unsigned long long lastFaultKey = 0;
    unsigned long long lastStatisticKey = 0;
    unsigned long long lastVersionKey = 0;

private:
    void rewrite(FaultStatistic const& stored);
};

/// The content that the library reads from an open database.
struct Tables
{
    FaultTbl faults;
    FaultStatisticTbl statistics;
    FdbVersionTbl versions;
};

/// Reads all three tables; a read that fails fails the test.
Tables readTables(FaultDb& db);

/// The first difference between the model and what was read, in words; empty when there is none.
std::string difference(TableModel const& model, Tables const& found);
