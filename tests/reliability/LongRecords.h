#pragma once

#include "TestSupport.h"

#include <string>
#include <vector>

/// A fault whose row needs more than one page. Different seeds give different faults.
Fault longFault(unsigned int seed);

/// A statistic of the same kind, active for odd seeds.
FaultStatistic longStatistic(unsigned int seed);

/// The faults in the file, read without the library.
std::vector<Fault> storedFaults(RawDb& raw);
std::vector<FaultStatistic> storedStatistics(RawDb& raw);

/// The bytes of a database with the faults and statistics of the seeds 1 and 2. The keys equal the seeds.
struct EarlierFile
{
    std::string file;
    std::string journal;

    /// In the middle of a transaction that has already written many pages and extended the file.
    static EarlierFile const& crashed();
    /// In write-ahead-log mode.
    static EarlierFile const& wal();
};
