#pragma once

#include "Thresholds.h"

#include <fdb/FaultDb.h>

#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace healthMonitor
{

/// The database refused something; the text says what, and with which result.
class DatabaseError : public std::runtime_error
{
public:
    DatabaseError(std::string const& action, int result);
};

/// Opens the file at `path`, creating it first when there is none. Throws DatabaseError.
void openOrCreate(FaultDb& db, std::string const& path);

/// Turns findings into faults and keeps one statistic row for each fault code.
///
/// A fault that was active when an earlier run ended is settled when this run first looks at it. Still crossed: it is
/// recorded as a new occurrence under the new start-up id, because nobody watched in between, and because whoever reads
/// the file by start-up then finds under each what was wrong in it. No longer crossed: it is recorded as inactive. What
/// this run does not look at stays active, as nothing is known against it.
///
/// Nothing is rolled back on a failure; the next run's recorder brings the statistics up to date with the faults.
/// One process at a time may record into a file this way: others' start-up ids and statistics are not locked out.
class FaultRecorder
{
public:
    /// Takes the next start-up id of `db`, which is open and stays so for the recorder's life. Throws DatabaseError.
    explicit FaultRecorder(FaultDb& db);

    unsigned int startupId() const { return m_startupId; }

    /// Records what changed since the last sample, and counts the cycle for the faults that are active.
    /// Returns the faults recorded, their texts as a reader of the file will see them. Throws DatabaseError.
    std::vector<Fault> record(Sample const& sample, std::vector<Finding> const& findings);

private:
    /// Code and parameter.
    using Key = std::pair<faultCode_t, std::string>;

    struct Cycle
    {
        std::vector<Fault> faults; ///< recorded in this cycle, oldest first
        bool isActive = false;     ///< at least one finding is crossed
    };

    unsigned int nextStartupId();
    void loadActiveFaults();
    void catchUpStatistics();
    bool takeTransition(Finding const& finding, std::string& remark);
    Fault insertFault(Sample const& sample, Finding const& finding, std::string const& remark);
    void updateStatistic(faultCode_t code, Cycle const& cycle);
    bool isActive(faultCode_t code) const;

    FaultDb& m_db;
    unsigned int m_startupId;
    std::map<Key, bool> m_activeFaults; ///< true while a fault is only known from an earlier run
};

} // namespace healthMonitor
