#include "Reader.h"
#include "Violation.h"

#include <history/HistoryResult.h>

#include <sstream>

namespace soak
{

Reader::Reader(std::uint64_t seed, std::string path, Timeline const& timeline, Trace& trace)
    : m_seed(seed), m_path(std::move(path)), m_timeline(timeline), m_trace(trace)
{
}

void Reader::start()
{
    m_process = std::make_unique<ChildProcess>(
        std::vector<std::string>{FIRAIM_TEST_SOAK_READER, m_path, std::to_string(m_seed)});
    m_use = {};
    m_trace.add("reader", "start");
}

void Reader::kill()
{
    m_process->kill();
    while (auto const line = m_process->readLine())
    {
        take(*line);
    }
    static_cast<void>(m_process->wait());
}

bool Reader::poll()
{
    bool isAny = false;
    for (auto line = m_process->readLine(0); line; line = m_process->readLine(0))
    {
        take(*line);
        isAny = true;
    }
    if (!isAny && m_process->hasEnded())
    {
        throw Violation("the reader has ended by itself");
    }
    return isAny;
}

void Reader::take(std::string const& line)
{
    m_trace.add("reader", line);
    std::istringstream in(line);
    std::string what;
    Moment begin = 0;
    Moment end = 0;
    long long number = 0;
    if (!(in >> what >> begin >> end >> number))
    {
        throw Violation("the reader says: " + line);
    }
    if (what == "failed")
    {
        takeFailure(line, begin, end, static_cast<int>(number));
        return;
    }
    ++m_readings;
    m_rows += static_cast<std::uint64_t>(number);
}

/// A reader may find no file, one that is replaced between two looks at it, an empty one that a recorder is about to
/// fill, a hot journal, or full storage. All of this passes.
void Reader::takeFailure(std::string const& line, Moment begin, Moment end, int result)
{
    using namespace firaim;
    ++m_failures;
    bool const isOfTrouble = result == HISTORY_FAILED || result == HISTORY_DAMAGED || result == HISTORY_FOREIGN_FILE ||
                             result == HISTORY_BAD_PATH;
    bool const isExcused = isOfTrouble && m_timeline.isTroubled(begin, end);
    bool const isPassing = result == HISTORY_NO_FILE || result == HISTORY_BUSY || result == HISTORY_HOT_JOURNAL;
    if (!isExcused && !isPassing)
    {
        throw Violation("the reader: " + line);
    }
}

void Reader::expectSteadyUse()
{
    m_use.expectSteady("the reader", m_process->pid());
}

} // namespace soak
