#include "Turns.h"

#include <algorithm>
#include <numeric>
#include <random>

#include <sys/resource.h>
#include <time.h>

namespace
{

double seconds(timeval const& time)
{
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

} // namespace

double secondsNow(Meter meter)
{
    if (meter == Meter::CHILDREN)
    {
        rusage use = {};
        getrusage(RUSAGE_CHILDREN, &use);
        return seconds(use.ru_utime) + seconds(use.ru_stime);
    }
    timespec time = {};
    clock_gettime(meter == Meter::CPU ? CLOCK_PROCESS_CPUTIME_ID : CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

std::vector<double> medianTurns(Meter meter, unsigned int rounds, std::vector<std::function<void()>> const& sides)
{
    std::mt19937 random(1); // A fixed seed: the same order in each run.
    std::vector<std::size_t> order(sides.size());
    std::iota(order.begin(), order.end(), 0);
    std::vector<std::vector<double>> turns(sides.size());
    for (auto const& side : sides)
    {
        side();
    }
    for (unsigned int round = 0; round < rounds; ++round)
    {
        std::shuffle(order.begin(), order.end(), random);
        for (std::size_t const i : order)
        {
            double const begin = secondsNow(meter);
            sides[i]();
            turns[i].push_back(secondsNow(meter) - begin);
        }
    }
    std::vector<double> medians;
    for (std::vector<double>& times : turns)
    {
        medians.push_back(quantile(times, 0.5));
    }
    return medians;
}

double quantile(std::vector<double>& values, double part)
{
    auto const rank = static_cast<std::size_t>(part * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(rank), values.end());
    return values[rank];
}
