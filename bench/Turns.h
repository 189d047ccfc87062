#pragma once

#include <functional>
#include <vector>

/// Which time is taken.
enum class Meter
{
    CPU,      ///< of all threads of this process, the system's part included
    CHILDREN, ///< the same of child processes that have ended
    WALL      ///< what the caller waits
};

/// Seconds since an unspecified moment.
double secondsNow(Meter meter);

/// Runs the sides of a comparison in short turns, their order random in each round, so that what disturbs the machine
/// for a while disturbs all of them. Returns the median of the seconds that a turn of each took, in their order. Each
/// has one turn before that counts for nothing: caches are warm then and files have their journals.
std::vector<double> medianTurns(Meter meter, unsigned int rounds, std::vector<std::function<void()>> const& sides);

/// The value below which a part of all lie, 0.99 of them for example; reorders the values, of which there must be one.
double quantile(std::vector<double>& values, double part);
