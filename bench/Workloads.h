#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// One thing that is measured: what the library does, and beside it the bare calls that it cannot do without.
///
/// Each measurement uses an object of its own. Both sides find the same content and the same connection settings.
class Workload
{
public:
    virtual ~Workload() = default;
    virtual void runLibrary() = 0;
    virtual void runBaseline() = 0;

    /// Puts aside what a call left behind, so that giving it back is not measured. Not called for single records.
    virtual void clean() {}
};

enum ClockKind
{
    CPU_TIME, ///< on files in memory: what the processor does, the system's part included
    WALL_TIME ///< on a disk: what the caller waits
};

/// A row of the table: how its workload is made, and its target.
struct WorkloadRow
{
    std::string name;
    std::string baselineName;
    ClockKind clock;
    double target; ///< the largest ratio of the library to the baseline; 0 for none
    bool isLarge;  ///< takes a large part of a second and leaves something to clean
    std::function<std::unique_ptr<Workload>()> make;
};

/// Where the files lie, and how large the tables are.
struct Setting
{
    std::string memoryFolder;
    std::string diskFolder;
    unsigned int tableRows;    ///< of the tables that are read whole
    unsigned int renumberRows; ///< of one start-up
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
    double target; ///< the largest ratio of the last point to the first; 0 for none
    std::vector<Point> points;
};

std::vector<Growth> makeGrowths(Setting const& setting);
