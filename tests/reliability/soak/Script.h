#pragma once

#include <history/FaultEvent.h>

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

// The calls that a recording process makes. They follow from the seed alone, so that the process, the readers and the
// conductor agree on the content of each row without exchanging it.

namespace soak
{

constexpr unsigned int kThreads = 3; ///< of a recording process

/// Names an event: each one that is ever recorded has another identity.
struct Identity
{
    unsigned int worker = 0;
    unsigned int incarnation = 0; ///< counts the starts of the worker; also the start-up id of its rows
    unsigned int thread = 0;
    unsigned int number = 0; ///< of the call, in its thread
    unsigned int part = 0;   ///< of the event, in a call with several

    bool operator<(Identity const& other) const { return asTuple() < other.asTuple(); }
    std::tuple<unsigned int, unsigned int, unsigned int, unsigned int, unsigned int> asTuple() const
    {
        return {worker, incarnation, thread, number, part};
    }
};

std::string textOf(Identity const& identity);
std::optional<Identity> identityOf(std::string const& text);

/// One call of a thread.
struct Step
{
    enum Kind
    {
        RECORD,
        RAISE,
        CLEAR,
        GROUP, ///< recordAll
        POST,
        FLUSH,
        CLEAR_CODE,
        END_CYCLE
    };

    Kind kind = RECORD;
    std::vector<firaim::FaultEvent> events; ///< none for FLUSH and END_CYCLE
    unsigned int pauseUs = 0;               ///< before the next call
};

/// The call with the identity, whatever its part.
Step stepOf(std::uint64_t seed, Identity const& identity);

/// Whether the code is recorded by raise, clear and clearCode only, so that its rows alternate.
bool isEdgeCode(std::uint64_t code);

} // namespace soak
