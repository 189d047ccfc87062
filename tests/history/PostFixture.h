#pragma once

#include "RecorderFixtures.h"

#include <cstdint>
#include <vector>

/// A recorder for tests that post events; it is not open yet.
class PostTest : public FaultRecorderTest
{
protected:
    int flush(firaim::FaultRecorder::Timeout timeout = firaim::FaultRecorder::kDefaultTimeout)
    {
        return recorder.flush(left, timeout);
    }

    /// Posts `count` events, with the codes 1, 2 and so on.
    void post(std::uint64_t count)
    {
        for (std::uint64_t i = 0; i < count; ++i)
        {
            ASSERT_EQ(recorder.post(eventOf(1 + i)), firaim::HISTORY_QUEUED) << recorder.lastProblem();
        }
    }

    std::uint64_t left = 99;         ///< set by the last `flush`
    std::vector<std::uint64_t> lost; ///< arguments of the calls of `onLost`
};
