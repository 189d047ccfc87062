// Durable recording with a write-ahead log and with a rollback journal: time, bytes written, synchronisations.

#include "HistoryBaselines.h"
#include "HistoryTables.h"
#include "Report.h"
#include "Turns.h"

#include <array>
#include <fstream>

#include <sys/syscall.h>
#include <unistd.h>

namespace
{

constexpr unsigned int kRowsBefore = 1000;

unsigned long long synchronisations = 0;

/// The bytes that this process has passed to the system to be written.
unsigned long long bytesWritten()
{
    std::ifstream counts("/proc/self/io");
    std::string name;
    for (unsigned long long value = 0; counts >> name >> value;)
    {
        if (name == "wchar:")
        {
            return value;
        }
    }
    require(false, "/proc/self/io");
    return 0;
}

/// The cost of one fault.
struct Cost
{
    double bytes;
    double synchronisations;
};

/// Records many faults, so that the mean contains the checkpoints.
Cost costOf(RecordingSide& side, unsigned int faults)
{
    unsigned long long const bytesBefore = bytesWritten();
    unsigned long long const synchronisationsBefore = synchronisations;
    side.record(faults);
    return {static_cast<double>(bytesWritten() - bytesBefore) / faults,
            static_cast<double>(synchronisations - synchronisationsBefore) / faults};
}

std::string fixedText(double value, int decimals)
{
    std::array<char, 32> text = {};
    std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
    return text.data();
}

void printCounts(std::string const& what, double baseline, double value, int decimals, std::string const& target)
{
    print({"record with a log, " + what, "rollback journal", fixedText(baseline, decimals), fixedText(value, decimals),
           ratioText(value / baseline), target});
}

} // namespace

// SQLite calls these in place of the system's.
extern "C"
{
    int countFdatasync(int descriptor) __asm__("fdatasync");
    int countFsync(int descriptor) __asm__("fsync");

    int countFdatasync(int descriptor)
    {
        ++synchronisations;
        return static_cast<int>(syscall(SYS_fdatasync, descriptor));
    }

    int countFsync(int descriptor)
    {
        ++synchronisations;
        return static_cast<int>(syscall(SYS_fsync, descriptor));
    }
}

void compareJournals(HistorySetting const& setting)
{
    Folder const folder(setting.diskFolder);
    std::string const journalPath = folder.file("journal.db");
    std::string const logPath = folder.file("log.db");
    createFile(journalPath, kRowsBefore);
    createFile(logPath, kRowsBefore);
    BareConnection(logPath, BareConnection::SQLITE_DEFAULTS).exec("PRAGMA journal_mode=WAL");
    OpenRecorder toJournal(journalPath);
    OpenRecorder toLog(logPath);
    RecorderSide byJournal(toJournal);
    RecorderSide byLog(toLog);
    std::vector<double> const seconds =
        medianTurns(Meter::WALL, setting.rounds,
                    {[&] { byLog.record(setting.durableCalls); }, [&] { byJournal.record(setting.durableCalls); }});
    printTimes("record with a write-ahead log, durable", "rollback journal", seconds[1] / setting.durableCalls,
               seconds[0] / setting.durableCalls, 0.50);
    Cost const journal = costOf(byJournal, setting.countedFaults);
    Cost const log = costOf(byLog, setting.countedFaults);
    printCounts("bytes written", journal.bytes, log.bytes, 0, "0.60");
    printCounts("synchronisations", journal.synchronisations, log.synchronisations, 2, "");
}
