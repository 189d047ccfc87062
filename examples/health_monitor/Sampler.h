#pragma once

#include <optional>
#include <string>
#include <vector>

namespace healthMonitor
{

/// The file system of one path.
struct FileSystemSample
{
    std::string path;
    std::string problem;      ///< why the path cannot be examined; if not empty, the other members mean nothing
    double freePercent = 0.0; ///< space left for ordinary users, in percent of the space they could ever have
    bool isReadOnly = false;
};

/// The state of the machine at one moment.
struct Sample
{
    unsigned int upTimeSeconds = 0;
    double availableMemoryMib = 0.0;
    double load = 0.0;                    ///< mean number of runnable processes over the last minute
    std::optional<long long> clockJumpMs; ///< by how much the clock was set since the last sample; none in the first
    std::vector<FileSystemSample> fileSystems;
};

/// Samples the state of the machine.
class Sampler
{
public:
    explicit Sampler(std::vector<std::string> paths);

    /// Throws std::runtime_error if memory, load, up-time or a clock cannot be read.
    Sample take();

private:
    std::vector<std::string> m_paths;
    std::optional<long long> m_clockOffsetMs; ///< at the last sample: system clock minus time since boot
};

} // namespace healthMonitor
