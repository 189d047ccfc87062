#pragma once

#include <functional>
#include <vector>

/// The clock of a measurement.
enum class Meter
{
    CPU,      ///< CPU time of all threads of this process, user and system
    CHILDREN, ///< CPU time of child processes that have ended, user and system
    WALL      ///< elapsed time
};

/// Seconds since an unspecified moment.
double secondsNow(Meter meter);

/// Runs the sides of a comparison in short turns, in random order in each round, so that a passing disturbance of the
/// machine affects all sides. Returns the median seconds of a turn for each side, in the order of `sides`. Each side
/// first has one turn that is not measured, to warm the caches and create the journals.
std::vector<double> medianTurns(Meter meter, unsigned int rounds, std::vector<std::function<void()>> const& sides);

/// The quantile of the values: with `part` 0.99, 99 % of them lie below it. Reorders `values`, which must not be empty.
double quantile(std::vector<double>& values, double part);
