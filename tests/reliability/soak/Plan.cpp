#include "Plan.h"

#include <algorithm>

namespace soak
{

namespace
{

constexpr unsigned int kShortestMs = 1500;
constexpr unsigned int kRangeMs = 2000;
/// The recorder that is killed changes after so many rounds, first and later. The other one lives on, so that a leak
/// shows.
constexpr unsigned int kFirstVictims = 6;
constexpr unsigned int kLaterVictims = 60;

} // namespace

void Plan::add(Round& round, Action::Kind kind, unsigned int fromPercent, unsigned int toPercent, unsigned int worker)
{
    unsigned int const percent = fromPercent + below(toPercent - fromPercent);
    round.actions.push_back({kind, round.lengthMs * percent / 100, worker});
}

Round Plan::next()
{
    unsigned int const number = m_number++;
    Round round;
    round.lengthMs = kShortestMs + below(kRangeMs);
    round.isReopening = number % 4 == 3;
    unsigned int const victim = (number + kLaterVictims - kFirstVictims) / kLaterVictims % kWorkers;
    for (unsigned int kills = below(3); kills > 0; --kills)
    {
        add(round, Action::KILL_RECORDER, 5, 95, victim);
    }
    if (m_canFill && number % 3 == 1)
    {
        add(round, Action::FILL, 10, 25);
        add(round, Action::FREE, 30, 50);
    }
    round.isChanging = number % 2 == 0 && !m_canPull;
    if (number % 2 == 0 && m_canPull)
    {
        add(round, Action::PULL, 55, 80);
    }
    if (number % 3 == 2)
    {
        add(round, Action::KILL_READER, 5, 95);
        add(round, Action::KILL_WATCH, 5, 95);
    }
    std::stable_sort(round.actions.begin(), round.actions.end(),
                     [](Action const& a, Action const& b) { return a.afterMs < b.afterMs; });
    return round;
}

Recording Plan::recording()
{
    Recording recording;
    recording.keepNewest = below(3) == 0 ? 200 + below(1000) : 0;
    recording.stormBurst = below(2) == 0 ? 1 + below(20) : 0;
    return recording;
}

} // namespace soak
