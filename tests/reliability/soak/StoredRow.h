#pragma once

#include "Script.h"

#include <cstdint>
#include <string>

namespace soak
{

/// A row as a reader found it.
struct StoredRow
{
    unsigned long long key = 0;
    std::uint64_t code = 0;
    std::string module;
    std::string parameter;
    bool isActive = false;
    std::string description;
    std::string signalsFile;
    std::string configBackup;
    std::uint64_t lifeTime = 0;
    std::uint64_t startup = 0;
    std::string timeZone;
};

/// Tells how the row differs from every row that a process may have recorded; empty if it does not.
std::string defectOf(std::uint64_t seed, StoredRow const& row);

/// Whether the row ends a storm.
bool isStormRow(StoredRow const& row);
/// The number of events in the row of a storm; 0 for any other row.
std::uint64_t stormEventsOf(StoredRow const& row);

std::string textOf(StoredRow const& row);

} // namespace soak
