#pragma once

#include "FuzzSupport.h"

#include <fdb/records/Fault.h>
#include <history/FaultQuery.h>

#include <cstdint>
#include <map>
#include <vector>

// The reading of faults in its plainest form, for comparison with the library's.

/// The fault that the cells of a row of the fault table mean.
Fault decoded(fuzz::Cells const& cells);

/// Whether all members are the same.
bool areSame(Fault const& a, Fault const& b);

/// A fault and the key of its row.
struct Found
{
    std::int64_t key;
    Fault fault;
};

/// The answer to a query: of all faults by key, those that it asks for, in its order.
std::vector<Found> filtered(std::map<std::int64_t, Fault> const& faults, firaim::FaultQuery const& query);
