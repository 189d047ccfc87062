// Recording by one thread and by several, with and without retention.

#include "HistoryBaselines.h"
#include "HistoryTables.h"
#include "Report.h"
#include "Turns.h"

#include <filesystem>
#include <memory>
#include <thread>

namespace
{

constexpr unsigned int kRowsBefore = 1000;
constexpr unsigned int kThreads = 8;

/// Lets each side record `calls` faults a turn. Returns the seconds for one fault, by side.
std::vector<double> secondsPerFault(Meter meter, unsigned int rounds, unsigned int calls,
                                    std::vector<RecordingSide*> const& sides)
{
    std::vector<std::function<void()>> turns;
    for (RecordingSide* const side : sides)
    {
        turns.push_back([=] { side->record(calls); });
    }
    std::vector<double> medians = medianTurns(meter, rounds, turns);
    for (double& median : medians)
    {
        median /= calls;
    }
    return medians;
}

/// A recorder, bound statements and the facade, each with a file in `folder`.
class ThreeSides
{
public:
    explicit ThreeSides(std::string const& folder)
        : m_folder(folder), m_recorder(create("recorder.db")), m_byRecorder(m_recorder), m_byHand(create("hand.db")),
          m_byFacade(create("facade.db"))
    {
    }

    std::vector<RecordingSide*> sides() { return {&m_byRecorder, &m_byHand, &m_byFacade}; }

private:
    std::string create(char const* name)
    {
        createFile(m_folder.file(name), kRowsBefore);
        return m_folder.file(name);
    }

    Folder m_folder;
    OpenRecorder m_recorder;
    RecorderSide m_byRecorder;
    BoundStatementSide m_byHand;
    FacadeSide m_byFacade;
};

/// Runs each side in its own thread and collects the duration of every call.
class ThreadPerSide
{
public:
    explicit ThreadPerSide(std::vector<std::unique_ptr<RecordingSide>> sides) : m_sides(std::move(sides)) {}

    void run(unsigned int callsEach)
    {
        std::vector<std::vector<double>> latencies(m_sides.size());
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < m_sides.size(); ++i)
        {
            threads.emplace_back([=, &latencies] { latencies[i] = call(*m_sides[i], callsEach); });
        }
        for (std::size_t i = 0; i < threads.size(); ++i)
        {
            threads[i].join();
            m_latencies.insert(m_latencies.end(), latencies[i].begin(), latencies[i].end());
        }
    }

    double p99() { return quantile(m_latencies, 0.99); }

private:
    static std::vector<double> call(RecordingSide& side, unsigned int calls)
    {
        std::vector<double> latencies;
        for (unsigned int i = 0; i < calls; ++i)
        {
            double const begin = secondsNow(Meter::WALL);
            side.record();
            latencies.push_back(secondsNow(Meter::WALL) - begin);
        }
        return latencies;
    }

    std::vector<std::unique_ptr<RecordingSide>> m_sides;
    std::vector<double> m_latencies;
};

std::uintmax_t kib(std::string const& path)
{
    return std::filesystem::file_size(path) / 1024;
}

} // namespace

void compareRecording(HistorySetting const& setting)
{
    constexpr char kWork[] = "record fault + statistic, CPU";
    constexpr char kDurable[] = "record fault + statistic, durable";
    constexpr char kByHand[] = "bound statements, one transaction";
    constexpr char kByFacade[] = "the facade's insert + update";
    {
        ThreeSides three(setting.memoryFolder);
        std::vector<double> const cpu = secondsPerFault(Meter::CPU, setting.rounds, setting.calls, three.sides());
        printTimes(kWork, kByHand, cpu[1], cpu[0], 1.15);
        printTimes(kWork, kByFacade, cpu[2], cpu[0], 0.45);
    }
    ThreeSides three(setting.diskFolder);
    std::vector<double> const wall = secondsPerFault(Meter::WALL, setting.rounds, setting.durableCalls, three.sides());
    printTimes(kDurable, kByHand, wall[1], wall[0], 0);
    printTimes(kDurable, kByFacade, wall[2], wall[0], 0.60);
}

void compareThreads(HistorySetting const& setting)
{
    Folder const folder(setting.diskFolder);
    std::string const alonePath = folder.file("alone.db");
    std::string const sharedPath = folder.file("shared.db");
    std::string const baselinePath = folder.file("hand.db");
    for (std::string const& path : {alonePath, sharedPath, baselinePath})
    {
        createFile(path, kRowsBefore);
    }
    OpenRecorder forOne(alonePath);
    OpenRecorder forAll(sharedPath);
    std::vector<std::unique_ptr<RecordingSide>> one;
    std::vector<std::unique_ptr<RecordingSide>> sharing;
    std::vector<std::unique_ptr<RecordingSide>> separate;
    one.push_back(std::make_unique<RecorderSide>(forOne));
    for (unsigned int i = 0; i < kThreads; ++i)
    {
        sharing.push_back(std::make_unique<RecorderSide>(forAll));
        separate.push_back(std::make_unique<BoundStatementSide>(baselinePath));
    }
    ThreadPerSide alone(std::move(one));
    ThreadPerSide together(std::move(sharing));
    ThreadPerSide byHand(std::move(separate));
    unsigned int const calls = setting.durableCalls;
    std::vector<double> const turns =
        medianTurns(Meter::WALL, setting.rounds,
                    {[&] { together.run(calls); }, [&] { byHand.run(calls); }, [&] { alone.run(calls); }});
    double const perFault = turns[0] / (kThreads * calls);
    printTimes("8 threads, durable, per fault", "8 threads with a connection each", turns[1] / (kThreads * calls),
               perFault, 0.40);
    printTimes("8 threads, durable, per fault", "one thread of the recorder", turns[2] / calls, perFault, 0.40);
    double const p99 = together.p99();
    printTimes("8 threads, durable, p99 of a call", "one thread of the recorder", alone.p99(), p99, 3);
    printTimes("8 threads, durable, p99 of a call", "8 threads with a connection each", byHand.p99(), p99, 0);
}

void compareRetention(HistorySetting const& setting)
{
    Folder const folder(setting.diskFolder);
    std::string const keptPath = folder.file("kept.db");
    createFile(keptPath, 0);
    createFile(folder.file("all.db"), 0);
    firaim::RecorderOptions options;
    options.keepNewest = setting.keptRows;
    OpenRecorder keeping(keptPath, options);
    OpenRecorder growing(folder.file("all.db"));
    keeping.fill(2 * setting.keptRows);
    std::uintmax_t const sizeBefore = kib(keptPath);
    keeping.fill(setting.filledRows - 2 * setting.keptRows);
    growing.fill(setting.filledRows);
    RecorderSide byKeeping(keeping);
    RecorderSide byGrowing(growing);
    std::vector<double> const seconds =
        secondsPerFault(Meter::WALL, setting.rounds, setting.durableCalls, {&byKeeping, &byGrowing});
    std::string const rows = "retention of " + std::to_string(setting.keptRows) + " rows";
    printTimes("record with " + rows + ", durable", "without retention", seconds[1], seconds[0], 1.5);
    std::uintmax_t const size = kib(keptPath);
    print({"file size with " + rows, "the same after " + std::to_string(2 * setting.keptRows) + " rows",
           std::to_string(sizeBefore) + " KiB", std::to_string(size) + " KiB",
           ratioText(static_cast<double>(size) / static_cast<double>(sizeBefore)), "flat"});
}
