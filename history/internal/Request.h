#pragma once

#include <history/FaultRecorder.h>
#include <history/internal/FaultState.h>
#include <history/internal/Mutex.h>
#include <history/internal/Storms.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace firaim
{

/// A call of a recorder, which waits for its requests.
struct Call
{
    Condition changed; ///< tells it to look again
    Condition::TimePoint deadline;
    std::size_t undone = 0; ///< requests
};

/// A request of one call to a recorder, and its outcome. It belongs to the call.
struct Request
{
    enum Kind
    {
        RECORD,
        RAISE,
        CLEAR,
        CLEAR_CODE,
        END_CYCLE,
        STORM ///< what was counted of one, and its row once it is over
    };

    enum Phase
    {
        WAITING,
        TAKEN, ///< part of the group that is being written
        DONE
    };

    Kind kind = RECORD;
    FaultEvent const* event = nullptr;     ///< null for END_CYCLE
    Storms::Report const* storm = nullptr; ///< of a STORM
    /// Asked when it is written: the status that a storm of its triple has counted, of a RAISE or a CLEAR; the one that
    /// the triple has by now, of a STORM.
    std::function<std::optional<faultStatus_t>()> status;
    std::uint64_t order = 0;     ///< of its acknowledgement among those of its recorder, where storms are limited
    std::int64_t now = 0;        ///< moment of the call, in milliseconds since 1970 UTC
    unsigned int upTime = 0;     ///< seconds since the machine's start
    std::vector<Source> sources; ///< those that a CLEAR_CODE ends
    std::string description;     ///< of the row that a STORM gets

    Receipt receipt;
    bool hasReceipt = false;              ///< a caller gets it; what was posted is tried again instead
    std::vector<unsigned long long> keys; ///< of the rows that were written
    std::string problem;                  ///< why it failed
    std::int64_t doubtfulKey = 0;         ///< of its row, when an earlier commit of it has failed without telling how
    bool isRefusedByFile = false;         ///< it failed alone, by a rule or a trigger of the file

    Phase phase = WAITING;
    Call* call = nullptr;

    /// Sets the moment of the call.
    void takeMoment();
    /// About how many bytes it adds to a transaction.
    std::size_t size() const;
    /// Whether it can only be decided when the active triples are known.
    bool needsSources() const;
    bool isEdge() const { return kind == RAISE || kind == CLEAR || kind == CLEAR_CODE; }
};

} // namespace firaim
