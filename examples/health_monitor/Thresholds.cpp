#include "Thresholds.h"

#include <cstdlib>
#include <iomanip>
#include <sstream>

namespace healthMonitor
{

namespace
{

template <class... Pieces>
std::string compose(Pieces const&... pieces)
{
    std::ostringstream text;
    text << std::setprecision(6);
    (text << ... << pieces);
    return text.str();
}

void compareFileSystem(FileSystemSample const& found, double minFreePercent, std::vector<Finding>& findings)
{
    bool const isMissing = !found.problem.empty();
    findings.push_back(
        {FC_STORAGE_MEDIUM_MISSING, found.path, isMissing, isMissing ? found.problem : "can be examined"});
    if (isMissing)
    {
        return;
    }
    findings.push_back({FC_STORAGE_READ_ONLY, found.path, found.isReadOnly,
                        found.isReadOnly ? "mounted read-only" : "mounted for writing"});
    if (minFreePercent > 0.0)
    {
        findings.push_back({FC_STORAGE_NEARLY_FULL, found.path, found.freePercent < minFreePercent,
                            compose(found.freePercent, " % free, at least ", minFreePercent, " % wanted")});
    }
}

} // namespace

std::vector<Finding> compare(Sample const& sample, Thresholds const& thresholds)
{
    std::vector<Finding> findings;
    if (thresholds.restartWindowSeconds > 0)
    {
        findings.push_back({FC_SOFTWARE_RESTART, "", sample.upTimeSeconds < thresholds.restartWindowSeconds,
                            compose("up for ", sample.upTimeSeconds, " s, counts as restarted below ",
                                    thresholds.restartWindowSeconds, " s")});
    }
    if (thresholds.minMemoryMib > 0.0)
    {
        findings.push_back(
            {FC_SOFTWARE_MEMORY_LOW, "", sample.availableMemoryMib < thresholds.minMemoryMib,
             compose(sample.availableMemoryMib, " MiB available, at least ", thresholds.minMemoryMib, " MiB wanted")});
    }
    if (thresholds.maxLoad > 0.0)
    {
        findings.push_back({FC_SOFTWARE_LOAD_HIGH, "", sample.load > thresholds.maxLoad,
                            compose("load ", sample.load, ", at most ", thresholds.maxLoad, " wanted")});
    }
    if (thresholds.maxClockJumpMs > 0 && sample.clockJumpMs)
    {
        findings.push_back(
            {FC_CLOCK_JUMP, "", std::llabs(*sample.clockJumpMs) > thresholds.maxClockJumpMs,
             compose("clock set by ", *sample.clockJumpMs, " ms, at most ", thresholds.maxClockJumpMs, " ms wanted")});
    }
    for (FileSystemSample const& fileSystem : sample.fileSystems)
    {
        compareFileSystem(fileSystem, thresholds.minFreePercent, findings);
    }
    return findings;
}

} // namespace healthMonitor
