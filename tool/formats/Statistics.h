#pragma once

#include <tool/formats/Json.h>
#include <tool/store/FaultFile.h>
#include <tool/values/Times.h>

#include <fdb/records/FaultStatistic.h>

#include <vector>

namespace tool
{

/// One row of the statistic table, decoded and as it is.
struct StatisticRow
{
    FaultStatistic statistic;
    Json json;
};

/// All statistics, in the order of their keys. There is one for each code, so that they fit into memory.
std::vector<StatisticRow> readStatistics(FaultFile& file, TimeStyle const& style);

/// A statistic as an object, as `jsonRow` has it for a row whose cells are all sound.
Json jsonStatistic(FaultStatistic const& statistic, TimeStyle const& style);

} // namespace tool
