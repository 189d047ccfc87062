#include "Recorder.h"
#include "Violation.h"

#include <history/HistoryResult.h>

#include <sstream>

namespace soak
{

namespace
{

/// Parses "RESULT:KEY,KEY,".
Call::Outcome outcomeOf(std::string const& text)
{
    Call::Outcome outcome{firaim::HISTORY_FAILED, {}};
    std::istringstream in(text);
    char separator = 0;
    in >> outcome.result >> separator;
    for (unsigned long long key = 0; in >> key >> separator;)
    {
        outcome.keys.push_back(key);
    }
    return outcome;
}

} // namespace

Recorder::Recorder(unsigned int worker, std::uint64_t seed, std::string path, Timeline& timeline, Ledger& ledger,
                   Trace& trace)
    : m_seed(seed), m_path(std::move(path)), m_timeline(timeline), m_ledger(ledger), m_trace(trace)
{
    m_identity.worker = worker;
}

void Recorder::start(Recording const& options)
{
    ++m_identity.incarnation;
    m_options = options;
    m_isPaused = false;
    m_isClosed = false;
    m_use = {};
    m_ledger.started(m_identity);
    std::vector<std::string> arguments = {FIRAIM_TEST_SOAK_RECORDER,
                                          m_path,
                                          std::to_string(m_seed),
                                          std::to_string(m_identity.worker),
                                          std::to_string(m_identity.incarnation),
                                          std::to_string(options.keepNewest),
                                          std::to_string(options.stormBurst)};
    if (options.isLying)
    {
        arguments.emplace_back("lie");
    }
    m_process = std::make_unique<ChildProcess>(arguments);
    m_trace.add(name(), "start " + std::to_string(m_identity.incarnation) + ", keeps " + arguments[5] + ", burst " +
                            arguments[6]);
}

void Recorder::kill()
{
    m_process->kill();
    while (auto const line = m_process->readLine())
    {
        take(*line);
    }
    static_cast<void>(m_process->wait());
    m_trace.add(name(), "killed");
    m_ledger.killed(m_identity);
}

void Recorder::end()
{
    m_process->closeInput();
    while (auto const line = m_process->readLine())
    {
        take(*line);
    }
    int const status = m_process->wait();
    if (status != 0)
    {
        throw Violation(name() + " ended with status " + std::to_string(status));
    }
}

void Recorder::pause()
{
    m_process->send("pause\n");
}

void Recorder::close()
{
    m_process->send("close\n");
}

void Recorder::goOn()
{
    m_isPaused = false;
    m_isClosed = false;
    m_process->send("go\n");
}

bool Recorder::poll(long long timeoutUs)
{
    constexpr int kMost = 200; // The other processes get their turn.
    int taken = 0;
    for (auto line = m_process->readLine(timeoutUs); line; line = m_process->readLine(0))
    {
        take(*line);
        if (++taken == kMost)
        {
            break;
        }
    }
    if (taken == 0 && m_process->hasEnded())
    {
        throw Violation(name() + " has ended by itself");
    }
    return taken > 0;
}

void Recorder::take(std::string const& line)
{
    m_trace.add(name(), line);
    if (line == "paused")
    {
        m_isPaused = true;
    }
    else if (line == "closed")
    {
        m_isClosed = true;
    }
    else if (line.compare(0, 5, "call ") == 0)
    {
        takeCall(line.substr(5));
    }
    else
    {
        takeOther(line);
    }
}

void Recorder::takeCall(std::string const& line)
{
    std::size_t const tab = line.find('\t');
    std::istringstream in(line.substr(0, tab));
    Call call;
    call.identity = m_identity;
    in >> call.identity.thread >> call.identity.number >> call.begin >> call.end;
    for (std::string text; in >> text;)
    {
        call.outcomes.push_back(outcomeOf(text));
    }
    call.problem = tab != std::string::npos ? line.substr(tab + 1) : "";
    m_ledger.take(call);
}

/// Takes the result of opening, flushing or closing between the calls of the threads.
void Recorder::takeOther(std::string const& line)
{
    std::istringstream in(line);
    std::string what;
    Moment begin = 0;
    Moment end = 0;
    int result = firaim::HISTORY_INVALID_STATE;
    if (!(in >> what >> begin >> end >> result))
    {
        throw Violation(name() + " says: " + line);
    }
    bool const isExcused = result == firaim::HISTORY_FAILED && m_timeline.isTroubled(begin, end);
    if (result != firaim::HISTORY_OK && result != firaim::HISTORY_BUSY && !isExcused)
    {
        throw Violation(name() + ": " + line);
    }
    if (what == "flush" && result == firaim::HISTORY_OK)
    {
        m_ledger.flushed(m_identity.worker, begin, end);
    }
}

bool Recorder::isSettled() const
{
    auto const settled = m_timeline.settledAt(m_identity.worker);
    return settled && m_ledger.hasReturned(m_identity.worker, *settled);
}

void Recorder::expectSteadyUse()
{
    m_use.expectSteady(name(), m_process->pid());
}

} // namespace soak
