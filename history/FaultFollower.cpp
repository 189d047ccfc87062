#include <history/FaultFollower.h>

#include <history/internal/FollowerCore.h>

#include <algorithm>

namespace firaim
{

namespace
{

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kLongestWait = std::chrono::hours(24 * 365 * 10);

/// Limits a wait to what the clock can count.
milliseconds clampWait(milliseconds wait)
{
    return std::clamp(wait, milliseconds(0), kLongestWait);
}

} // namespace

FaultFollower::FaultFollower(ReaderCore const& reader, FollowPosition const& position, FaultQuery const& query)
    : m_core(std::make_unique<Core>(reader, position, query))
{
}

FaultFollower::FaultFollower(FaultFollower&&) noexcept = default;
FaultFollower& FaultFollower::operator=(FaultFollower&&) noexcept = default;
FaultFollower::~FaultFollower() = default;

int FaultFollower::next(Fault& fault, milliseconds wait)
{
    steady_clock::time_point const end = steady_clock::now() + clampWait(wait);
    for (;;)
    {
        int const result = m_core->take(fault);
        if (result != HISTORY_END && result != HISTORY_BUSY)
        {
            return result;
        }
        if (m_core->isCancelled())
        {
            return HISTORY_CANCELLED;
        }
        auto const left = std::chrono::ceil<milliseconds>(end - steady_clock::now());
        if (left.count() <= 0)
        {
            return result;
        }
        static_cast<void>(m_core->waitForChange(left)); // `take` checks whether the file has changed.
    }
}

int FaultFollower::wait(milliseconds wait)
{
    steady_clock::time_point const end = steady_clock::now() + clampWait(wait);
    bool const hasMore = m_core->hasMore() || m_core->waitForChange(clampWait(wait));
    if (m_core->isCancelled())
    {
        return HISTORY_CANCELLED;
    }
    return hasMore || steady_clock::now() < end ? HISTORY_OK : HISTORY_END;
}

RowCursor const& FaultFollower::row() const
{
    return m_core->row();
}

int FaultFollower::nextStatistic(FaultStatistic& statistic)
{
    return m_core->takeStatistic(statistic);
}

FollowPosition FaultFollower::position() const
{
    return m_core->position();
}

std::string const& FaultFollower::lastProblem() const
{
    return m_core->problem();
}

} // namespace firaim
