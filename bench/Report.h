#pragma once

#include <string>

/// Where files cost no waiting, so that what is left is the processor's work.
char const* memoryFolder();

/// System, processors, SQLite and compiler, in one line.
std::string systemText();

/// With a unit that suits it.
std::string timeText(double seconds);
std::string ratioText(double ratio);

/// One line of a table of peers; what does not apply is empty.
struct Comparison
{
    std::string work;
    std::string peer;
    std::string peersValue;
    std::string value;
    std::string ratio;
    std::string target;
};

void printComparisonHead();
void print(Comparison const& line);

/// Prints a line whose values are times; `target` is the largest ratio of the library to its peer, 0 for none.
void printTimes(std::string const& work, std::string const& peer, double peersSeconds, double seconds, double target);
