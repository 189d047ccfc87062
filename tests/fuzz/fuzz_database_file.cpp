// Opens a database file of any bytes, then calls every read, both counts and the renumbering of a start-up id.

#include "FuzzSupport.h"

#include <fdb/FaultDb.h>

#include <memory>

namespace
{

std::string path;

bool isReadResult(int result)
{
    return result >= 0 || result == RESULT_FAILED;
}

bool isResult(int result)
{
    return result == RESULT_OK || result == RESULT_FAILED;
}

void readTables(FaultDb& db)
{
    FdbVersion version;
    FdbVersionTbl versions;
    FaultTbl faults;
    FaultStatisticTbl statistics;
    fuzz::require(isResult(db.getFormatVersion(version)), "getFormatVersion gives a documented code");
    fuzz::require(isReadResult(db.getVersionTbl("SELECT * FROM FdbVersionTbl", versions)),
                  "getVersionTbl gives a documented code");
    int const faultCount = db.getFaultTbl(faults);
    fuzz::require(faultCount == RESULT_FAILED || faultCount == static_cast<int>(faults.size()),
                  "getFaultTbl gives a documented code");
    int const statisticCount = db.getFaultStatisticTbl(statistics);
    fuzz::require(statisticCount == RESULT_FAILED || statisticCount == static_cast<int>(statistics.size()),
                  "getFaultStatisticTbl gives a documented code");
    fuzz::require(isReadResult(db.getFaultTbl("SELECT * FROM FdbFaultTbl ORDER BY FaultCode DESC", faults)),
                  "getFaultTbl of a query gives a documented code");
    fuzz::require(isReadResult(db.getFaultStatisticTblErrorActive(statistics)),
                  "getFaultStatisticTblErrorActive gives a documented code");
}

void readSingly(FaultDb& db)
{
    Fault fault;
    FaultStatistic statistic;
    unsigned short count = 0;
    fuzz::require(isResult(db.getFaultById(fault, 1)), "getFaultById gives a documented code");
    fuzz::require(isResult(db.getFaultStatisticForFC(statistic, 1001)),
                  "getFaultStatisticForFC gives a documented code");
    fuzz::require(isResult(db.getFaultStatisticTblErrorNr(count)),
                  "getFaultStatisticTblErrorNr gives a documented code");
    fuzz::require(isResult(db.getFaultStatisticTblErrorActiveNr(count)),
                  "getFaultStatisticTblErrorActiveNr gives a documented code");
}

void use(FaultDb& db)
{
    readTables(db);
    readSingly(db);
    fuzz::require(db.updateRdbStartup(8, 7) == RESULT_OK, "updateRdbStartup succeeds even if rows cannot be updated");
    readTables(db);
    fuzz::require(db.closeDb() == RESULT_OK, "the file can be closed");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::silenceLog();
    static fuzz::MemoryDir const dir;
    path = dir.file("faults.db");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::string_view const bytes(reinterpret_cast<char const*>(data), size);
    fuzz::writeFile(path, bytes);
    FaultDb db; // Use a new object for each input, as after a refused file the facade stays open by name.
    int result = db.openDb(path, false);
    if (result == RESULT_VERSION_MISMATCH)
    {
        fuzz::require(fuzz::readFile(path) == bytes, "a file of another version keeps its bytes");
        result = db.openDb(path, true);
        fuzz::require(result == RESULT_OK, "a file of another version opens in compatible mode");
    }
    fuzz::require(isResult(result), "openDb gives a documented code");
    if (result == RESULT_OK)
    {
        use(db);
    }
    else
    {
        fuzz::require(fuzz::readFile(path) == bytes, "a refused file keeps its bytes");
    }
    fuzz::removeDatabase(path);
    return 0;
}
