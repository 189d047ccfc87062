#include "Conductor.h"
#include "FileCheck.h"
#include "Violation.h"

#include <algorithm>
#include <cstdio>
#include <fstream>

namespace soak
{

namespace
{

constexpr Moment kMillisecond = 1000000;
constexpr Moment kSecond = 1000 * kMillisecond;
/// Nothing takes so long on the slowest machine. A process that hangs is a violation.
constexpr Moment kForever = 300 * kSecond;
constexpr long long kPollUs = 1000;
constexpr std::size_t kTold = 60; ///< lines of a diagnosis

} // namespace

Conductor::Conductor(std::uint64_t seed, Sabotage sabotage, bool canPull, bool isVerbose)
    : m_seed(seed), m_sabotage(sabotage), m_isVerbose(isVerbose), m_plan(seed, m_stage.isSmall(), canPull),
      m_ledger(seed, m_timeline), m_watch(m_stage.path(), m_ledger, m_trace),
      m_reader(seed, m_stage.path(), m_timeline, m_trace)
{
    for (unsigned int worker = 0; worker < kWorkers; ++worker)
    {
        m_recorders.push_back(std::make_unique<Recorder>(worker, seed, m_stage.path(), m_timeline, m_ledger, m_trace));
    }
    if (!m_stage.isSmall())
    {
        std::printf("Note: the soak leaves out the full disk, as mounting is not allowed here: %s\n",
                    m_stage.refusal().c_str());
    }
}

void Conductor::run(unsigned int seconds)
{
    Moment const end = now() + seconds * kSecond;
    startAll();
    for (bool isMore = true; isMore;)
    {
        Round const round = m_plan.next();
        runRound(round);
        pauseAll();
        sabotageFile();
        checkFile();
        expectSteadyUse();
        ++m_numbers.rounds;
        printRound();
        isMore = now() < end;
        if (isMore)
        {
            goOn(round);
        }
    }
    for (auto const& recorder : m_recorders)
    {
        recorder->end();
    }
}

void Conductor::startAll()
{
    m_timeline.troubleBegins(); // Readers may find no file, or an empty one.
    m_reader.start();
    m_watch.start();
    for (auto const& recorder : m_recorders)
    {
        startRecorder(*recorder);
    }
    pumpUntilDone("the first event", [this] { return m_ledger.acknowledged() > 0; });
    m_timeline.troubleEnds();
}

void Conductor::startRecorder(Recorder& recorder)
{
    Recording options = m_plan.recording();
    options.isLying = m_sabotage == Sabotage::LIE;
    if (m_sabotage != Sabotage::NONE)
    {
        options.keepNewest = 0; // It could remove the evidence.
    }
    for (auto& [number, generation] : m_timeline.all())
    {
        std::uint64_t const keep = options.keepNewest;
        generation.keepNewest =
            keep != 0 && (generation.keepNewest == 0 || keep < generation.keepNewest) ? keep : generation.keepNewest;
    }
    recorder.start(options);
}

void Conductor::runRound(Round const& round)
{
    m_trace.add("conductor", "round " + std::to_string(m_numbers.rounds));
    Moment const begin = now();
    for (Action const& action : round.actions)
    {
        pumpUntil(begin + action.afterMs * kMillisecond);
        act(action);
    }
    pumpUntil(begin + round.lengthMs * kMillisecond);
    free();
}

void Conductor::act(Action const& action)
{
    switch (action.kind)
    {
    case Action::KILL_RECORDER:
        killRecorder(*m_recorders[action.worker]);
        break;
    case Action::KILL_READER:
        m_reader.kill();
        m_reader.start();
        ++m_numbers.kills;
        break;
    case Action::KILL_WATCH:
        m_watch.kill();
        m_watch.start();
        ++m_numbers.kills;
        break;
    case Action::FILL:
        fill();
        break;
    case Action::FREE:
        free();
        break;
    case Action::PULL:
        pull();
        break;
    }
}

void Conductor::killRecorder(Recorder& recorder)
{
    recorder.kill();
    m_timeline.current().hadKill = true;
    ++m_numbers.kills;
    startRecorder(recorder);
}

void Conductor::fill()
{
    m_trace.add("conductor", "fill the disk");
    m_timeline.troubleBegins();
    m_timeline.current().hadFullDisk = true;
    m_stage.fill();
    m_isFull = true;
    ++m_numbers.fullDisks;
}

void Conductor::free()
{
    if (m_isFull)
    {
        m_trace.add("conductor", "free the disk");
        m_stage.free();
        m_timeline.troubleEnds();
        m_isFull = false;
    }
}

/// Puts another file in the place of the present one while the recorders work, and waits until they work there.
void Conductor::pull()
{
    free();
    m_timeline.troubleBegins();
    exchange();
    // A kill before that could leave a journal in the new folder that undoes a commit in the old one.
    pumpUntilDone("the recorders to work on the new file", [this] { return isEach(&Recorder::isSettled); });
    m_timeline.troubleEnds();
    closePulled();
}

/// The same while no recorder has the file open.
void Conductor::changeFile()
{
    m_timeline.troubleBegins(); // For the readers.
    exchange();
    closePulled();
}

void Conductor::exchange()
{
    bool const isWal = m_plan.nextIsWal();
    m_trace.add("conductor", isWal ? "pull the file; the next one has a log" : "pull the file");
    Moment const before = now();
    m_stage.pull(isWal);
    Generation& next = m_timeline.pull(before, now(), isWal);
    for (auto const& recorder : m_recorders)
    {
        next.allowKeeping(recorder->options().keepNewest);
    }
    ++m_numbers.pulls;
    m_numbers.logs += isWal ? 1 : 0;
}

void Conductor::closePulled()
{
    m_trace.add("conductor", "check the pulled file");
    if (exists(m_stage.pulledPath()))
    {
        FileCheck(m_seed, m_stage.pulledPath(), m_timeline.oldest(), m_ledger).run();
    }
    m_ledger.closeOldest();
    m_stage.removePulled();
}

void Conductor::pauseAll()
{
    m_trace.add("conductor", "pause");
    for (auto const& recorder : m_recorders)
    {
        recorder->pause();
    }
    pumpUntilDone("the recorders to pause", [this] { return isEach(&Recorder::isPaused); });
}

bool Conductor::isEach(bool (Recorder::*is)() const) const
{
    return std::all_of(m_recorders.begin(), m_recorders.end(),
                       [is](auto const& recorder) { return (recorder.get()->*is)(); });
}

void Conductor::checkFile()
{
    m_trace.add("conductor", "check the file");
    unsigned long long newest = 0;
    {
        FileCheck check(m_seed, m_stage.path(), m_timeline.current(), m_ledger);
        check.run();
        newest = check.newestKey();
    }
    pumpUntilDone("watch to print the newest row", [&] { return m_watch.hasPrinted(newest); });
}

void Conductor::goOn(Round const& round)
{
    bool const isChanging = round.isChanging || !m_stage.hasRoom();
    if (round.isReopening || isChanging)
    {
        closeAll();
    }
    if (isChanging)
    {
        changeFile();
    }
    for (auto const& recorder : m_recorders)
    {
        recorder->goOn();
    }
    if (isChanging)
    {
        std::uint64_t const before = m_ledger.acknowledged();
        pumpUntilDone("the first event of a file", [&] { return m_ledger.acknowledged() > before; });
        m_timeline.troubleEnds();
    }
}

void Conductor::closeAll()
{
    for (auto const& recorder : m_recorders)
    {
        recorder->close();
    }
    pumpUntilDone("the recorders to close", [this] { return isEach(&Recorder::isClosed); });
}

void Conductor::sabotageFile()
{
    if (m_sabotage == Sabotage::NONE || m_sabotage == Sabotage::LIE)
    {
        return;
    }
    std::string const newest = "(SELECT max(EntryId) FROM FdbFaultTbl WHERE Description LIKE "
                               "DiagSignalsDumpFileName || ' %' AND ModuleName <> 'shared')";
    Database database(m_stage.path());
    if (m_sabotage == Sabotage::ROW)
    {
        database.run("DELETE FROM FdbFaultTbl WHERE EntryId = " + newest);
    }
    else if (m_sabotage == Sabotage::CELL)
    {
        database.run("UPDATE FdbFaultTbl SET Description = Description || '!' WHERE EntryId = " + newest);
    }
    else
    {
        database.run("UPDATE FdbFaultStatisticTbl SET OccurenceCnt = OccurenceCnt + 100");
    }
}

void Conductor::expectSteadyUse()
{
    for (auto const& recorder : m_recorders)
    {
        recorder->expectSteadyUse();
    }
    m_reader.expectSteadyUse();
    m_watch.expectSteadyUse();
}

void Conductor::pumpUntil(Moment moment)
{
    while (now() < moment)
    {
        pump();
    }
}

template <class IsDone>
void Conductor::pumpUntilDone(char const* goal, IsDone isDone)
{
    Moment const end = now() + kForever;
    while (!isDone())
    {
        if (now() > end)
        {
            throw Violation(std::string("waited in vain for ") + goal);
        }
        pump();
    }
}

/// Takes the lines that are there, so that no process waits for room in its pipe for long.
void Conductor::pump()
{
    bool isAny = m_watch.poll();
    isAny = m_reader.poll() || isAny;
    for (auto const& recorder : m_recorders)
    {
        isAny = recorder->poll(0) || isAny;
    }
    if (!isAny)
    {
        static_cast<void>(m_recorders.front()->poll(kPollUs));
    }
}

void Conductor::printRound()
{
    if (m_isVerbose)
    {
        std::printf("round %u: %s\n", m_numbers.rounds, summary().c_str());
        std::fflush(stdout);
    }
}

std::string Conductor::summary() const
{
    return std::to_string(m_numbers.rounds) + " rounds, " + std::to_string(m_ledger.acknowledged()) +
           " events acknowledged, " + std::to_string(m_ledger.counted()) + " counted in storms, " +
           std::to_string(m_ledger.failures()) + " refused, " + std::to_string(m_numbers.kills) + " kills, " +
           std::to_string(m_numbers.fullDisks) + " full disks, " + std::to_string(m_numbers.pulls) + " pulled files (" +
           std::to_string(m_numbers.logs) + " for one with a log), " + std::to_string(m_reader.rows()) +
           " rows read, " + std::to_string(m_watch.rows()) + " watched; gaps: " + std::to_string(m_watch.gaps());
}

std::string Conductor::diagnosis()
{
    for (auto const& recorder : m_recorders)
    {
        recorder->kill();
    }
    std::string const folder = m_stage.keep();
    std::ofstream(folder + "/trace.txt") << m_trace.all();
    return m_trace.last(kTold) + "seed " + std::to_string(m_seed) + ", round " + std::to_string(m_numbers.rounds) +
           "; the files and the trace of all processes are in " + folder;
}

} // namespace soak
