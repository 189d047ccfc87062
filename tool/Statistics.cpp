#include "Statistics.h"

#include "Rows.h"

namespace tool
{

std::vector<statisticRow_t> readStatistics(Connection const& connection, TimeStyle const& style)
{
    std::vector<statisticRow_t> rows;
    StatisticDecoder decoder;
    Statement row = connection.prepare(selectText(connection, statisticFormat()) + " ORDER BY 1");
    while (row.step())
    {
        json_t json = jsonRow(row, statisticFormat(), style);
        rows.push_back({decoder.decode(row), std::move(json)});
    }
    return rows;
}

} // namespace tool
