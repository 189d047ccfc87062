// Watches the machine it runs on and keeps the history of its faults, as a data logger would.

#include "health_monitor/Sampler.h"
#include "health_monitor/Thresholds.h"

#include <history/FaultReader.h>
#include <history/FaultRecorder.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <iostream>
#include <limits>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace
{

using namespace healthMonitor;

constexpr int kExitOk = 0;
constexpr int kExitTrouble = 1;
constexpr int kExitUsage = 2;

struct Options
{
    std::string database;
    std::vector<std::string> paths = {"/"};
    Thresholds thresholds;
    long long samples = 0;
    unsigned int intervalMs = 1000;
};

constexpr char kFooter[] = R"(
A threshold of 0 is not watched. A path that cannot be examined is a fault of its own (FC_STORAGE_MEDIUM_MISSING), and
so is one on a read-only file system (FC_STORAGE_READ_ONLY).

A fault is recorded when a threshold is crossed, and another, inactive one when it clears. The statistic of its code
counts occurrences and active cycles up to 65535; a cycle is a sample, and every code that is active in the file counts
it. Times in a new file are milliseconds since 1970 in UTC, in an older one they are in its own unit; the up-time is in
seconds.

Each run records under the next start-up id. The first sample decides about a fault that was still active when an
earlier run ended: while its threshold is crossed, it counts as a new occurrence under the new start-up id; otherwise
it is recorded as inactive. The state of faults that this run does not watch stays as it is.

Exit status: 0 when the samples were taken or SIGINT or SIGTERM ended the run, 1 when the database or the machine's
state could not be read or written, 2 for bad usage.)";

/// A comparison with NaN is never crossed, and CLI::Range accepts it.
std::string refuseNan(std::string const& text)
{
    return std::isnan(std::strtod(text.c_str(), nullptr)) ? "not a number: " + text : std::string();
}

std::string refuseEmpty(std::string const& text)
{
    return text.empty() ? "must not be empty" : std::string();
}

void declare(CLI::App& app, Options& options)
{
    Thresholds& thresholds = options.thresholds;
    thresholds.maxLoad = 2.0 * std::max(1U, std::thread::hardware_concurrency());

    app.add_option("--database", options.database, "The fault database; created when there is none")
        ->type_name("FILE")
        ->required()
        ->check(refuseEmpty);
    app.add_option("--min-memory", thresholds.minMemoryMib, "Least available memory, in MiB")
        ->type_name("MIB")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 1e9).description(""))
        ->check(refuseNan);
    app.add_option("--max-load", thresholds.maxLoad, "Greatest load average of the last minute, in processes")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 1e6).description(""))
        ->check(refuseNan);
    app.add_option("--min-free", thresholds.minFreePercent, "Least free space of each path, in percent")
        ->type_name("PERCENT")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 100.0).description(""))
        ->check(refuseNan);
    app.add_option("--path", options.paths, "A path whose file system is watched; may be given several times")
        ->type_name("PATH")
        ->capture_default_str()
        ->allow_extra_args(false)
        ->check(refuseEmpty);
    app.add_option("--max-clock-jump", thresholds.maxClockJumpMs,
                   "Greatest change of the system clock between two samples, in milliseconds")
        ->type_name("MS")
        ->capture_default_str()
        ->check(CLI::Range(0LL, 1'000'000'000'000LL).description(""));
    app.add_option("--restart-window", thresholds.restartWindowSeconds,
                   "A machine up for less than this many seconds has been restarted")
        ->type_name("S")
        ->capture_default_str();
    app.add_option("--samples", options.samples, "Number of samples; 0 goes on until SIGINT or SIGTERM")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(0LL, std::numeric_limits<long long>::max()).description(""));
    app.add_option("--interval", options.intervalMs, "Time from one sample to the next, in milliseconds")
        ->type_name("MS")
        ->capture_default_str()
        ->check(CLI::Range(10U, 86'400'000U).description(""));
}

/// Blocks SIGINT and SIGTERM, so that they end the run between two samples and never in the middle of a write.
class StopSignals
{
public:
    StopSignals()
    {
        sigemptyset(&m_signals);
        sigaddset(&m_signals, SIGINT);
        sigaddset(&m_signals, SIGTERM);
        int const error = pthread_sigmask(SIG_BLOCK, &m_signals, nullptr);
        if (error != 0)
        {
            throw std::system_error(error, std::generic_category(), "cannot hold back signals");
        }
    }

    /// Waits until `deadline`; returns whether a signal came first.
    bool waitUntil(std::chrono::steady_clock::time_point deadline) const
    {
        using namespace std::chrono;
        while (true)
        {
            nanoseconds const left = std::max<nanoseconds>(deadline - steady_clock::now(), nanoseconds::zero());
            timespec timeout{};
            timeout.tv_sec = static_cast<std::time_t>(duration_cast<seconds>(left).count());
            timeout.tv_nsec = static_cast<long>((left % seconds(1)).count());
            if (sigtimedwait(&m_signals, nullptr, &timeout) > 0)
            {
                return true;
            }
            // A stop and continue of the process ends the wait early.
            if (steady_clock::now() >= deadline)
            {
                return false;
            }
        }
    }

private:
    sigset_t m_signals{};
};

/// Throws unless `result`, returned by a call of `object`, is a success.
template <class Object>
void require(int result, Object const& object)
{
    if (result < 0)
    {
        throw std::runtime_error(object.lastProblem() + " (" + firaim::historyResultName(result) + ")");
    }
}

/// A path may hold a line end or an escape sequence, which would upset the terminal.
std::string printable(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
    return text;
}

/// The fault history of this machine, and the part of it that this run adds.
class History
{
public:
    explicit History(std::string const& path)
    {
        require(m_recorder.open(path), m_recorder);
        require(m_reader.open(path), m_reader);
        std::cout << "Watching under start-up id " << m_recorder.startupId() << " into " << path << std::endl;
    }

    /// Records the changes since the last sample and prints them.
    void record(std::vector<Finding> const& findings)
    {
        for (Finding const& finding : findings)
        {
            firaim::Receipt const receipt = record(finding);
            require(receipt.result, m_recorder);
            if (receipt.result == firaim::HISTORY_OK)
            {
                print(receipt.key);
            }
        }
        require(m_recorder.endCycle(), m_recorder);
    }

    /// Prints the outcome of this run.
    void summarise()
    {
        firaim::Counts counts;
        std::vector<Fault> active;
        require(m_reader.counts(counts), m_reader);
        require(m_reader.activeNow(active), m_reader);
        std::cout << m_recorder.counters().recorded << " faults recorded in this run, " << counts.faults
                  << " in the file; active now:";
        for (Fault const& fault : active)
        {
            std::cout << ' ' << printable(fault.FaultCodeName);
        }
        std::cout << (active.empty() ? " none" : "") << std::endl;
    }

private:
    firaim::Receipt record(Finding const& finding)
    {
        // Nobody watched between two runs, so a threshold that is crossed at the first look is a new occurrence, even
        // if its fault is still active: a machine that restarts again and again has restarted each time.
        bool const isFirstCheck = m_seen.insert({finding.code, finding.parameter}).second;
        firaim::FaultEvent event;
        event.code = finding.code;
        event.module = "health_monitor"; // Separates this program's faults from those of others in the same file.
        event.parameter = finding.parameter;
        event.description = finding.description;
        if (!finding.isCrossed)
        {
            event.description += isFirstCheck ? " (cleared while not watched)" : "";
            return m_recorder.clear(event);
        }
        return isFirstCheck ? m_recorder.record(event) : m_recorder.raise(event);
    }

    /// Prints a fault as the file has it now.
    void print(unsigned long long key)
    {
        Fault fault;
        require(m_reader.fault(key, fault), m_reader);
        std::cout << fault.DateTimeString << ' ' << fault.FaultCodeName
                  << (fault.Status == FAULT_ACTIVE ? " active: " : " inactive: ") << printable(fault.Parameter)
                  << (fault.Parameter.empty() ? "" : ": ") << printable(fault.Description) << std::endl;
    }

    firaim::FaultRecorder m_recorder;
    firaim::FaultReader m_reader;
    std::set<std::pair<faultCode_t, std::string>> m_seen; ///< code and parameter that this run has seen
};

void watch(Options const& options, StopSignals const& stop, History& history)
{
    using std::chrono::steady_clock;
    Sampler sampler(options.paths);
    steady_clock::time_point next = steady_clock::now();
    for (long long taken = 1;; ++taken)
    {
        history.record(compare(sampler.take(), options.thresholds));
        if (taken == options.samples)
        {
            return;
        }
        // Do not make up for missed samples, for example after suspend.
        next = std::max(next + std::chrono::milliseconds(options.intervalMs), steady_clock::now());
        if (stop.waitUntil(next))
        {
            return;
        }
    }
}

void run(Options const& options)
{
    StopSignals const stop;
    History history(options.database);
    watch(options, stop, history);
    history.summarise();
    if (!std::cout)
    {
        throw std::runtime_error("cannot write to standard output; the faults are recorded all the same");
    }
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app("Watches the memory, load, file systems, clock and up-time of this machine and records faults.",
                 "health_monitor");
    try
    {
        declare(app, options);
        app.footer(kFooter);
        app.parse(argc, argv);
        std::sort(options.paths.begin(), options.paths.end());
        options.paths.erase(std::unique(options.paths.begin(), options.paths.end()), options.paths.end());
        run(options);
        return kExitOk;
    }
    catch (CLI::ParseError const& problem)
    {
        return app.exit(problem) == 0 ? kExitOk : kExitUsage;
    }
    catch (std::exception const& problem)
    {
        std::cerr << "health_monitor: " << problem.what() << '\n';
        return kExitTrouble;
    }
}
