// Reading faults, and opening files with many rows.

#include "ChildProcess.h"
#include "HistoryBaselines.h"
#include "HistoryTables.h"
#include "Report.h"
#include "Turns.h"

#include <fstream>
#include <history/FaultReader.h>

namespace
{

/// Reads all faults, one after the other, as records.
void readAll(std::string const& path, std::uint64_t rows)
{
    firaim::FaultReader reader;
    require(reader.open(path) == firaim::HISTORY_OK, "FaultReader::open");
    firaim::FaultQuery query;
    query.order = firaim::FaultQuery::OLDEST_FIRST;
    firaim::FaultCursor cursor = reader.faults(query);
    Fault fault;
    std::uint64_t read = 0;
    while (cursor.next(fault) == firaim::HISTORY_OK)
    {
        ++read;
    }
    require(rows == 0 || read == rows, "all faults");
}

/// Peak memory of this process, in KiB, from /proc: a child's ru_maxrss starts at its parent's value.
unsigned long peakOfMemory()
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
    {
        if (word == "VmHWM:")
        {
            unsigned long kib = 0;
            status >> kib;
            return kib;
        }
    }
    require(false, "/proc/self/status");
    return 0;
}

unsigned long readingPeak(Folder const& folder, std::string const& path)
{
    std::string const output = folder.file("peak");
    require(ChildProcess("/proc/self/exe", {"--read-peak", path}, "", output).wait(), "--read-peak");
    unsigned long kib = 0;
    std::ifstream(output) >> kib;
    return kib;
}

} // namespace

void compareReading(HistorySetting const& setting)
{
    Folder const folder(setting.memoryFolder);
    std::string const path = folder.file("faults.db");
    createFile(path, 0);
    addFaults(path, setting.readRows);
    BareConnection const bare(path, BareConnection::LIBRARY_SETTINGS);
    std::vector<double> const cpu =
        medianTurns(Meter::CPU, setting.rounds,
                    {[&] { readAll(path, setting.readRows); }, [&] { bare.getTable("SELECT * FROM FdbFaultTbl"); }});
    printTimes("read " + std::to_string(setting.readRows) + " faults as records, CPU", "sqlite3_get_table", cpu[1],
               cpu[0], 0.80);
}

void measureOpening(HistorySetting const& setting)
{
    constexpr unsigned int kRounds = 5;
    Folder const folder(setting.diskFolder);
    std::string const path = folder.file("many.db");
    std::string const fewPath = folder.file("few.db");
    createFile(path, 0);
    createFile(fewPath, 0);
    addFaults(path, setting.manyRows);
    addFaults(fewPath, setting.fewRows);
    unsigned long const peak = readingPeak(folder, path);
    unsigned long const fewPeak = readingPeak(folder, fewPath);
    std::string const many = std::to_string(setting.manyRows);
    print({"read " + many + " faults, peak of memory", "the same of " + std::to_string(setting.fewRows) + " faults",
           std::to_string(fewPeak) + " KiB", std::to_string(peak) + " KiB",
           ratioText(static_cast<double>(peak) / static_cast<double>(fewPeak)), "same"});

    std::vector<double> opening;
    std::vector<double> raising;
    std::vector<double> reading;
    for (unsigned int i = 0; i < kRounds; ++i)
    {
        firaim::FaultRecorder recorder;
        double const begin = secondsNow(Meter::WALL);
        require(recorder.open(path) == firaim::HISTORY_OK, "FaultRecorder::open");
        double const opened = secondsNow(Meter::WALL);
        require(recorder.raise(deviceEvent(1), std::chrono::minutes(1)).result >= 0, "FaultRecorder::raise");
        double const raised = secondsNow(Meter::WALL);
        firaim::FaultReader reader;
        require(reader.open(path) == firaim::HISTORY_OK, "FaultReader::open");
        reading.push_back(secondsNow(Meter::WALL) - raised);
        opening.push_back(opened - begin);
        raising.push_back(raised - opened);
    }
    print({"open a file of " + many + " faults for recording", "", "", timeText(quantile(opening, 0.5)), "", "300 ms"});
    print({"the first raise after that, which reads all", "", "", timeText(quantile(raising, 0.5)), "", ""});
    print({"open it for reading", "", "", timeText(quantile(reading, 0.5)), "", ""});
}

void printReadingPeak(std::string const& path)
{
    readAll(path, 0);
    std::printf("%lu\n", peakOfMemory());
}
