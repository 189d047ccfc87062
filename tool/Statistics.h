#pragma once

#include "Json.h"
#include "Sqlite.h"
#include "Times.h"

#include <fdb/records/FaultStatistic.h>

#include <vector>

namespace tool
{

/// One row of the statistic table, decoded and as it is.
struct statisticRow_t
{
    FaultStatistic statistic;
    json_t json;
};

/// All statistics, in the order of their keys. There is one for each code, so that they fit into memory.
std::vector<statisticRow_t> readStatistics(Connection const& connection, TimeStyle const& style);

} // namespace tool
