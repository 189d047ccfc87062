#pragma once

#include <db/Export.h>
#include <fdb/records/FaultStatistic.h>

#include <vector>

/// The statistics that a query returned, in row order. Owned by the caller.
/// Unlike its siblings it deliberately has no virtual member: it is exactly its vector; do not delete it through a
/// base.
class FIRAIM_EXPORT FaultStatisticTbl : public std::vector<FaultStatistic>
{
};
