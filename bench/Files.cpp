#include "Files.h"

#include <fdb/FaultDb.h>
#include <fdb/tables/FdbSqlFaultStatisticTbl.h>
#include <fdb/tables/FdbSqlFaultTbl.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace
{

/// Between 5 and 60 characters, of a length that depends on both arguments.
std::string deviceText(char const* words, unsigned int seed)
{
    static std::string const kFiller = " sensor 12 of channel 4 reports a value outside its range";
    std::string const text = std::to_string(10'000 + seed % 10'000) + words + kFiller;
    return text.substr(0, 5 + (seed * 7 + static_cast<unsigned char>(words[0])) % 56);
}

} // namespace

Fault deviceFault(unsigned int seed)
{
    Fault fault;
    fault.DateTimeString = "2026-11-21 10:15:30.123";
    fault.FaultCode = static_cast<faultCode_t>(1 + seed % kStatistics);
    fault.FaultCodeName = "FC_SENSOR_TIMEOUT";
    fault.Parameter = deviceText("p", seed);
    fault.TimeStampUTC = 1'795'000'000'000ULL + seed;
    fault.Status = seed % 3 == 0 ? FAULT_INACTIVE : FAULT_ACTIVE;
    fault.Description = deviceText("d", seed + 3);
    fault.DiagSignalsDumpFileName = "/data/dump/" + std::to_string(100'000 + seed % 100'000) + ".bin";
    fault.ModuleName = deviceText("m", seed + 1).substr(0, 20);
    fault.TimeZone = "Europe/Berlin";
    fault.LoggerUpTime = 3600 + seed;
    fault.LoggerLifeTime = 7'200'000 + seed;
    fault.CfgBackupFile = "/data/cfg/backup.zip";
    fault.RdbStartupId = 1;
    fault.SystemDateTimeString = "2026-11-21T10:15:30+01:00";
    return fault;
}

FaultStatistic deviceStatistic(unsigned int seed)
{
    FaultStatistic statistic;
    statistic.FaultCode = static_cast<faultCode_t>(1 + seed % kStatistics);
    statistic.FaultCodeName = "FC_SENSOR_TIMEOUT";
    statistic.OccurenceCnt = static_cast<unsigned short>(seed);
    statistic.TimeFirstOccurredUTC = 1'795'000'000'000ULL;
    statistic.TimeLastOccurredUTC = 1'795'000'000'000ULL + seed;
    statistic.FaultActive = seed % 4 == 0 ? FAULT_ACTIVE : FAULT_INACTIVE;
    statistic.TimeZoneFirstOccurred = "Europe/Berlin";
    statistic.TimeZoneLastOccurred = "Europe/Berlin";
    statistic.FaultActiveCycleCnt = 3;
    statistic.FaultEntryId = seed;
    statistic.RdbStartupId = 1;
    return statistic;
}

BareConnection::BareConnection(std::string const& path, Settings settings)
{
    require(sqlite3_open(path.c_str(), &m_db) == SQLITE_OK, "sqlite3_open");
    if (settings == LIBRARY_SETTINGS)
    {
        exec("PRAGMA cell_size_check=ON");
        exec("PRAGMA synchronous=FULL");
        exec("PRAGMA journal_mode=PERSIST");
    }
}

BareConnection::~BareConnection()
{
    sqlite3_close(m_db);
}

void BareConnection::exec(std::string const& sql) const
{
    require(sqlite3_exec(m_db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK, sql.c_str());
}

void BareConnection::getTable(std::string const& sql) const
{
    char** cells = nullptr;
    int rows = 0;
    int columns = 0;
    require(sqlite3_get_table(m_db, sql.c_str(), &cells, &rows, &columns, nullptr) == SQLITE_OK, sql.c_str());
    sqlite3_free_table(cells);
}

Folder::Folder(std::string const& parent) : m_path(parent + "/firaim-bench-XXXXXX")
{
    require(mkdtemp(m_path.data()) != nullptr, "a folder for the files");
}

Folder::~Folder()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

void createFile(std::string const& path, unsigned int faults)
{
    require(FaultDb::getInstance()->createDb(path, true) == 0, "createDb");
    FdbSqlFaultTbl faultTbl("FdbFaultTbl");
    FdbSqlFaultStatisticTbl statisticTbl("FdbFaultStatisticTbl");
    faultTbl.init("");
    statisticTbl.init("");
    BareConnection const connection(path, BareConnection::SQLITE_DEFAULTS);
    connection.exec("BEGIN");
    for (unsigned int i = 1; i <= faults; ++i)
    {
        connection.exec(faultTbl.getSqlInsertValuesQuery(deviceFault(i)));
    }
    for (unsigned int i = 1; i <= kStatistics; ++i)
    {
        connection.exec(statisticTbl.getSqlInsertValuesQuery(deviceStatistic(i)));
    }
    connection.exec("COMMIT");
    // Leave a journal beside the file, as on a device: every reader inspects it.
    FaultDb& db = *FaultDb::getInstance();
    require(db.openDb(path, false) == 0 && db.update(deviceStatistic(1)) == 0 && db.closeDb() == 0, "update");
}

std::size_t meanStatementSize()
{
    constexpr unsigned int kSample = 1000;
    FdbSqlFaultTbl tbl("FdbFaultTbl");
    tbl.init("");
    std::size_t size = 0;
    for (unsigned int i = 0; i < kSample; ++i)
    {
        size += tbl.getSqlInsertValuesQuery(deviceFault(i)).size();
    }
    return size / kSample;
}

void require(bool isGood, char const* what)
{
    if (!isGood)
    {
        std::fprintf(stderr, "bench: failed: %s\n", what);
        std::exit(1);
    }
}
