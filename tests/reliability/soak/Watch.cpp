#include "Watch.h"
#include "Violation.h"

#include <history/HistoryResult.h>

#include <algorithm>
#include <cstdlib>

namespace soak
{

namespace
{

/// The value of a member of a JSON object on one line; empty if there is none. No text of these rows is escaped before
/// the members that are read here.
std::string memberOf(std::string const& line, std::string const& name)
{
    std::string const begin = '"' + name + "\":";
    std::size_t const at = line.find(begin);
    if (at == std::string::npos)
    {
        return {};
    }
    std::size_t const value = at + begin.size();
    bool const isText = line[value] == '"';
    std::size_t const end = isText ? line.find('"', value + 1) : line.find_first_of(",}", value);
    return line.substr(value + (isText ? 1 : 0), end - value - (isText ? 1 : 0));
}

bool contains(std::string const& text, char const* part)
{
    return text.find(part) != std::string::npos;
}

} // namespace

Watch::Watch(std::string path, Ledger const& ledger, Trace& trace)
    : m_path(std::move(path)), m_ledger(ledger), m_trace(trace)
{
}

void Watch::start()
{
    // Its messages come between the rows where they belong.
    m_process = std::make_unique<ChildProcess>(std::vector<std::string>{
        "/bin/sh", "-c", "exec '" FIRAIM_TEST_TOOL "' watch --json --last 1000000 '" + m_path + "' 2>&1"});
    m_lastKey.reset();
    m_isGapReported = false;
    m_isFollowing = false;
    m_use = {};
    m_trace.add("watch", "start");
}

void Watch::kill()
{
    m_process->kill();
    while (auto const line = m_process->readLine())
    {
        take(*line);
    }
    static_cast<void>(m_process->wait());
}

bool Watch::poll()
{
    constexpr int kMost = 500;
    int taken = 0;
    for (auto line = m_process->readLine(0); line; line = m_process->readLine(0))
    {
        take(*line);
        if (++taken == kMost)
        {
            break;
        }
    }
    if (taken == 0 && m_process->hasEnded())
    {
        if (m_isFollowing)
        {
            throw Violation("watch has ended by itself");
        }
        start(); // The file is not there yet, or a journal is hot.
    }
    return taken > 0;
}

void Watch::take(std::string const& line)
{
    if (contains(line, "{\"Event\":\"fault\""))
    {
        m_isFollowing = true;
        takeRow(line);
    }
    else if (!contains(line, "{\"Event\":\"statistic\""))
    {
        takeMessage(line);
    }
}

void Watch::takeRow(std::string const& line)
{
    unsigned long long const key = std::strtoull(memberOf(line, "EntryId").c_str(), nullptr, 10);
    std::string const event = memberOf(line, "DiagSignalsDumpFileName");
    m_trace.add("watch", "row " + std::to_string(key) + " event " + event);
    if (m_lastKey && (key <= *m_lastKey || (key != *m_lastKey + 1 && !m_isGapReported)))
    {
        throw Violation("watch printed row " + std::to_string(key) + " after row " + std::to_string(*m_lastKey));
    }
    std::optional<Identity> const identity = identityOf(event);
    Entry const* const entry = identity ? m_ledger.find(*identity) : nullptr;
    bool const isGiven = entry == nullptr || entry->result != firaim::HISTORY_OK ||
                         std::find(entry->keys.begin(), entry->keys.end(), key) != entry->keys.end();
    if (!identity || !isGiven)
    {
        throw Violation("watch printed row " + std::to_string(key) + " with event '" + event +
                        "', which was acknowledged under another key");
    }
    m_lastKey = key;
    m_isGapReported = false;
    ++m_rows;
}

void Watch::takeMessage(std::string const& line)
{
    m_trace.add("watch", line);
    if (contains(line, "removed"))
    {
        m_isGapReported = true;
        ++m_gaps;
    }
    else if (contains(line, "another file has got this name") || contains(line, "its content was replaced"))
    {
        m_lastKey.reset();
        m_isGapReported = false;
    }
}

void Watch::expectSteadyUse()
{
    m_use.expectSteady("watch", m_process->pid());
}

} // namespace soak
