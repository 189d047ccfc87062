#include <tool/formats/Statistics.h>

#include <tool/store/FaultReading.h>

#include <cstring>
#include <utility>

namespace tool
{

namespace
{

Json jsonMember(FdbSqlFaultStatisticTbl const& tbl, FdbSqlFaultStatisticTbl::column_t const& column)
{
    switch (column.type)
    {
    case FdbSqlFaultStatisticTbl::COLUMN_TYPE_UINT64:
        return *static_cast<unsigned long long const*>(column.value);
    case FdbSqlFaultStatisticTbl::COLUMN_TYPE_UINT32:
    {
        // The object may be an enumeration of that width.
        unsigned int number = 0;
        std::memcpy(&number, column.value, sizeof number);
        return number;
    }
    case FdbSqlFaultStatisticTbl::COLUMN_TYPE_UINT16:
        return *static_cast<unsigned short const*>(column.value);
    case FdbSqlFaultStatisticTbl::COLUMN_TYPE_STRING:
        return *static_cast<std::string const*>(column.value);
    default:
        return tbl.convertValueToStr(column.type, column.value);
    }
}

} // namespace

std::vector<StatisticRow> readStatistics(FaultFile& file, TimeStyle const& style)
{
    std::vector<FaultStatistic> statistics;
    int result = file.readerOf(statisticSchema()).statistics(statistics);
    if (file.readsOnAfter(result, statisticSchema()))
    {
        result = file.readerOf(statisticSchema()).statistics(statistics);
    }
    static_cast<void>(file.isFound(result));
    std::vector<StatisticRow> rows;
    RowReading reading(file, statisticSchema());
    // The cursor has the same order. Rows that other processes add meanwhile come last.
    for (FaultStatistic const& statistic : statistics)
    {
        Json json = reading.next() ? jsonRow(reading.row(), statisticSchema(), style) : jsonStatistic(statistic, style);
        rows.push_back({statistic, std::move(json)});
    }
    return rows;
}

Json jsonStatistic(FaultStatistic const& statistic, TimeStyle const& style)
{
    FdbSqlFaultStatisticTbl tbl(FdbSqlFaultStatisticTbl::kTableName);
    tbl.init("");
    tbl.m_record = statistic;
    Json json;
    for (auto const& [id, column] : tbl.m_columns)
    {
        json[column.name] = jsonMember(tbl, column);
    }
    json["TimeFirstOccurred"] = jsonTime(statistic.TimeFirstOccurredUTC, style);
    json["TimeLastOccurred"] = jsonTime(statistic.TimeLastOccurredUTC, style);
    return json;
}

} // namespace tool
