#pragma once

#include <tool/rescue/RescueReport.h>
#include <tool/rescue/RescuedFile.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace tool
{

/// Fills the statistics of a new file, after its faults: those that could be read stay, except counts below the rows of
/// the code, and those of other codes are made from the faults, as the recorder would have counted them.
class StatisticRescue
{
public:
    /// Both must outlive this object. Notes in `report` what does not agree.
    StatisticRescue(RescuedFile& file, RescueReport& report) : m_file(file), m_report(report) {}

    /// Adds a statistic of the damaged file, if it is sound.
    void keep(FoundRow const& row);
    /// Compares with the faults and adds the missing statistics. `lastKey` is the largest key that a fault ever had.
    void complete(std::int64_t lastKey);

private:
    /// A statistic that was kept; the first one of its code counts.
    struct Kept
    {
        std::int64_t key;
        std::int64_t count;
        std::int64_t faultKey;
        bool isActive;
    };
    /// Active rows by code; 0 for a code with inactive rows only.
    using Counts = std::map<std::int64_t, std::int64_t>;
    struct Rebuilt;

    Counts countFaults() const;
    void correctCount(std::int64_t code, Kept const& kept, std::int64_t rows);
    void checkReference(std::int64_t code, Kept const& kept, std::int64_t lastKey);
    void rebuild(std::set<std::int64_t> const& codes);
    std::map<std::int64_t, Rebuilt> readForRebuilding(std::set<std::int64_t> const& codes) const;
    void insert(std::int64_t code, Rebuilt const& statistic);
    void note(std::string const& difference) { m_report.differences.push_back(difference); }

    RescuedFile& m_file;
    RescueReport& m_report;
    std::map<std::int64_t, Kept> m_kept; ///< by code
};

} // namespace tool
