#pragma once

#include <tool/formats/Json.h>
#include <tool/store/FaultFile.h>
#include <tool/values/Times.h>

#include <fdb/records/FaultStatistic.h>

#include <vector>

namespace tool
{

/// One row of the statistic table, decoded, and as the file holds it.
struct StatisticRow
{
    FaultStatistic statistic;
    Json json;
};

/// All statistics, in the order of their keys. There is one for each code, so they fit into memory.
std::vector<StatisticRow> readStatistics(FaultFile& file, TimeStyle const& style);

/// A statistic as an object, the same as `jsonRow` makes of a row without damaged cells.
Json jsonStatistic(FaultStatistic const& statistic, TimeStyle const& style);

} // namespace tool
