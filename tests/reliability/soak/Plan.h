#pragma once

#include "Recorder.h"

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace soak
{

constexpr unsigned int kWorkers = 2;

/// Something that happens to the processes during a round.
struct Action
{
    enum Kind
    {
        KILL_RECORDER,
        KILL_READER,
        KILL_WATCH,
        FILL,
        FREE,
        PULL
    };

    Kind kind;
    unsigned int afterMs; ///< since the beginning of the round
    unsigned int worker = 0;
};

/// One round: its length, and the actions in their order.
struct Round
{
    unsigned int lengthMs = 0;
    std::vector<Action> actions;
    bool isReopening = false; ///< the recorders are closed and opened before the next round
    bool isChanging = false;  ///< they get another file then
};

/// A random plan that follows from a seed. Six rounds have everything in them.
class Plan
{
public:
    /// `canFill`: there is a small file system. `canPull`: files are pulled while recorders have them open.
    Plan(std::uint64_t seed, bool canFill, bool canPull)
        : m_random(static_cast<std::mt19937::result_type>(seed)), m_canFill(canFill), m_canPull(canPull)
    {
    }

    Round next();
    /// The options of a recorder that starts.
    Recording recording();
    /// Whether the next file has a write-ahead log; every other one has.
    bool nextIsWal() { return m_isWal = !m_isWal; }

private:
    unsigned int below(unsigned int limit) { return static_cast<unsigned int>(m_random()) % limit; }
    void add(Round& round, Action::Kind kind, unsigned int fromPercent, unsigned int toPercent,
             unsigned int worker = 0);

    std::mt19937 m_random;
    bool m_canFill;
    bool m_canPull;
    bool m_isWal = false;
    unsigned int m_number = 0;
};

} // namespace soak
