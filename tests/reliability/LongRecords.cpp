#include "LongRecords.h"

#include <fdb/FaultDb.h>

#include <cstddef>

namespace
{

/// Adds two faults with the keys 1 and 2, and their statistics.
void fillEarlierFile(std::string const& path)
{
    FaultDb db;
    EXPECT_EQ(db.createDb(path, false), 0);
    EXPECT_EQ(db.openDb(path, false), 0);
    for (unsigned int const seed : {1U, 2U})
    {
        Fault fault = longFault(seed);
        EXPECT_EQ(db.insert(fault), 0);
        EXPECT_EQ(db.insert(longStatistic(seed)), 0);
    }
    EXPECT_EQ(db.closeDb(), 0);
}

/// The database and its journal in the middle of a transaction.
EarlierFile makeCrashedFile()
{
    TempDir const dir;
    std::string const path = dir.file("earlier.db");
    fillEarlierFile(path);
    RawDb raw(path);
    raw.exec("PRAGMA journal_mode=PERSIST");
    raw.exec("PRAGMA cache_size=1");
    raw.exec("BEGIN");
    raw.exec("UPDATE FdbFaultTbl SET Description = hex(zeroblob(8000)), Parameter = 'torn'");
    raw.exec("UPDATE FdbFaultStatisticTbl SET FaultCodeName = hex(zeroblob(8000))");
    EarlierFile bytes = {readFile(path), readFile(path + "-journal")};
    raw.exec("ROLLBACK");
    EXPECT_GT(bytes.file.size(), readFile(path).size()) << "nothing was written before the crash";
    return bytes;
}

EarlierFile makeWalFile()
{
    TempDir const dir;
    std::string const path = dir.file("earlier.db");
    fillEarlierFile(path);
    RawDb(path).exec("PRAGMA journal_mode=WAL");
    return {readFile(path), {}};
}

Fault faultOf(RawDb::Row const& row)
{
    auto const number = [&](std::size_t column) { return std::stoull(row[column].value_or("0")); };
    auto const text = [&](std::size_t column) { return row[column].value_or("NULL"); };
    Fault fault;
    fault.EntryId = number(0);
    fault.DateTimeString = text(1);
    fault.FaultCode = static_cast<faultCode_t>(number(2));
    fault.FaultCodeName = text(3);
    fault.ModuleName = text(4);
    fault.Parameter = text(5);
    fault.TimeStampUTC = number(6);
    fault.TimeZone = text(7);
    fault.Status = text(8) == "ErrorActive" ? FAULT_ACTIVE : FAULT_INACTIVE;
    fault.Description = text(9);
    fault.DiagSignalsDumpFileName = text(10);
    fault.LoggerUpTime = static_cast<unsigned int>(number(11));
    fault.LoggerLifeTime = static_cast<unsigned int>(number(12));
    fault.CfgBackupFile = text(13);
    fault.RdbStartupId = static_cast<unsigned int>(number(14));
    fault.SystemDateTimeString = text(15);
    return fault;
}

FaultStatistic statisticOf(RawDb::Row const& row)
{
    auto const number = [&](std::size_t column) { return std::stoull(row[column].value_or("0")); };
    auto const text = [&](std::size_t column) { return row[column].value_or("NULL"); };
    FaultStatistic statistic;
    statistic.EntryId = number(0);
    statistic.FaultCode = static_cast<faultCode_t>(number(1));
    statistic.FaultCodeName = text(2);
    statistic.TimeFirstOccurredUTC = number(3);
    statistic.TimeLastOccurredUTC = number(4);
    statistic.TimeZoneFirstOccurred = text(5);
    statistic.TimeZoneLastOccurred = text(6);
    statistic.OccurenceCnt = static_cast<unsigned short>(number(7));
    statistic.FaultActive = text(8) == "active" ? FAULT_ACTIVE : FAULT_INACTIVE;
    statistic.FaultActiveCycleCnt = static_cast<unsigned short>(number(9));
    statistic.FaultEntryId = number(10);
    statistic.RdbStartupId = static_cast<unsigned int>(number(11));
    return statistic;
}

} // namespace

Fault longFault(unsigned int seed)
{
    Fault fault = makeFault(seed);
    fault.Description = std::string(6000 + seed, static_cast<char>('a' + seed % 26));
    fault.CfgBackupFile = std::string(300, static_cast<char>('A' + seed % 26));
    return fault;
}

FaultStatistic longStatistic(unsigned int seed)
{
    FaultStatistic statistic = makeStatistic(seed);
    statistic.FaultCodeName = std::string(4500 + seed, static_cast<char>('a' + seed % 26));
    statistic.FaultActive = seed % 2 == 1 ? FAULT_ACTIVE : FAULT_INACTIVE;
    return statistic;
}

std::vector<Fault> storedFaults(RawDb& raw)
{
    std::vector<Fault> faults;
    for (RawDb::Row const& row : raw.rows("SELECT * FROM FdbFaultTbl"))
    {
        faults.push_back(faultOf(row));
    }
    return faults;
}

std::vector<FaultStatistic> storedStatistics(RawDb& raw)
{
    std::vector<FaultStatistic> statistics;
    for (RawDb::Row const& row : raw.rows("SELECT * FROM FdbFaultStatisticTbl"))
    {
        statistics.push_back(statisticOf(row));
    }
    return statistics;
}

EarlierFile const& EarlierFile::crashed()
{
    static EarlierFile const file = makeCrashedFile();
    return file;
}

EarlierFile const& EarlierFile::wal()
{
    static EarlierFile const file = makeWalFile();
    return file;
}
