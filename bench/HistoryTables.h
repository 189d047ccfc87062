#pragma once

#include <string>

/// Locations of the files, and amounts to measure.
struct HistorySetting
{
    std::string memoryFolder;
    std::string diskFolder;
    std::string tool; ///< path of `firaim`; when empty, its measurements are left out
    unsigned int rounds;
    unsigned int calls;        ///< CPU-bound calls in a turn
    unsigned int durableCalls; ///< calls in a turn that wait for the disk, for each thread
    unsigned int keptRows;     ///< rows that a recorder with retention keeps
    unsigned int filledRows;   ///< rows in its file before the measurement
    unsigned int readRows;
    unsigned int fewRows;
    unsigned int manyRows;
    unsigned int importedLines; ///< for each of several importers
    unsigned int importedLinesByOne;
    unsigned int callsBesideImporters;
    unsigned int countedFaults; ///< recorded durably, to count what is written
};

/// Each function prints its lines of the table.
void compareRecording(HistorySetting const& setting);
void compareJournals(HistorySetting const& setting);
void compareThreads(HistorySetting const& setting);
void compareRetention(HistorySetting const& setting);
void compareReading(HistorySetting const& setting);
void measureOpening(HistorySetting const& setting);
void measureRecordingBesideImporters(HistorySetting const& setting);
void compareImport(HistorySetting const& setting);

/// Reads all faults of a file and prints the peak memory of this process, in KiB.
void printReadingPeak(std::string const& path);
