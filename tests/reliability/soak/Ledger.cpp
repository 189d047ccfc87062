#include "Ledger.h"
#include "Violation.h"

#include <history/HistoryResult.h>

#include <algorithm>

namespace soak
{

namespace
{

using namespace firaim;

bool writesRows(Step::Kind kind)
{
    return kind != Step::FLUSH && kind != Step::END_CYCLE;
}

bool isPossible(Step::Kind kind, int result)
{
    switch (result)
    {
    case HISTORY_OK:
        return kind != Step::POST;
    case HISTORY_UNCHANGED:
        return kind == Step::RAISE || kind == Step::CLEAR || kind == Step::CLEAR_CODE;
    case HISTORY_COUNTED:
        return kind == Step::RECORD || kind == Step::GROUP || kind == Step::POST;
    case HISTORY_QUEUED:
    case HISTORY_QUEUE_FULL:
        return kind == Step::POST;
    case HISTORY_BUSY: // A slow machine may keep the file locked for long.
        return true;
    default:
        return false;
    }
}

} // namespace

bool Call::isStored() const
{
    return std::any_of(outcomes.begin(), outcomes.end(),
                       [](Outcome const& outcome) { return outcome.result == HISTORY_OK && !outcome.keys.empty(); });
}

void Ledger::requirePossible(Step::Kind kind, Call::Outcome const& outcome, Call const& call) const
{
    // Storage in trouble makes calls fail.
    bool const isExcused = (outcome.result == HISTORY_FAILED || outcome.result == HISTORY_UNKNOWN) &&
                           m_timeline.isTroubled(call.begin, call.end);
    if (!isExcused && !isPossible(kind, outcome.result))
    {
        throw Violation("the call of event " + textOf(call.identity) + " returned " +
                        historyResultName(outcome.result) + ": " + call.problem);
    }
}

void Ledger::take(Call const& call)
{
    Step const step = stepOf(m_seed, call.identity);
    Thread& thread = m_threads[{call.identity.worker, call.identity.thread}];
    if (call.identity.number != thread.calls || call.outcomes.size() != std::max<std::size_t>(step.events.size(), 1))
    {
        throw Violation("an acknowledgement is missing before " + textOf(call.identity));
    }
    thread = {thread.calls + 1, call.begin, call.end};
    for (std::size_t part = 0; part < step.events.size(); ++part)
    {
        takeEvent(step, part, call);
    }
    if (!writesRows(step.kind))
    {
        requirePossible(step.kind, call.outcomes.front(), call);
    }
    m_cycles += step.kind == Step::END_CYCLE ? 1 : 0;
    if (step.kind == Step::FLUSH && call.outcomes.front().result == HISTORY_OK)
    {
        flushed(call.identity.worker, call.begin, call.end);
    }
    if (call.isStored())
    {
        m_timeline.stored(call.identity.worker, call.begin, call.end);
    }
}

void Ledger::takeEvent(Step const& step, std::size_t part, Call const& call)
{
    Call::Outcome const& outcome = call.outcomes[part];
    requirePossible(step.kind, outcome, call);
    Identity identity = call.identity;
    identity.part = static_cast<unsigned int>(part);
    Entry entry;
    entry.kind = step.kind;
    entry.event = step.events[part];
    entry.result = outcome.result;
    entry.keys = outcome.keys;
    entry.end = call.end;
    entry.range = m_timeline.rangeOf(identity.worker, call.begin, call.end);
    entry.isOpen = outcome.result == HISTORY_QUEUED || outcome.result == HISTORY_COUNTED;
    entry.isSure = outcome.result == HISTORY_OK;
    m_acknowledged += entry.isSure ? 1 : 0;
    m_failures += outcome.result < 0 ? 1 : 0;
    m_counted += outcome.result == HISTORY_COUNTED ? 1 : 0;
    if (entry.isOpen)
    {
        m_open[identity.worker].insert(identity);
    }
    m_entries[identity] = std::move(entry);
}

void Ledger::flushed(unsigned int worker, Moment begin, Moment end)
{
    std::set<Identity>& open = m_open[worker];
    for (auto name = open.begin(); name != open.end();)
    {
        auto const found = m_entries.find(*name);
        bool const isKnown = found != m_entries.end();
        if (isKnown && found->second.end > begin)
        {
            ++name; // The flush may have come before it.
            continue;
        }
        if (isKnown)
        {
            Entry& entry = found->second;
            entry.isOpen = false;
            entry.isSure = true;
            entry.range.last = m_timeline.rangeOf(worker, begin, end).last;
            ++m_acknowledged;
        }
        name = open.erase(name);
    }
}

void Ledger::started(Identity const& worker)
{
    for (unsigned int thread = 0; thread < kThreads; ++thread)
    {
        m_threads[{worker.worker, thread}] = {0, now(), now()};
    }
    m_timeline.started(worker.worker);
}

void Ledger::killed(Identity const& worker)
{
    for (Identity const& name : m_open[worker.worker])
    {
        auto const found = m_entries.find(name);
        if (found != m_entries.end())
        {
            found->second.isOpen = false;
            found->second.range.last = m_timeline.current().number;
        }
    }
    m_open[worker.worker].clear();
    for (unsigned int thread = 0; thread < kThreads; ++thread)
    {
        Thread const& last = m_threads[{worker.worker, thread}];
        Identity next = worker;
        next.thread = thread;
        next.number = last.calls;
        addDoubtful(next, last.end);
    }
}

/// Adds the call that was under way, perhaps, when the recorder was killed.
void Ledger::addDoubtful(Identity const& identity, Moment begin)
{
    Step const step = stepOf(m_seed, identity);
    m_cycles += step.kind == Step::END_CYCLE ? 1 : 0;
    for (std::size_t part = 0; part < step.events.size(); ++part)
    {
        Identity name = identity;
        name.part = static_cast<unsigned int>(part);
        Entry entry;
        entry.kind = step.kind;
        entry.event = step.events[part];
        entry.result = HISTORY_UNKNOWN;
        entry.end = now();
        entry.range = m_timeline.rangeOf(identity.worker, begin, entry.end);
        m_entries[name] = std::move(entry);
    }
}

void Ledger::closeOldest()
{
    unsigned int const closed = m_timeline.oldest().number;
    for (auto entry = m_entries.begin(); entry != m_entries.end();)
    {
        // An UNCHANGED of that time is compared with neither file.
        Entry const& old = entry->second;
        bool const isPlaced = !old.found.empty() || old.result == HISTORY_UNCHANGED;
        bool const isDone = isPlaced || (!old.isOpen && old.range.last == closed);
        if (entry->second.range.first == closed && isDone)
        {
            entry = m_entries.erase(entry);
            continue;
        }
        if (entry->second.range.first == closed)
        {
            entry->second.range.first = closed + 1;
            entry->second.range.last = std::max(entry->second.range.last, closed + 1);
            entry->second.wasSplit = entry->second.result == HISTORY_COUNTED;
        }
        ++entry;
    }
    m_timeline.closeOldest();
}

bool Ledger::hasReturned(unsigned int worker, Moment moment) const
{
    for (unsigned int thread = 0; thread < kThreads; ++thread)
    {
        auto const found = m_threads.find({worker, thread});
        if (found == m_threads.end() || found->second.begin < moment)
        {
            return false;
        }
    }
    return true;
}

Entry const* Ledger::find(Identity const& identity) const
{
    auto const found = m_entries.find(identity);
    return found != m_entries.end() ? &found->second : nullptr;
}

} // namespace soak
