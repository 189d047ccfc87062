#include "Workloads.h"

#include "Files.h"
#include "MappingWorkloads.h"
#include "ReadingWorkloads.h"
#include "WorkloadSupport.h"
#include "WritingWorkloads.h"

#include <map>
#include <tuple>

namespace
{

enum FileUse
{
    READ,
    RECORD
};

/// A file with this number of faults, shared by all measurements of one use: workloads that read never see a changed
/// file.
std::string sharedFile(std::string const& folder, unsigned int faults, FileUse use)
{
    static std::map<std::tuple<std::string, unsigned int, FileUse>, std::unique_ptr<Folder>> folders;
    auto& owned = folders[{folder, faults, use}];
    if (!owned)
    {
        owned = std::make_unique<Folder>(folder);
        createFile(owned->file("faults.db"), faults);
    }
    return owned->file("faults.db");
}

} // namespace

std::vector<WorkloadRow> makeWorkloads(Setting const& setting)
{
    std::string const memory = setting.memoryFolder;
    std::string const disk = setting.diskFolder;
    unsigned int const rows = setting.tableRows;
    unsigned int const renumberRows = setting.renumberRows;
    auto const small = [memory] { return sharedFile(memory, kSmallTable, READ); };
    std::string const same = "the same text";
    return {
        {"record one fault", same, CPU_TIME, 1.10, false, [=] { return recordFault(memory); }},
        {"record one fault, durable", "DELETE, FULL, bound", WALL_TIME, 0.50, false,
         [=] { return recordFaultDurably(disk); }},
        {"read " + std::to_string(rows) + " faults", "get_table", CPU_TIME, 1.20, true,
         [=] { return readFaults(sharedFile(memory, rows, READ)); }},
        {"read one fault by id", "get_table", CPU_TIME, 1.10, false,
         [=] { return readFaultById(small(), kSmallTable); }},
        {"read one statistic by code", "get_table", CPU_TIME, 1.10, false,
         [=] { return readStatisticByCode(small()); }},
        {"update one fault", same, CPU_TIME, 1.10, false, [=] { return updateFault(memory); }},
        {"update one statistic", same, CPU_TIME, 1.10, false, [=] { return updateStatistic(memory); }},
        {"count statistics", same, CPU_TIME, 1.10, false, [=] { return countStatistics(small()); }},
        {"count active statistics", same, CPU_TIME, 1.10, false, [=] { return countActiveStatistics(small()); }},
        {"write an INSERT text", "", CPU_TIME, 0, false, writeInsertText},
        {"write an UPDATE text", "", CPU_TIME, 0, false, writeUpdateText},
        {"decode one fault row", "copies of its cells", CPU_TIME, 2.0, false, [=] { return decodeFault(small()); }},
        {"renumber " + std::to_string(renumberRows) + " faults", same, CPU_TIME, 1.10, true,
         [=] { return renumber(memory, renumberRows); }},
    };
}

std::vector<Growth> makeGrowths(Setting const& setting)
{
    Growth record = {"record one fault", 1.3, {}};
    Growth read = {"read one fault by id", 1.3, {}};
    Growth count = {"count statistics", 0, {}};
    for (unsigned int const rows : setting.growthRows)
    {
        auto const file = [memory = setting.memoryFolder, rows](FileUse use) { return sharedFile(memory, rows, use); };
        record.points.push_back({rows, [=] { return recordIntoFile(file(RECORD)); }});
        read.points.push_back({rows, [=] { return readFaultById(file(READ), rows); }});
        count.points.push_back({rows, [=] { return countStatistics(file(READ)); }});
    }
    return {record, read, count};
}
