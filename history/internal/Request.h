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

/// One call of a recorder, which waits for its requests.
struct Call
{
    Condition changed; ///< its requests are done, or it shall lead
    Condition::TimePoint deadline;
    std::size_t pending = 0; ///< number of requests that are not done
};

/// One request of a call to a recorder, and its outcome. Owned by the call.
struct Request
{
    enum Kind
    {
        RECORD,
        RAISE,
        CLEAR,
        CLEAR_CODE,
        END_CYCLE,
        STORM ///< the events that a storm has counted, and its row when it is over
    };

    enum Phase
    {
        WAITING,
        TAKEN, ///< in the group that is being written
        DONE
    };

    Kind kind = RECORD;
    FaultEvent const* event = nullptr;     ///< null for END_CYCLE
    Storms::Report const* storm = nullptr; ///< of a STORM, else null
    /// Called when the request is written. For RAISE and CLEAR: the status that a storm of the triple has counted. For
    /// STORM: the present status of the triple.
    std::function<std::optional<faultStatus_t>()> status;
    std::uint64_t order = 0;     ///< number of its acknowledgement in the recorder, if storms are limited
    std::int64_t now = 0;        ///< time of the call, in milliseconds since 1970-01-01 UTC
    unsigned int upTime = 0;     ///< seconds since the machine's start
    std::vector<Source> sources; ///< the sources that a CLEAR_CODE ends
    std::string description;     ///< of the row of a STORM

    Receipt receipt;
    bool hasReceipt = false;              ///< a caller gets the receipt; a posted event is tried again instead
    std::vector<unsigned long long> keys; ///< of the written rows
    std::string problem;                  ///< why it failed
    std::int64_t doubtfulKey = 0;         ///< key of its row in an earlier commit with unknown outcome, else 0
    bool isRefusedByFile = false;         ///< a rule or a trigger of the file made it fail alone

    Phase phase = WAITING;
    Call* call = nullptr;

    /// Sets `now` and `upTime`.
    void setTimes();
    /// The approximate number of bytes that it adds to a transaction.
    std::size_t size() const;
    /// Whether its effect depends on the active triples.
    bool needsSources() const;
    bool isEdge() const { return kind == RAISE || kind == CLEAR || kind == CLEAR_CODE; }
};

} // namespace firaim
