// Reads the faults of argv[1] repeatedly until standard input ends, and once more after that. Prints the number of
// reads, of failed reads, of rows that were not whole, of reads in which earlier rows were missing, and of rows in the
// last read; or that the file was refused.

#include <fdb/FaultDb.h>
#include <reliability/NumberedFault.h>

#include <iostream>
#include <string>
#include <tuple>

#include <poll.h>
#include <unistd.h>

namespace
{

struct Findings
{
    unsigned int reads = 0;
    unsigned int failures = 0;
    unsigned int halfRows = 0;
    unsigned int lostRows = 0;
    std::size_t rows = 0;
};

auto members(Fault const& f)
{
    return std::tie(f.DateTimeString, f.FaultCode, f.FaultCodeName, f.Parameter, f.TimeStampUTC, f.Status,
                    f.Description, f.DiagSignalsDumpFileName, f.ModuleName, f.TimeZone, f.LoggerUpTime,
                    f.LoggerLifeTime, f.CfgBackupFile, f.RdbStartupId, f.SystemDateTimeString);
}

bool isWhole(Fault const& fault)
{
    return members(fault) == members(numberedFault(fault.LoggerLifeTime, fault.LoggerUpTime));
}

void read(FaultDb& db, Findings& findings)
{
    FaultTbl faults;
    ++findings.reads;
    if (db.getFaultTbl(faults) < 0)
    {
        ++findings.failures;
        return;
    }
    for (Fault const& fault : faults)
    {
        findings.halfRows += isWhole(fault) ? 0 : 1;
    }
    findings.lostRows += faults.size() < findings.rows ? 1 : 0;
    findings.rows = faults.size();
}

bool hasInputEnded()
{
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    return poll(&input, 1, 0) != 0; // Nobody writes to the pipe, so an event means its end.
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        return 2;
    }
    std::streambuf* const output = std::cout.rdbuf(nullptr); // Drop the library's log lines.
    FaultDb& db = *FaultDb::getInstance();
    if (db.openDb(argv[1], false) != RESULT_OK)
    {
        std::cout.rdbuf(output);
        std::cout << "refused" << std::endl;
        return 3;
    }
    Findings findings;
    while (!hasInputEnded())
    {
        read(db, findings);
    }
    read(db, findings);
    std::cout.rdbuf(output);
    std::cout << findings.reads << ' ' << findings.failures << ' ' << findings.halfRows << ' ' << findings.lostRows
              << ' ' << findings.rows << std::endl;
    return db.closeDb();
}
