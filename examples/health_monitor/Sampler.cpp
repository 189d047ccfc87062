#include "Sampler.h"

#include <sys/statvfs.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <utility>

namespace healthMonitor
{

namespace
{

constexpr double kKibPerMib = 1024.0;

double readFirstNumber(char const* path)
{
    double number = 0.0;
    if (!(std::ifstream(path) >> number))
    {
        throw std::runtime_error(std::string("cannot read a number from ") + path);
    }
    return number;
}

double readAvailableMemoryMib()
{
    constexpr char kPath[] = "/proc/meminfo";
    std::ifstream file(kPath);
    std::string key;
    while (file >> key)
    {
        double kib = 0.0;
        if (key == "MemAvailable:" && file >> kib)
        {
            return kib / kKibPerMib;
        }
        file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    throw std::runtime_error(std::string("no MemAvailable in ") + kPath);
}

long long readClockMs(clockid_t clock)
{
    timespec time{};
    if (clock_gettime(clock, &time) != 0)
    {
        throw std::runtime_error(std::string("cannot read a clock: ") + std::strerror(errno));
    }
    return static_cast<long long>(time.tv_sec) * 1000 + time.tv_nsec / 1'000'000;
}

FileSystemSample examine(std::string const& path)
{
    FileSystemSample sample;
    sample.path = path;
    struct statvfs info = {};
    if (statvfs(path.c_str(), &info) != 0)
    {
        sample.problem = std::strerror(errno);
        return sample;
    }
    // Count blocks reserved for root as neither used nor free: a logger cannot use them.
    double const available = static_cast<double>(info.f_bavail);
    double const usable = static_cast<double>(info.f_blocks - info.f_bfree) + available;
    // A file system without blocks, such as /proc, can never fill up.
    sample.freePercent = usable > 0.0 ? 100.0 * available / usable : 100.0;
    sample.isReadOnly = (info.f_flag & ST_RDONLY) != 0;
    return sample;
}

} // namespace

Sampler::Sampler(std::vector<std::string> paths) : m_paths(std::move(paths)) {}

Sample Sampler::take()
{
    Sample sample;
    // CLOCK_BOOTTIME and not CLOCK_MONOTONIC: that one stops in suspend, and waking up would look like a clock jump.
    long long const sinceBootMs = readClockMs(CLOCK_BOOTTIME);
    long long const nowMs = readClockMs(CLOCK_REALTIME);
    long long const offsetMs = nowMs - sinceBootMs;
    if (m_clockOffsetMs)
    {
        sample.clockJumpMs = offsetMs - *m_clockOffsetMs;
    }
    m_clockOffsetMs = offsetMs;

    sample.upTimeSeconds = static_cast<unsigned int>(readFirstNumber("/proc/uptime"));
    sample.availableMemoryMib = readAvailableMemoryMib();
    sample.load = readFirstNumber("/proc/loadavg");
    for (std::string const& path : m_paths)
    {
        sample.fileSystems.push_back(examine(path));
    }
    return sample;
}

} // namespace healthMonitor
