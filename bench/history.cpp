// Measures recorder and reader and their baselines in one run, and prints the ratios.
//
//   history_bench [--tiny] [--disk FOLDER] [--tool FIRAIM]
//   history_bench --read-peak FILE    reads all faults of a file and prints the peak memory of this process, in KiB

#include "Files.h"
#include "HistoryTables.h"
#include "Report.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <vector>

namespace
{

HistorySetting wholeSetting()
{
    return {memoryFolder(), "/var/tmp", "",        21,     500,     50, 10'000, 100'000,
            100'000,        1000,       1'000'000, 20'000, 100'000, 20, 2000};
}

/// A tiny size, so that the tests can run every benchmark.
HistorySetting tinySetting()
{
    return {memoryFolder(), memoryFolder(), "", 1, 3, 2, 5, 20, 20, 10, 30, 10, 10, 2, 3};
}

std::string loadText()
{
    std::array<double, 2> load = {};
    require(getloadavg(load.data(), 2) == 2, "getloadavg");
    return "load " + ratioText(load[0]) + " (1 minute), " + ratioText(load[1]) + " (5 minutes)";
}

void printAll(HistorySetting const& setting)
{
    std::printf("%s\nCPU time on files in %s, elapsed time of durable calls on files in %s\n", systemText().c_str(),
                setting.memoryFolder.c_str(), setting.diskFolder.c_str());
#ifndef NDEBUG
    std::printf("built without optimisation: the times mean nothing\n");
#endif
    std::printf("medians of %u interleaved turns; %s before\n\n", setting.rounds, loadText().c_str());
    printComparisonHead();
    compareRecording(setting);
    compareJournals(setting);
    compareThreads(setting);
    measureRecordingBesideImporters(setting);
    compareReading(setting);
    compareImport(setting);
    compareRetention(setting);
    measureOpening(setting);
    std::printf("\n%s after\n", loadText().c_str());
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> const arguments(argv + 1, argv + argc);
    std::cout.rdbuf(nullptr); // Drop the library's log lines.
    if (arguments.size() == 2 && arguments[0] == "--read-peak")
    {
        printReadingPeak(arguments[1]);
        return 0;
    }
    HistorySetting setting = wholeSetting();
    std::string disk;
    std::string tool;
    for (std::size_t i = 0; i < arguments.size(); ++i)
    {
        if (arguments[i] == "--tiny")
        {
            setting = tinySetting();
        }
        else if (arguments[i] == "--disk" && i + 1 < arguments.size())
        {
            disk = arguments[++i];
        }
        else if (arguments[i] == "--tool" && i + 1 < arguments.size())
        {
            tool = arguments[++i];
        }
        else
        {
            std::fputs("usage: history_bench [--tiny] [--disk FOLDER] [--tool FIRAIM]\n", stderr);
            return 2;
        }
    }
    setting.tool = tool;
    setting.diskFolder = disk.empty() ? setting.diskFolder : disk;
    printAll(setting);
    return 0;
}
