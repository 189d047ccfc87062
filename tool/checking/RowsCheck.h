#pragma once

#include <tool/checking/StatisticCheck.h>
#include <tool/damage/LostPages.h>
#include <tool/formats/Findings.h>
#include <tool/schema/TableSchema.h>
#include <tool/terminal/Output.h>

#include <history/FaultReader.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tool
{

/// The part of `check` that reads each row: damaged cells, counts that are too small, start-ups that are lost.
class RowsCheck
{
public:
    /// `gaps` are the keys of faults that cannot be read; `path` is the name of the file in findings.
    RowsCheck(std::string path, std::vector<KeyGap> gaps, Findings& findings, Output& output);

    /// Reads a table whose columns of the schema are there where `isPresent` says so. First the faults, then the
    /// statistics.
    void check(TableSchema const& schema, std::vector<bool> const& isPresent, firaim::FaultReader& reader);
    /// Compares the rows of the two tables.
    void compareStatistics(bool areStatisticsWhole);

private:
    void checkCells(firaim::RowCursor const& row, TableSchema const& schema, std::vector<bool> const& isPresent);
    void checkStartup(firaim::RowCursor const& row);
    bool passGaps(std::int64_t key);

    std::string const m_path;
    std::vector<KeyGap> const m_gaps;
    Findings& m_findings;
    Output& m_output;
    std::size_t const m_startupColumn;
    StatisticCheck m_statisticCheck;
    std::size_t m_gapsPassed = 0;
    std::optional<std::int64_t> m_startup; ///< of the fault read last
};

} // namespace tool
