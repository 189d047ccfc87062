#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace soak
{

/// In nanoseconds of the monotonic clock, which all processes share.
using Moment = long long;

Moment now();

/// The file that had the name for a while.
struct Generation
{
    unsigned int number = 0;
    bool isWal = false;
    std::uint64_t keepNewest = 0; ///< the smallest limit of a recorder that may have used it; 0: none removed rows
    bool hadKill = false;         ///< a recorder was killed meanwhile, so counts of storms may be missing
    bool hadFullDisk = false;     ///< counts of storms may be in its statistics twice

    /// A recorder with this limit uses the file.
    void allowKeeping(std::uint64_t limit)
    {
        keepNewest = limit != 0 && (keepNewest == 0 || limit < keepNewest) ? limit : keepNewest;
    }
};

/// A range of generations, inclusive.
struct Range
{
    unsigned int first = 0;
    unsigned int last = 0;

    bool holds(unsigned int number) const { return first <= number && number <= last; }
    bool isSingle() const { return first == last; }
};

/// Tells which files an event may lie in, by the times of its call.
///
/// While a file is being pulled, an event may be in the old file or in the new one: a recorder may even take an event
/// into a transaction that began on the old file before the pull. A recorder is settled in the new file once one of its
/// calls has begun after another one that began after the pull was stored.
class Timeline
{
public:
    Timeline() { m_generations[0] = {}; }

    Generation& current() { return m_generations.rbegin()->second; }
    Generation const& oldest() const { return m_generations.begin()->second; }
    std::map<unsigned int, Generation>& all() { return m_generations; }

    /// A further file gets the name between the two moments.
    Generation& pull(Moment before, Moment after, bool isWal);
    /// The recorders have left the oldest file, and it is not looked at again.
    void closeOldest();
    bool isPulling() const { return m_generations.size() > 1; }

    /// The recorder of a worker is new, and so are all of its calls.
    void started(unsigned int worker) { m_workers[worker] = {}; }
    /// A call has stored a row.
    void stored(unsigned int worker, Moment begin, Moment end);
    /// The begin of the first call that is surely on the new file.
    std::optional<Moment> settledAt(unsigned int worker) const;

    Range rangeOf(unsigned int worker, Moment begin, Moment end) const;

    /// Storage is in trouble, so that calls may fail.
    void troubleBegins();
    void troubleEnds();
    bool isTroubled(Moment begin, Moment end) const;

private:
    struct Worker
    {
        std::optional<Moment> stored; ///< end of the first call after the pull that stored a row
        std::optional<Moment> settled;
    };

    struct Trouble
    {
        Moment begin;
        std::optional<Moment> end;
    };

    std::map<unsigned int, Generation> m_generations;
    std::map<unsigned int, Worker> m_workers;
    Moment m_beforePull = 0;
    Moment m_afterPull = 0;
    std::vector<Trouble> m_troubles;
};

} // namespace soak
