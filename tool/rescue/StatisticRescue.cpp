#include <tool/rescue/StatisticRescue.h>

#include <tool/process/Interrupt.h>
#include <tool/rescue/RowCheck.h>
#include <tool/values/Text.h>

#include <fdb/tables/FdbSqlFaultStatisticTbl.h>
#include <fdb/tables/FdbSqlFaultTbl.h>

#include <algorithm>
#include <utility>

namespace tool
{

namespace
{

/// Positions of the columns that `statisticColumn` does not name.
constexpr std::size_t kCountColumn = 7;
constexpr std::size_t kActiveColumn = 8;
constexpr std::size_t kFaultKeyColumn = 10;

/// Counters stop at their largest value.
constexpr std::int64_t kLargestCount = 65535;

std::string activeFault()
{
    faultStatus_t status = FAULT_ACTIVE;
    return FdbSqlFaultTbl(FdbSqlFaultTbl::kTableName).convertValueToStr(FdbSqlFaultTbl::COLUMN_TYPE_CUSTOM, &status);
}

std::string statisticStatus(bool isActive)
{
    faultStatus_t status = isActive ? FAULT_ACTIVE : FAULT_INACTIVE;
    return FdbSqlFaultStatisticTbl(FdbSqlFaultStatisticTbl::kTableName)
        .convertValueToStr(FdbSqlFaultStatisticTbl::COLUMN_TYPE_CUSTOM, &status);
}

std::string codeText(std::int64_t code)
{
    return "the statistic of code " + std::to_string(code);
}

} // namespace

/// A statistic as the recorder keeps it.
struct StatisticRescue::Rebuilt
{
    std::string name;
    std::int64_t timeFirst = 0;
    std::int64_t timeLast = 0;
    std::string timeZoneFirst;
    std::string timeZoneLast;
    std::int64_t count = 0;
    std::int64_t faultKey = 0;
    std::int64_t startup = 0;
    std::set<std::pair<std::string, std::string>> activeSources; ///< module and parameter

    void addOccurrence(std::int64_t time, std::string_view timeZone)
    {
        if (count == 0)
        {
            timeFirst = time;
            timeZoneFirst = timeZone;
        }
        timeLast = time;
        timeZoneLast = timeZone;
        count = std::min(count + 1, kLargestCount);
    }
};

void StatisticRescue::keep(FoundRow const& row)
{
    std::string const problem = row.doubt != nullptr ? row.doubt : rowProblem(row.key, row.cells, statisticSchema());
    if (!problem.empty())
    {
        note("row " + std::to_string(row.key) + " of " + statisticSchema().name + " is not kept: " + problem);
        return;
    }
    if (!m_file.addRow(statisticSchema(), row))
    {
        note("row " + std::to_string(row.key) + " of " + statisticSchema().name + " is there twice; the first is kept");
        return;
    }
    ++m_report.keptStatistics;
    m_kept.emplace(row.cells[statisticColumn::CODE].integer,
                   Kept{row.key, row.cells[kCountColumn].integer, row.cells[kFaultKeyColumn].integer,
                        row.cells[kActiveColumn].bytes == statisticStatus(true)});
}

void StatisticRescue::complete(std::int64_t lastKey)
{
    Counts const counts = countFaults();
    for (auto const& [code, kept] : m_kept)
    {
        auto const found = counts.find(code);
        correctCount(code, kept, found == counts.end() ? 0 : found->second);
        checkReference(code, kept, lastKey);
    }
    std::set<std::int64_t> missing;
    for (auto const& [code, count] : counts)
    {
        if (m_kept.count(code) == 0)
        {
            missing.insert(code);
        }
    }
    if (!missing.empty())
    {
        rebuild(missing);
    }
}

StatisticRescue::Counts StatisticRescue::countFaults() const
{
    Counts counts;
    std::string const active = activeFault();
    sqlite::Statement fault = m_file.connection().prepare("SELECT FaultCode, Status FROM " + faultSchema().name);
    while (fault.step())
    {
        counts[fault.integer(0)] += fault.text(1) == active ? 1 : 0;
    }
    return counts;
}

/// A count may be larger than the rows, as old rows are removed, but not smaller: the larger of both is right.
void StatisticRescue::correctCount(std::int64_t code, Kept const& kept, std::int64_t rows)
{
    std::int64_t const least = std::min(rows, kLargestCount);
    if (kept.count >= least)
    {
        return;
    }
    sqlite::Statement update =
        m_file.connection().prepare("UPDATE " + statisticSchema().name + " SET OccurenceCnt = ?2 WHERE EntryId = ?1");
    update.bind(1, kept.key).bind(2, least);
    update.run();
    note(codeText(code) + " counted " + std::to_string(kept.count) + ", but " +
         counted(static_cast<unsigned long long>(rows), "row") + " of it are there; it counts " +
         std::to_string(least) + " now");
}

/// The fault of an inactive statistic may have been removed on purpose, if its key was ever used.
void StatisticRescue::checkReference(std::int64_t code, Kept const& kept, std::int64_t lastKey)
{
    if (kept.faultKey == 0 || (!kept.isActive && kept.faultKey > 0 && kept.faultKey <= lastKey))
    {
        return;
    }
    sqlite::Statement fault =
        m_file.connection().prepare("SELECT 1 FROM " + faultSchema().name + " WHERE EntryId = ?1");
    fault.bind(1, kept.faultKey);
    if (!fault.step())
    {
        note(codeText(code) + " refers to fault " + std::to_string(kept.faultKey) + ", which is missing");
    }
}

void StatisticRescue::rebuild(std::set<std::int64_t> const& codes)
{
    for (auto const& [code, statistic] : readForRebuilding(codes))
    {
        insert(code, statistic);
        ++m_report.rebuiltStatistics;
        note(codeText(code) + " was missing; it is made from the faults");
    }
}

std::map<std::int64_t, StatisticRescue::Rebuilt>
StatisticRescue::readForRebuilding(std::set<std::int64_t> const& codes) const
{
    std::map<std::int64_t, Rebuilt> statistics;
    std::string const active = activeFault();
    sqlite::Statement fault = m_file.connection().prepare(
        "SELECT EntryId, FaultCode, FaultCodeName, ModuleName, Parameter, Status, TimeStampUTC, TimeZone, RdbStartupId "
        "FROM " +
        faultSchema().name + " ORDER BY EntryId");
    while (fault.step())
    {
        if (codes.count(fault.integer(1)) == 0)
        {
            continue;
        }
        Rebuilt& statistic = statistics[fault.integer(1)];
        std::pair<std::string, std::string> source(fault.text(3), fault.text(4));
        if (fault.text(5) == active)
        {
            statistic.addOccurrence(fault.integer(6), fault.text(7));
            statistic.activeSources.insert(std::move(source));
        }
        else
        {
            statistic.activeSources.erase(source);
        }
        statistic.name = fault.text(2).empty() ? statistic.name : std::string(fault.text(2));
        statistic.faultKey = fault.integer(0);
        statistic.startup = fault.integer(8);
    }
    return statistics;
}

void StatisticRescue::insert(std::int64_t code, Rebuilt const& statistic)
{
    sqlite::Statement insert = m_file.connection().prepare("INSERT INTO " + statisticSchema().name +
                                                           " VALUES(NULL,?1,?2,?3,?4,?5,?6,?7,?8,?7,?9,?10)");
    std::string const status = statisticStatus(!statistic.activeSources.empty());
    insert.bind(1, code).bind(2, statistic.name).bind(3, statistic.timeFirst).bind(4, statistic.timeLast);
    insert.bind(5, statistic.timeZoneFirst).bind(6, statistic.timeZoneLast).bind(7, statistic.count).bind(8, status);
    insert.bind(9, statistic.faultKey).bind(10, statistic.startup);
    insert.run();
}

} // namespace tool
