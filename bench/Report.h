#pragma once

#include <string>

/// A folder in memory: access does not wait for a disk, so only CPU time remains.
char const* memoryFolder();

/// One line that names system, processors, SQLite and compiler.
std::string systemText();

/// The time with a suitable unit.
std::string timeText(double seconds);
std::string ratioText(double ratio);

/// One line of the comparison table; cells that do not apply are empty.
struct Comparison
{
    std::string work;
    std::string baselineName;
    std::string baselineValue;
    std::string value;
    std::string ratio;
    std::string target;
};

void printComparisonHead();
void print(Comparison const& line);

/// Prints a line whose values are times. `target` is the largest allowed ratio of the library to the baseline; 0 means
/// none.
void printTimes(std::string const& work, std::string const& baselineName, double baselineSeconds, double seconds,
                double target);
