// Measures the command on a large file in trouble: `firaim rescue` of a file with bad pages beside `.dump` of the sound
// file by SQLite's shell, and the longest wait of a recorder while `firaim check` reads its file.
//
//   damage_bench [--tiny] [--disk FOLDER] [--faults N] --tool FIRAIM

#include "ChildProcess.h"
#include "HistoryBaselines.h"
#include "Report.h"
#include "Turns.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>

namespace
{

struct DamageSetting
{
    std::string tool;
    std::string folder = "/var/tmp";
    unsigned int faults = 1'000'000;
    unsigned int badPages = 10;
    unsigned int rounds = 3;
    unsigned int quietCalls = 2000; ///< calls of the recorder with nothing beside it
};

/// The medians of several runs of a program, and the most memory that one needed.
class Cost
{
public:
    /// Runs the program to its end. `mayBePartial`: the exit status 1 is a success, too.
    void run(std::string const& program, std::vector<std::string> const& arguments, bool mayBePartial = false)
    {
        double const begin = secondsNow(Meter::WALL);
        ChildProcess process(program, arguments);
        bool const isGood = process.wait() || (mayBePartial && process.exitStatus() == 1);
        require(isGood, (program + ' ' + arguments[0]).c_str());
        m_elapsed.push_back(secondsNow(Meter::WALL) - begin);
        m_processor.push_back(process.processorSeconds());
        m_peakMemory = std::max(m_peakMemory, process.peakMemory());
    }

    double elapsed() { return quantile(m_elapsed, 0.5); }
    double processor() { return quantile(m_processor, 0.5); }
    std::string memory() const { return std::to_string(m_peakMemory) + " KiB"; }

private:
    std::vector<double> m_elapsed;
    std::vector<double> m_processor;
    long m_peakMemory = 0;
};

/// Fills pages spread over the file with junk, but not its first pages.
void damagePages(std::string const& path, unsigned int pages)
{
    constexpr std::size_t kPageSize = 4096;
    std::mt19937 random(1);
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    auto const count = static_cast<std::size_t>(std::filesystem::file_size(path)) / kPageSize;
    for (unsigned int i = 1; i <= pages; ++i)
    {
        std::string junk(kPageSize, '\0');
        std::generate(junk.begin(), junk.end(), [&] { return static_cast<char>(random()); });
        std::size_t const page = std::max<std::size_t>(5, count * i / (pages + 1));
        file.seekp(static_cast<std::streamoff>(page * kPageSize));
        file.write(junk.data(), static_cast<std::streamsize>(junk.size()));
    }
    require(file.flush().good(), "the damage");
}

std::string workText(DamageSetting const& setting, char const* unit)
{
    return "rescue, " + std::to_string(setting.faults) + " faults, " + std::to_string(setting.badPages) +
           " bad pages, " + unit;
}

void compareRescue(DamageSetting const& setting, Folder const& folder)
{
    constexpr double kTarget = 3;
    std::string const sound = folder.file("faults.db");
    std::string const damaged = folder.file("damaged.db");
    std::string const rescued = folder.file("rescued.db");
    std::filesystem::copy_file(sound, damaged);
    damagePages(damaged, setting.badPages);
    Cost dump;
    Cost rescue;
    for (unsigned int round = 0; round < setting.rounds; ++round)
    {
        dump.run("sqlite3", {sound, ".dump"});
        rescue.run(setting.tool, {"rescue", damaged, rescued}, true);
        std::filesystem::remove(rescued);
    }
    std::filesystem::remove(damaged);
    std::string const baseline = "the SQLite shell's .dump";
    printTimes(workText(setting, "elapsed"), baseline, dump.elapsed(), rescue.elapsed(), kTarget);
    printTimes(workText(setting, "CPU"), baseline, dump.processor(), rescue.processor(), 0);
    print({workText(setting, "peak memory"), baseline, dump.memory(), rescue.memory(), "", ""});
}

/// Records a fault durably and keeps the longest time that it took.
void recordAndNote(RecorderSide& side, double& longest)
{
    double const begin = secondsNow(Meter::WALL);
    side.record();
    longest = std::max(longest, secondsNow(Meter::WALL) - begin);
}

void measureWriterBesideCheck(DamageSetting const& setting, Folder const& folder)
{
    std::string const path = folder.file("faults.db");
    OpenRecorder recorder(path);
    RecorderSide side(recorder);
    side.record(); // Reads the state of the file once.
    double quiet = 0;
    for (unsigned int i = 0; i < setting.quietCalls; ++i)
    {
        recordAndNote(side, quiet);
    }
    double beside = 0;
    unsigned int calls = 0;
    double const begin = secondsNow(Meter::WALL);
    ChildProcess check(setting.tool, {"check", path});
    for (; check.isRunning(); ++calls)
    {
        recordAndNote(side, beside);
    }
    double const elapsed = secondsNow(Meter::WALL) - begin;
    check.wait(); // The exit status is no matter here: a file that grows may have findings.
    print({"durable record beside check of " + std::to_string(setting.faults) + " faults, longest",
           "without check, " + std::to_string(setting.quietCalls) + " calls", timeText(quiet), timeText(beside), "",
           "300 ms"});
    print({"check beside a recorder, elapsed", std::to_string(calls) + " calls meanwhile", "", timeText(elapsed), "",
           ""});
}

void printAll(DamageSetting const& setting)
{
    std::printf("%s\nfiles in %s\n", systemText().c_str(), setting.folder.c_str());
#ifndef NDEBUG
    std::printf("built without optimisation: the times mean nothing\n");
#endif
    Folder const folder(setting.folder);
    {
        OpenRecorder recorder(folder.file("faults.db"));
        recorder.fill(setting.faults);
    }
    auto const size = std::filesystem::file_size(folder.file("faults.db")) >> 20;
    std::printf("a file of %u faults, %ju MiB; medians of %u turns\n\n", setting.faults,
                static_cast<std::uintmax_t>(size), setting.rounds);
    printComparisonHead();
    compareRescue(setting, folder);
    measureWriterBesideCheck(setting, folder);
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> const arguments(argv + 1, argv + argc);
    std::cout.rdbuf(nullptr); // Drop the library's log lines.
    DamageSetting setting;
    for (std::size_t i = 0; i < arguments.size(); ++i)
    {
        if (arguments[i] == "--tiny")
        {
            setting = {setting.tool, memoryFolder(), 300, 2, 1, 5};
        }
        else if (arguments[i] == "--disk" && i + 1 < arguments.size())
        {
            setting.folder = arguments[++i];
        }
        else if (arguments[i] == "--faults" && i + 1 < arguments.size())
        {
            setting.faults = static_cast<unsigned int>(std::stoul(arguments[++i]));
        }
        else if (arguments[i] == "--tool" && i + 1 < arguments.size())
        {
            setting.tool = arguments[++i];
        }
    }
    if (setting.tool.empty())
    {
        std::fputs("usage: damage_bench [--tiny] [--disk FOLDER] [--faults N] --tool FIRAIM\n", stderr);
        return 2;
    }
    printAll(setting);
    return 0;
}
