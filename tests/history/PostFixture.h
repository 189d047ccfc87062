#pragma once

#include "RecorderFixtures.h"

#include <cstdint>
#include <vector>

/// A recorder that events are posted to; nothing is opened yet.
class PostTest : public FaultRecorderTest
{
protected:
    int flush(firaim::FaultRecorder::Timeout timeout = firaim::FaultRecorder::kDefaultTimeout)
    {
        return recorder.flush(left, timeout);
    }

    /// Posts so many events, of the codes from 1 on.
    void post(std::uint64_t count)
    {
        for (std::uint64_t i = 0; i < count; ++i)
        {
            ASSERT_EQ(recorder.post(eventOf(1 + i)), firaim::HISTORY_QUEUED) << recorder.lastProblem();
        }
    }

    std::uint64_t left = 99;         ///< by the last `flush`
    std::vector<std::uint64_t> told; ///< to the handler of lost events
};
