#include "StoredRow.h"

#include <cstdlib>

namespace soak
{

namespace
{

constexpr char kStorm[] = " more from ";

bool hasTriple(StoredRow const& row, firaim::FaultEvent const& event)
{
    return row.module == event.module && row.parameter == event.parameter;
}

std::string differenceTo(StoredRow const& row, Step::Kind kind, firaim::FaultEvent const& event)
{
    bool const isStorm = isStormRow(row);
    // clearCode ends triples that have other parameters than its event.
    if (row.code != event.code || (kind != Step::CLEAR_CODE && !hasTriple(row, event)))
    {
        return "has another code, module or parameter";
    }
    if (!isStorm && row.isActive != (event.status == FAULT_ACTIVE))
    {
        return "has another status";
    }
    if (!isStorm && row.description != event.description)
    {
        return "has another description";
    }
    bool const isEqual =
        row.configBackup == event.configBackup && row.lifeTime == event.lifeTime.value_or(0) && row.timeZone == "UTC";
    return isEqual ? "" : "has another configuration backup, life time or time zone";
}

} // namespace

std::string defectOf(std::uint64_t seed, StoredRow const& row)
{
    std::optional<Identity> const identity = identityOf(row.signalsFile);
    if (!identity)
    {
        return "names no event";
    }
    Step const step = stepOf(seed, *identity);
    if (identity->part >= step.events.size())
    {
        return "names an event that no call has";
    }
    if (row.startup != identity->incarnation)
    {
        return "has another start-up id";
    }
    return differenceTo(row, step.kind, step.events[identity->part]);
}

bool isStormRow(StoredRow const& row)
{
    return row.description.find(kStorm) != std::string::npos;
}

std::uint64_t stormEventsOf(StoredRow const& row)
{
    return isStormRow(row) ? std::strtoull(row.description.c_str(), nullptr, 10) : 0;
}

std::string textOf(StoredRow const& row)
{
    return "row " + std::to_string(row.key) + " (code " + std::to_string(row.code) + ", " + row.module + ", " +
           row.parameter + (row.isActive ? ", active, '" : ", inactive, '") + row.description.substr(0, 60) +
           "', event " + row.signalsFile + ")";
}

} // namespace soak
