// Creates the file argv[1] and calls every operation that writes, to compare builds for different machines byte by
// byte.

#include <fdb/FaultDb.h>

#include <iterator>
#include <limits>
#include <string>

namespace
{

/// More rows than fit into one page.
constexpr unsigned int kRows = 64;
constexpr unsigned int kStartups = 4;

unsigned long long wideNumber(unsigned int row)
{
    constexpr unsigned long long kNumbers[] = {0,           0xffffffff,       0x100000000,
                                               0x100000001, 1772366400000000, std::numeric_limits<long long>::max()};
    return kNumbers[row % std::size(kNumbers)];
}

Fault makeFault(unsigned int row)
{
    Fault fault;
    fault.DateTimeString = "2026-03-01 12:00:" + std::to_string(row);
    fault.FaultCode = static_cast<faultCode_t>(std::numeric_limits<unsigned int>::max() - row);
    fault.FaultCodeName = "code " + std::to_string(row);
    fault.Parameter = (row % 5 == 0 ? "it''s " : "its ") + std::string(row * 5, 'p');
    fault.TimeStampUTC = wideNumber(row);
    fault.Status = row % 2 == 0 ? FAULT_ACTIVE : FAULT_INACTIVE;
    fault.Description = "\xc3\xa4\xff";
    fault.LoggerUpTime = std::numeric_limits<unsigned int>::max();
    fault.LoggerLifeTime = row;
    fault.RdbStartupId = row % kStartups;
    return fault;
}

FaultStatistic makeStatistic(unsigned int row)
{
    FaultStatistic statistic;
    statistic.FaultCode = static_cast<faultCode_t>(row);
    statistic.OccurenceCnt = std::numeric_limits<unsigned short>::max();
    statistic.TimeFirstOccurredUTC = wideNumber(row);
    statistic.TimeLastOccurredUTC = wideNumber(row + 1);
    statistic.FaultActive = row % 2 == 0 ? FAULT_ACTIVE : FAULT_INACTIVE;
    statistic.TimeZoneLastOccurred = "UTC+1";
    statistic.FaultEntryId = wideNumber(row + 2);
    statistic.RdbStartupId = row % kStartups;
    return statistic;
}

bool writeRow(FaultDb& db, unsigned int row)
{
    Fault fault = makeFault(row);
    FaultStatistic statistic = makeStatistic(row);
    if (db.insert(fault) != RESULT_OK || fault.EntryId != row + 1 || db.insert(statistic) != RESULT_OK)
    {
        return false;
    }
    fault.TimeStampUTC = wideNumber(row + 1);
    fault.ModuleName = std::string(row, 'm');
    statistic.OccurenceCnt = static_cast<unsigned short>(row);
    return row % 3 != 0 || (db.update(fault) == RESULT_OK && db.update(statistic) == RESULT_OK);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        return 2;
    }
    FaultDb& db = *FaultDb::getInstance();
    if (db.createDb(argv[1], true) != RESULT_OK || db.openDb(argv[1], false) != RESULT_OK)
    {
        return 3;
    }
    for (unsigned int row = 0; row < kRows; ++row)
    {
        if (!writeRow(db, row))
        {
            return 4;
        }
    }
    FdbVersion version;
    version.Component = "Logger";
    version.Version = "2.1.0";
    if (db.insert(version) != RESULT_OK ||
        db.updateRdbStartup(std::numeric_limits<unsigned int>::max(), 1) != RESULT_OK)
    {
        return 5;
    }
    return db.closeDb();
}
