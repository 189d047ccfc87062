#include <db/internal/LockWait.h>

#include <algorithm>

#include <sqlite3.h>

namespace
{

using SteadyClock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPause(5);
constexpr std::chrono::milliseconds kShortPause(1);
constexpr std::chrono::milliseconds kShortPauseAfter(400);

} // namespace

bool lockWait::LockWait::pause(int tries, std::chrono::milliseconds limit)
{
    if (tries == 0)
    {
        m_begin = SteadyClock::now();
        m_slept = {};
    }
    // Check the clock, as a pause can take longer than asked for, and the sum, as SQLite's VFS decides what a pause is.
    if (m_slept >= limit || SteadyClock::now() - m_begin >= limit)
    {
        return false;
    }
    std::chrono::milliseconds const wanted =
        std::min(m_slept < kShortPauseAfter ? kPause : kShortPause, limit - m_slept);
    m_slept += std::chrono::milliseconds(sqlite3_sleep(static_cast<int>(wanted.count())));
    return true;
}
