// Measures the library and, as its baseline, the bare SQLite calls that it needs, in one run, and prints the ratios.
//
//   firaim_bench [--tiny] [--disk FOLDER] [Google Benchmark's options]
//   firaim_bench --names                            lists the workloads at a size for a slow tool, one a line: its
//                                                   name, "|", and "baseline" when it has one
//   firaim_bench --repeat NAME SIDE TIMES           runs one side of a workload TIMES times, for a profiler
//   firaim_bench --peak nothing|SIDE|records        prints the peak memory, in KiB, of a process that reads 100,000
//                                                   faults, or holds them without having read them
//   firaim_bench --start PROGRAM...                 prints how long each program takes to start and end
//
// SIDE is library or baseline.

#include "AllocationCount.h"
#include "Files.h"
#include "Report.h"
#include "Workloads.h"

#include <benchmark/benchmark.h>
#include <fdb/FaultDb.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <map>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

/// Has a fixed symbol name, which scripts/bench passes to the tool that counts instructions.
extern "C" __attribute__((noinline)) void firaim_bench_measured(Workload& workload, bool isLibrary)
{
    isLibrary ? workload.runLibrary() : workload.runBaseline();
}

namespace
{

constexpr char kLibrary[] = "/library";
constexpr char kBaseline[] = "/baseline";

Setting const kWhole = {memoryFolder(), "/var/tmp", 100'000, 1000, {1000, 100'000, 1'000'000}};
Setting const kCounted = {memoryFolder(), memoryFolder(), 1000, 100, {}};
Setting const kTiny = {memoryFolder(), memoryFolder(), 50, 5, {10, 20, 30}};

/// Keeps the times of each benchmark and takes their medians.
class Medians : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(Context const&) override { return true; }

    void ReportRuns(std::vector<Run> const& runs) override
    {
        for (Run const& run : runs)
        {
            if (run.run_type == Run::RT_Iteration)
            {
                require(!run.error_occurred, run.error_message.c_str());
                double const seconds =
                    run.run_name.time_type.empty() ? run.cpu_accumulated_time : run.real_accumulated_time;
                m_seconds[run.run_name.function_name].push_back(seconds / static_cast<double>(run.iterations));
            }
        }
        std::fputc('.', stderr); // Show progress: a run takes minutes.
    }

    void Finalize() override { std::fputc('\n', stderr); }

    /// Seconds for each call; 0 when an option left the benchmark out.
    double of(std::string const& name) const
    {
        auto const found = m_seconds.find(name);
        if (found == m_seconds.end())
        {
            return 0;
        }
        std::vector<double> sorted = found->second;
        std::sort(sorted.begin(), sorted.end());
        std::size_t const half = sorted.size() / 2;
        return sorted.size() % 2 != 0 ? sorted[half] : (sorted[half - 1] + sorted[half]) / 2;
    }

private:
    std::map<std::string, std::vector<double>> m_seconds;
};

void measure(benchmark::State& state, WorkloadRow const& workload, void (Workload::*side)())
{
    auto const object = workload.make();
    ((*object).*side)(); // One call is not measured: it warms the caches and creates the journals.
    object->clean();
    for (auto _ : state)
    {
        ((*object).*side)();
        if (workload.isLarge)
        {
            state.PauseTiming();
            object->clean();
            state.ResumeTiming();
        }
    }
}

void registerSide(WorkloadRow const& workload, std::string const& name, void (Workload::*side)())
{
    auto* const registered = benchmark::RegisterBenchmark(name.c_str(), [workload, side](benchmark::State& state)
                                                          { measure(state, workload, side); });
    if (workload.clock == WALL_TIME)
    {
        registered->UseRealTime();
    }
}

/// Text with the allocations of the program and of SQLite for one call of the library.
std::string allocationText(WorkloadRow const& workload)
{
    // The number of different records: after one round, no text is longer than one before.
    constexpr unsigned int kCalls = 64;
    auto const object = workload.make();
    unsigned int const calls = workload.isLarge ? 1 : kCalls;
    for (unsigned int i = 0; i < calls; ++i)
    {
        object->runLibrary();
        object->clean();
    }
    unsigned long long const newBefore = allocationCount::ofNew();
    unsigned long long const sqliteBefore = allocationCount::ofSqlite();
    for (unsigned int i = 0; i < calls; ++i)
    {
        object->runLibrary();
    }
    char text[48];
    std::snprintf(text, sizeof text, "%.1f + %.1f", static_cast<double>(allocationCount::ofNew() - newBefore) / calls,
                  static_cast<double>(allocationCount::ofSqlite() - sqliteBefore) / calls);
    return text;
}

void printEnvironment(Setting const& setting)
{
    std::printf("%s\n", systemText().c_str());
    std::printf("CPU time on files in %s, elapsed time on files in %s\n", setting.memoryFolder.c_str(),
                setting.diskFolder.c_str());
    std::printf("a fault's INSERT text has %zu bytes on average; medians of interleaved repetitions\n\n",
                meanStatementSize());
}

void printWorkloads(std::vector<WorkloadRow> const& workloads, Medians const& medians)
{
    std::printf("| %-28s | %-19s | %10s | %10s | %5s | %6s | %21s |\n", "workload", "measured against", "baseline",
                "library", "ratio", "target", "allocations + SQLite's");
    std::printf("|---|---|--:|--:|--:|--:|--:|\n");
    for (WorkloadRow const& workload : workloads)
    {
        double const library = medians.of(workload.name + kLibrary);
        if (library == 0)
        {
            continue;
        }
        bool const hasBaseline = workload.target != 0;
        double const baseline = hasBaseline ? medians.of(workload.name + kBaseline) : 0;
        std::printf("| %-28s | %-19s | %10s | %10s | %5s | %6s | %21s |\n", workload.name.c_str(),
                    workload.baselineName.c_str(), hasBaseline ? timeText(baseline).c_str() : "",
                    timeText(library).c_str(), hasBaseline ? ratioText(library / baseline).c_str() : "",
                    hasBaseline ? ratioText(workload.target).c_str() : "", allocationText(workload).c_str());
    }
}

std::string growthName(Growth const& growth, Growth::Point const& point)
{
    return growth.name + "/" + std::to_string(point.rows);
}

void printGrowths(std::vector<Growth> const& growths, Medians const& medians)
{
    if (medians.of(growthName(growths.front(), growths.front().points.back())) == 0)
    {
        return; // An option left it out.
    }
    std::printf("\n| %-28s |", "faults in the file");
    for (Growth::Point const& point : growths.front().points)
    {
        std::printf(" %10u |", point.rows);
    }
    std::printf(" last to first | target |\n|---|--:|--:|--:|--:|--:|\n");
    for (Growth const& growth : growths)
    {
        std::printf("| %-28s |", growth.name.c_str());
        for (Growth::Point const& point : growth.points)
        {
            std::printf(" %10s |", timeText(medians.of(growthName(growth, point))).c_str());
        }
        double const ratio = medians.of(growthName(growth, growth.points.back())) /
                             medians.of(growthName(growth, growth.points.front()));
        std::printf(" %13s | %6s |\n", ratioText(ratio).c_str(),
                    growth.target != 0 ? ratioText(growth.target).c_str() : "");
    }
}

int measureAll(Setting const& setting, std::vector<char*> options)
{
    std::vector<WorkloadRow> const workloads = makeWorkloads(setting);
    std::vector<Growth> const growths = makeGrowths(setting);
    for (WorkloadRow const& workload : workloads)
    {
        registerSide(workload, workload.name + kLibrary, &Workload::runLibrary);
        if (workload.target != 0)
        {
            registerSide(workload, workload.name + kBaseline, &Workload::runBaseline);
        }
    }
    for (Growth const& growth : growths)
    {
        for (Growth::Point const& point : growth.points)
        {
            registerSide({growthName(growth, point), "", CPU_TIME, 0, false, point.make}, growthName(growth, point),
                         &Workload::runLibrary);
        }
    }
    int count = static_cast<int>(options.size());
    benchmark::Initialize(&count, options.data());
    if (benchmark::ReportUnrecognizedArguments(count, options.data()))
    {
        return 2;
    }
    Medians medians;
    benchmark::RunSpecifiedBenchmarks(&medians);
    printEnvironment(setting);
    printWorkloads(workloads, medians);
    printGrowths(growths, medians);
    return 0;
}

WorkloadRow const& find(std::vector<WorkloadRow> const& workloads, std::string const& name)
{
    auto const found = std::find_if(workloads.begin(), workloads.end(),
                                    [&name](WorkloadRow const& workload) { return workload.name == name; });
    require(found != workloads.end(), "no workload of that name");
    return *found;
}

int repeat(std::string const& name, bool isLibrary, unsigned long times)
{
    std::vector<WorkloadRow> const workloads = makeWorkloads(kCounted);
    auto const object = find(workloads, name).make();
    // One call is not counted, as in `measure`.
    isLibrary ? object->runLibrary() : object->runBaseline();
    object->clean();
    for (unsigned long i = 0; i < times; ++i)
    {
        firaim_bench_measured(*object, isLibrary);
        object->clean();
    }
    return 0;
}

/// Reads a whole table, or creates its records, and prints the peak memory.
int printPeak(std::string const& side)
{
    Folder const folder(kWhole.memoryFolder);
    std::string const path = folder.file("faults.db");
    createFile(path, kWhole.tableRows);
    FaultTbl faults;
    if (side == "library")
    {
        FaultDb& db = *FaultDb::getInstance();
        require(db.openDb(path, false) == 0 && db.getFaultTbl(faults) > 0, "getFaultTbl");
    }
    else if (side == "baseline")
    {
        BareConnection(path, BareConnection::LIBRARY_SETTINGS).getTable("SELECT * FROM FdbFaultTbl");
    }
    else if (side == "records")
    {
        faults.reserve(kWhole.tableRows);
        for (unsigned int i = 1; i <= kWhole.tableRows; ++i)
        {
            faults.push_back(deviceFault(i));
        }
    }
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("%ld\n", usage.ru_maxrss);
    return 0;
}

/// Runs the programs in rotation and prints the median time of each, in microseconds.
int printStarts(std::vector<std::string> const& programs)
{
    constexpr unsigned int kRounds = 301;
    using SteadyClock = std::chrono::steady_clock;
    std::vector<std::vector<double>> microseconds(programs.size());
    for (unsigned int round = 0; round < kRounds; ++round)
    {
        for (std::size_t i = 0; i < programs.size(); ++i)
        {
            std::string program = programs[i];
            char* argv[] = {program.data(), nullptr};
            pid_t pid = 0;
            auto const begin = SteadyClock::now();
            require(posix_spawn(&pid, argv[0], nullptr, nullptr, argv, environ) == 0, argv[0]);
            int status = 1;
            require(waitpid(pid, &status, 0) == pid && status == 0, argv[0]);
            microseconds[i].push_back(std::chrono::duration<double, std::micro>(SteadyClock::now() - begin).count());
        }
    }
    for (std::size_t i = 0; i < programs.size(); ++i)
    {
        std::sort(microseconds[i].begin(), microseconds[i].end());
        std::printf("%.0f\n", microseconds[i][kRounds / 2]);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    allocationCount::install();
    std::cout.rdbuf(nullptr); // Drop the library's log lines.
    std::vector<std::string> const arguments(argv + 1, argv + argc);
    if (arguments.size() == 4 && arguments[0] == "--repeat")
    {
        return repeat(arguments[1], arguments[2] == "library", std::stoul(arguments[3]));
    }
    if (arguments.size() == 2 && arguments[0] == "--peak")
    {
        return printPeak(arguments[1]);
    }
    if (arguments.size() == 1 && arguments[0] == "--names")
    {
        for (WorkloadRow const& workload : makeWorkloads(kCounted))
        {
            std::printf("%s|%s\n", workload.name.c_str(), workload.target != 0 ? "baseline" : "");
        }
        return 0;
    }
    if (arguments.size() > 1 && arguments[0] == "--start")
    {
        return printStarts({arguments.begin() + 1, arguments.end()});
    }
    Setting setting = kWhole;
    // Many short repetitions, the sides in random order: a passing disturbance of the machine affects both.
    std::vector<std::string> options = {argv[0], "--benchmark_repetitions=21", "--benchmark_min_time=0.05",
                                        "--benchmark_enable_random_interleaving=true"};
    for (std::size_t i = 0; i < arguments.size(); ++i)
    {
        if (arguments[i] == "--tiny")
        {
            setting = kTiny;
            options.insert(options.end(), {"--benchmark_repetitions=1", "--benchmark_min_time=0.000001"});
        }
        else if (arguments[i] == "--disk" && i + 1 < arguments.size())
        {
            setting.diskFolder = arguments[++i];
        }
        else
        {
            options.push_back(arguments[i]);
        }
    }
    std::vector<char*> pointers;
    for (std::string& option : options)
    {
        pointers.push_back(option.data());
    }
    return measureAll(setting, pointers);
}
