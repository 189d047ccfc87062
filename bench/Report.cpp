#include "Report.h"

#include <cstdio>

#include <sqlite3.h>
#include <sys/utsname.h>
#include <unistd.h>

char const* memoryFolder()
{
    return access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
}

std::string systemText()
{
    utsname system = {};
    uname(&system);
    return std::string(system.sysname) + ' ' + system.release + ' ' + system.machine + ", " +
           std::to_string(sysconf(_SC_NPROCESSORS_ONLN)) + " processors, SQLite " + sqlite3_libversion() +
           ", compiler " + __VERSION__;
}

std::string timeText(double seconds)
{
    char text[32];
    if (seconds < 1e-6)
    {
        std::snprintf(text, sizeof text, "%.0f ns", seconds * 1e9);
    }
    else if (seconds < 1e-3)
    {
        std::snprintf(text, sizeof text, "%.2f us", seconds * 1e6);
    }
    else
    {
        std::snprintf(text, sizeof text, "%.2f ms", seconds * 1e3);
    }
    return text;
}

std::string ratioText(double ratio)
{
    char text[16];
    std::snprintf(text, sizeof text, "%.2f", ratio);
    return text;
}

void printComparisonHead()
{
    std::printf("| %-44s | %-34s | %11s | %11s | %5s | %7s |\n|---|---|--:|--:|--:|--:|\n", "work", "measured against",
                "baseline", "library", "ratio", "target");
}

void print(Comparison const& line)
{
    std::printf("| %-44s | %-34s | %11s | %11s | %5s | %7s |\n", line.work.c_str(), line.baselineName.c_str(),
                line.baselineValue.c_str(), line.value.c_str(), line.ratio.c_str(), line.target.c_str());
    std::fflush(stdout); // Show progress: a run takes minutes.
}

void printTimes(std::string const& work, std::string const& baselineName, double baselineSeconds, double seconds,
                double target)
{
    print({work, baselineName, timeText(baselineSeconds), timeText(seconds), ratioText(seconds / baselineSeconds),
           target != 0 ? ratioText(target) : ""});
}
