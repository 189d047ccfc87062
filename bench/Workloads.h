#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// One measured piece of work: the library's operation, and as its baseline the bare SQLite calls that it needs.
///
/// Each measurement uses its own object. Both sides find the same content and, unless a workload says otherwise, the
/// same connection settings.
class Workload
{
public:
    virtual ~Workload() = default;
    virtual void runLibrary() = 0;
    virtual void runBaseline() = 0;

    /// Releases the results of a call outside the measured time. Called for large workloads only.
    virtual void clean() {}
};

enum ClockKind
{
    CPU_TIME, ///< user and system time, on files in memory
    WALL_TIME ///< elapsed time, on a disk
};

/// A row of the table: how its workload is made, and its target.
struct WorkloadRow
{
    std::string name;
    std::string baselineName;
    ClockKind clock;
    double target; ///< largest allowed ratio of the library to the baseline; 0: there is no baseline
    bool isLarge;  ///< a call takes a large part of a second and leaves results to release
    std::function<std::unique_ptr<Workload>()> make;
};

/// Locations of the files, and sizes of the tables.
struct Setting
{
    std::string memoryFolder;
    std::string diskFolder;
    unsigned int tableRows;    ///< rows of a table that is read whole
    unsigned int renumberRows; ///< rows of the start-up that is renumbered
    std::vector<unsigned int> growthRows;
};

std::vector<WorkloadRow> makeWorkloads(Setting const& setting);

/// One operation of the library on tables of growing size.
struct Growth
{
    struct Point
    {
        unsigned int rows;
        std::function<std::unique_ptr<Workload>()> make;
    };

    std::string name;
    double target; ///< largest allowed ratio of the last point to the first; 0: none
    std::vector<Point> points;
};

std::vector<Growth> makeGrowths(Setting const& setting);
