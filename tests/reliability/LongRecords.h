#pragma once

#include "TestSupport.h"

#include <string>
#include <vector>

/// A fault whose row needs more than one page; `seed` tells several of them apart.
Fault longFault(unsigned int seed);

/// As above, active for odd seeds.
FaultStatistic longStatistic(unsigned int seed);

/// The content of the file, read without the library's decoding.
std::vector<Fault> storedFaults(RawDb& raw);
std::vector<FaultStatistic> storedStatistics(RawDb& raw);

/// A database as it lies on the disk, with the faults and statistics of the seeds 1 and 2. The keys are the seeds.
struct EarlierFile
{
    std::string file;
    std::string journal;

    /// In the middle of a transaction that has written many of its pages and made the file longer.
    static EarlierFile const& crashed();
    /// In write-ahead-log mode.
    static EarlierFile const& wal();
};
