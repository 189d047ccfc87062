#include <tool/checking/RowsCheck.h>

#include <tool/checking/CheckKinds.h>
#include <tool/files/Failures.h>
#include <tool/schema/CellCheck.h>
#include <tool/store/FaultFile.h>
#include <tool/terminal/Progress.h>

#include <utility>

namespace tool
{

using firaim::RowCursor;

namespace
{

std::string rangeText(std::int64_t first, std::int64_t last)
{
    return first == last ? std::to_string(first) : std::to_string(first) + " to " + std::to_string(last);
}

} // namespace

RowsCheck::RowsCheck(std::string path, std::vector<KeyGap> gaps, Findings& findings, Output& output)
    : m_path(std::move(path)), m_gaps(std::move(gaps)), m_findings(findings), m_output(output),
      m_startupColumn(positionOf(faultSchema(), "RdbStartupId"))
{
}

void RowsCheck::check(TableSchema const& schema, std::vector<bool> const& isPresent, firaim::FaultReader& reader)
{
    Progress progress("checking " + schema.name, m_output.terminal());
    RowCursor row = reader.rows(schema.table);
    int result = row.next();
    for (; result == firaim::HISTORY_OK; result = row.next())
    {
        checkCells(row, schema, isPresent);
        if (&schema == &faultSchema())
        {
            m_statisticCheck.addFault(row);
            checkStartup(row);
        }
        else if (&schema == &statisticSchema())
        {
            m_statisticCheck.addStatistic(row);
        }
        m_output.flushIfLarge();
        if (progress.isVisible())
        {
            progress.show(row.progress());
        }
    }
    if (result == firaim::HISTORY_DAMAGED)
    {
        m_findings.add(kIntegrity, m_path + ": reading " + schema.name + " ends at a damaged page");
    }
    else if (result < 0)
    {
        throwFailure(result, reader.lastProblem());
    }
}

void RowsCheck::compareStatistics(bool areStatisticsWhole)
{
    m_statisticCheck.compare(areStatisticsWhole,
                             [this](std::string const& problem) { m_findings.add(kCount, problem); });
}

void RowsCheck::checkCells(RowCursor const& row, TableSchema const& schema, std::vector<bool> const& isPresent)
{
    for (std::size_t column = 0; column < isPresent.size(); ++column)
    {
        std::string const problem = isPresent[column] ? cellProblem(row, column, schema.columns[column]) : "";
        if (!problem.empty())
        {
            m_findings.add(kCell, schema.name + " row " + std::to_string(row.key()) + ": " +
                                      schema.columns[column].name + " " + problem);
        }
    }
}

/// Reports the start-ups between the faults before and behind a gap: all of their faults may be lost.
void RowsCheck::checkStartup(RowCursor const& row)
{
    std::optional<std::int64_t> const before = m_startup;
    bool const isNumber = row.type(m_startupColumn) == RowCursor::CELL_INTEGER && row.integer(m_startupColumn) >= 0;
    m_startup = isNumber ? std::optional(row.integer(m_startupColumn)) : std::nullopt;
    if (passGaps(row.key()) && before && m_startup && *m_startup - 1 > *before)
    {
        m_findings.add(kLost, "no fault of start-up " + rangeText(*before + 1, *m_startup - 1) + " can be read");
    }
}

/// Returns whether there is a gap between the row before and the one with that key.
bool RowsCheck::passGaps(std::int64_t key)
{
    std::size_t const before = m_gapsPassed;
    while (m_gapsPassed < m_gaps.size() && m_gaps[m_gapsPassed].keys.last < key)
    {
        ++m_gapsPassed;
    }
    return m_gapsPassed > before;
}

} // namespace tool
