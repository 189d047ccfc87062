#pragma once

#include "FuzzSupport.h"

#include <fdb/records/Fault.h>
#include <history/FaultQuery.h>

#include <cstdint>
#include <map>
#include <vector>

// A reference implementation of reading faults, for comparison with the library's.

/// Decodes the cells of a row of the fault table.
Fault decoded(fuzz::Cells const& cells);

/// Returns true when all members are equal.
bool areSame(Fault const& a, Fault const& b);

/// A fault and the key of its row.
struct Found
{
    std::int64_t key;
    Fault fault;
};

/// The result of a query on `faults`, which are sorted by key: the matching faults, in the order of the query.
std::vector<Found> filtered(std::map<std::int64_t, Fault> const& faults, firaim::FaultQuery const& query);
