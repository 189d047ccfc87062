#pragma once

#include <optional>
#include <string>
#include <vector>

namespace healthMonitor
{

/// The file system that holds one path.
struct FileSystemSample
{
    std::string path;
    std::string problem;      ///< why the path cannot be examined; empty when it can, and only then the rest means much
    double freePercent = 0.0; ///< space left for ordinary users, in percent of what they could ever have
    bool isReadOnly = false;
};

/// The state of the machine at one moment.
struct Sample
{
    unsigned int upTimeSeconds = 0;
    double availableMemoryMib = 0.0;
    double load = 0.0;                    ///< mean number of runnable processes over the last minute
    std::optional<long long> clockJumpMs; ///< by how much the clock was set since the sample before; none before
    std::vector<FileSystemSample> fileSystems;
};

/// Looks at the machine it runs on.
class Sampler
{
public:
    explicit Sampler(std::vector<std::string> paths);

    /// Throws std::runtime_error when the machine does not tell its memory, load, up-time or clocks.
    Sample take();

private:
    std::vector<std::string> m_paths;
    std::optional<long long> m_clockOffsetMs; ///< at the last sample: system clock less time since boot
};

} // namespace healthMonitor
