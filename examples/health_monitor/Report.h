#pragma once

#include <fdb/FaultDb.h>

#include <ostream>

namespace healthMonitor
{

/// Writes the line that tells of `fault` as it is recorded.
void printEvent(std::ostream& out, Fault const& fault);

/// Writes the fault table, the statistic table and both counts of the open `db`. Throws DatabaseError, with nothing
/// written.
void printReport(std::ostream& out, FaultDb& db);

} // namespace healthMonitor
