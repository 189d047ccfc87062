#pragma once

#include "Script.h"
#include "StoredRow.h"
#include "Timeline.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace soak
{

/// One call of a recorder, as its acknowledgement tells it.
struct Call
{
    struct Outcome
    {
        int result;
        std::vector<unsigned long long> keys;
    };

    Identity identity; ///< of its first event
    Moment begin = 0;
    Moment end = 0;
    std::vector<Outcome> outcomes; ///< of each event
    std::string problem;           ///< after a failure

    /// Whether a row was stored.
    bool isStored() const;
};

/// One event, and where it must be or may be.
struct Entry
{
    Step::Kind kind = Step::RECORD;
    firaim::FaultEvent event;
    int result = 0;
    std::vector<unsigned long long> keys;
    Moment end = 0;
    Range range;           ///< the generations that it may be in
    bool isOpen = false;   ///< posted or counted and not flushed, so that it may get to later generations
    bool isSure = false;   ///< acknowledged
    bool wasSplit = false; ///< counted while a file was pulled: its count and its row may be in different files
    std::map<unsigned long long, unsigned int> found; ///< the keys of its rows, and the generation that has them
};

/// The model: all events of the generations that are not closed, by what the recorders have acknowledged.
class Ledger
{
public:
    Ledger(std::uint64_t seed, Timeline& timeline) : m_seed(seed), m_timeline(timeline) {}

    /// Takes an acknowledged call. Throws Violation if its result is not possible.
    void take(Call const& call);
    /// A flush has succeeded: everything that its recorder took before is stored.
    void flushed(unsigned int worker, Moment begin, Moment end);
    /// The recorder was killed: the call under way in each thread, and everything not flushed, is in doubt.
    void killed(Identity const& worker);
    /// The recorder starts.
    void started(Identity const& worker);
    /// The oldest generation was checked for the last time.
    void closeOldest();

    /// Whether every thread has finished all calls that began before the moment.
    bool hasReturned(unsigned int worker, Moment moment) const;

    std::map<Identity, Entry>& entries() { return m_entries; }
    Entry const* find(Identity const& identity) const;
    std::uint64_t cycles() const { return m_cycles; }
    std::uint64_t acknowledged() const { return m_acknowledged; }
    std::uint64_t failures() const { return m_failures; }
    std::uint64_t counted() const { return m_counted; }

private:
    struct Thread
    {
        unsigned int calls = 0; ///< number of calls that have returned
        Moment begin = 0;       ///< of the last of them
        Moment end = 0;
    };

    void takeEvent(Step const& step, std::size_t part, Call const& call);
    void requirePossible(Step::Kind kind, Call::Outcome const& outcome, Call const& call) const;
    void addDoubtful(Identity const& identity, Moment begin);

    std::uint64_t const m_seed;
    Timeline& m_timeline;
    std::map<Identity, Entry> m_entries;
    std::map<unsigned int, std::set<Identity>> m_open; ///< of the worker; not flushed
    std::map<std::pair<unsigned int, unsigned int>, Thread> m_threads;
    std::uint64_t m_cycles = 0; ///< calls of endCycle, whatever came of them
    std::uint64_t m_acknowledged = 0;
    std::uint64_t m_failures = 0;
    std::uint64_t m_counted = 0;
};

} // namespace soak
