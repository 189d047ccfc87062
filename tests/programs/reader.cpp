// Reads the faults of argv[1] again and again until standard input ends, and once more then. Says on standard output
// how often it read, how often that failed, how many rows were not whole, how often rows were missing that had been
// there before, and how many rows there are in the end; or that the file was refused.

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

bool isTold()
{
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    return poll(&input, 1, 0) != 0; // Nothing is ever written to it: it has ended.
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        return 2;
    }
    std::streambuf* const output = std::cout.rdbuf(nullptr); // The library's lines are not for the test.
    FaultDb& db = *FaultDb::getInstance();
    if (db.openDb(argv[1], false) != RESULT_OK)
    {
        std::cout.rdbuf(output);
        std::cout << "refused" << std::endl;
        return 3;
    }
    Findings findings;
    while (!isTold())
    {
        read(db, findings);
    }
    read(db, findings);
    std::cout.rdbuf(output);
    std::cout << findings.reads << ' ' << findings.failures << ' ' << findings.halfRows << ' ' << findings.lostRows
              << ' ' << findings.rows << std::endl;
    return db.closeDb();
}
