#pragma once

#include <string>

/// Where the files lie, and how much is measured.
struct HistorySetting
{
    std::string memoryFolder;
    std::string diskFolder;
    std::string tool; ///< `firaim`; empty: what needs it is left out
    unsigned int rounds;
    unsigned int calls;        ///< in a turn, of what takes the processor alone
    unsigned int durableCalls; ///< in a turn, of what waits for a disk, for each thread
    unsigned int keptRows;     ///< by a recorder with retention
    unsigned int filledRows;   ///< before it is measured
    unsigned int readRows;
    unsigned int fewRows;
    unsigned int manyRows;
    unsigned int importedLines; ///< by each of several importers
    unsigned int importedLinesByOne;
    unsigned int callsBesideImporters;
};

/// Each prints its lines of the table.
void compareRecording(HistorySetting const& setting);
void compareThreads(HistorySetting const& setting);
void compareRetention(HistorySetting const& setting);
void compareReading(HistorySetting const& setting);
void measureOpening(HistorySetting const& setting);
void measureBesideImporters(HistorySetting const& setting);
void compareImport(HistorySetting const& setting);

/// Reads all faults of a file and prints the memory of this process at its peak, in KiB.
void printReadingPeak(std::string const& path);
