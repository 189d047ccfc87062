#pragma once

#include "Sampler.h"

#include <db/FaultCode.h>

#include <string>
#include <vector>

namespace healthMonitor
{

/// The limits of a healthy machine. A threshold of 0 is off.
struct Thresholds
{
    double minMemoryMib = 64.0;              ///< available memory
    double maxLoad = 0.0;                    ///< mean number of runnable processes over the last minute
    double minFreePercent = 5.0;             ///< free space of each watched path
    long long maxClockJumpMs = 1000;         ///< change of the system clock from one sample to the next, either way
    unsigned int restartWindowSeconds = 300; ///< a machine up for less has just been restarted
};

/// The result of one comparison. Code and parameter together identify a fault.
struct Finding
{
    faultCode_t code;
    std::string parameter; ///< the path, for a fault of a file system
    bool isCrossed;
    std::string description; ///< the value and its threshold
};

/// Compares `sample` with `thresholds`. A value that is not watched or could not be sampled has no finding.
std::vector<Finding> compare(Sample const& sample, Thresholds const& thresholds);

} // namespace healthMonitor
