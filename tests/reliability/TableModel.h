#pragma once

#include "OperationScript.h"

#include <fdb/FaultDb.h>

#include <cstddef>
#include <limits>
#include <map>
#include <string>
#include <vector>

/// The value of an SQL literal with `text` between its quotes: each pair of quotes is one quote.
std::string storedText(std::string const& text);

Fault storedRecord(Fault fault);
FaultStatistic storedRecord(FaultStatistic statistic);
FdbVersion storedRecord(FdbVersion version);

/// The expected content of the three tables in containers, changed by each operation as documented. Texts are passed as
/// to the library, with each quote doubled, and are texts that the library accepts.
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

    /// Moves row by row, the faults first, and stops after `steps` rows. Returns true when all rows were moved.
    bool move(unsigned int newId, unsigned int oldId, std::size_t steps = kAllSteps);

    /// Performs `operation`. Returns true when it was completed.
    bool apply(Operation const& operation);

    /// The stored faults, by key.
    std::map<unsigned long long, Fault> faults;
    std::map<unsigned long long, FaultStatistic> statistics;
    std::map<unsigned long long, FdbVersion> versions;
    /// The last key that was assigned. A key is never assigned again, even if its row was removed.
    unsigned long long lastFaultKey = 0;
    unsigned long long lastStatisticKey = 0;
    unsigned long long lastVersionKey = 0;

private:
    void rewrite(FaultStatistic const& stored);
};

/// The three tables, read by the library from an open database.
struct Tables
{
    FaultTbl faults;
    FaultStatisticTbl statistics;
    FdbVersionTbl versions;
};

/// Reads all three tables. A failed read fails the test.
Tables readTables(FaultDb& db);

/// Describes the first difference between the model and the tables read; empty if there is none.
std::string difference(TableModel const& model, Tables const& found);
