// Rescues a database of any bytes with a journal or a log beside it: the rescue ends, leaves the files alone, and puts
// among the faults only rows that the library could have written.

#include "FuzzSupport.h"
#include "RescueInput.h"

#include <tool/process/Problem.h>
#include <tool/rescue/Rescue.h>

#include <filesystem>
#include <map>

namespace
{

std::string damagedFolder;
std::string rescuedFolder;

std::map<std::string, std::string> filesIn(std::string const& folder)
{
    std::map<std::string, std::string> files;
    for (auto const& entry : std::filesystem::directory_iterator(folder))
    {
        files[entry.path().filename().string()] = fuzz::readFile(entry.path().string());
    }
    return files;
}

void clear(std::string const& folder)
{
    for (auto const& entry : std::filesystem::directory_iterator(folder))
    {
        std::filesystem::remove_all(entry.path());
    }
}

std::string count(sqlite3* db, std::string const& rows)
{
    return fuzz::rawRows(db, "SELECT count(*) FROM " + rows).at(0).at(0).value_or("");
}

/// A condition that rows break which the library did not write.
std::string brokenRules()
{
    std::string rules = "Status NOT IN ('ErrorActive', 'ErrorInactive')";
    for (char const* column : {"DateTimeString", "FaultCodeName", "ModuleName", "Parameter", "TimeZone", "Status",
                               "Description", "DiagSignalsDumpFileName", "CfgBackupFile", "SystemDateTimeString"})
    {
        rules += std::string(" OR typeof(") + column + ") <> 'text'";
    }
    for (std::string const column : {"FaultCode", "LoggerUpTime", "LoggerLifeTime", "RdbStartupId"})
    {
        rules += " OR typeof(" + column + ") <> 'integer' OR " + column + " NOT BETWEEN 0 AND 4294967295";
    }
    return rules + " OR typeof(TimeStampUTC) NOT IN ('integer', 'real') OR TimeStampUTC < 0";
}

void examine(std::string const& path, tool::RescueReport const& report)
{
    static std::string const broken = "FdbFaultTbl WHERE " + brokenRules();
    sqlite3* db = nullptr;
    fuzz::require(sqlite3_open(path.c_str(), &db) == SQLITE_OK, "the new file opens");
    fuzz::require(fuzz::rawRows(db, "PRAGMA integrity_check").at(0).at(0) == "ok", "the new file is sound");
    fuzz::require(count(db, "FdbFaultTbl") == std::to_string(report.recovered), "the report counts the faults");
    fuzz::require(count(db, broken) == "0", "each recovered row is a fault");
    if (report.doubtful != 0)
    {
        fuzz::require(count(db, "RescuedDoubtfulTbl") == std::to_string(report.doubtful),
                      "the report counts the doubtful rows");
    }
    fuzz::require(sqlite3_close(db) == SQLITE_OK, "the new file closes");
}

/// Returns false when there is no new file.
bool rescue(tool::RescueRequest const& request)
{
    try
    {
        tool::RescueReport const report = tool::rescueFile(request, [](char const*, double) {});
        bool const isSomething = report.result != tool::RescueReport::NOTHING;
        fuzz::require(isSomething == std::filesystem::exists(request.target), "there is a file if there is a row");
        if (isSomething)
        {
            examine(request.target, report);
        }
        return isSomething;
    }
    catch (tool::Problem const&)
    {
        return false;
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::silenceLog();
    static fuzz::MemoryDir const dir;
    damagedFolder = dir.file("damaged");
    rescuedFolder = dir.file("rescued");
    std::filesystem::create_directory(damagedFolder);
    std::filesystem::create_directory(rescuedFolder);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    RescueInput const input({reinterpret_cast<char const*>(data), size});
    tool::RescueRequest request;
    request.damaged = damagedFolder + "/faults.db";
    request.target = rescuedFolder + "/faults.db";
    request.areFreePagesTaken = size % 2 == 0;
    fuzz::writeFile(request.damaged, input.database);
    if (!input.beside.empty())
    {
        fuzz::writeFile(request.damaged + (input.kind == RescueInput::LOG ? "-wal" : "-journal"), input.beside);
    }
    auto const before = filesIn(damagedFolder);
    bool const isThere = rescue(request);
    fuzz::require(filesIn(damagedFolder) == before, "the damaged files keep their bytes");
    fuzz::require(filesIn(rescuedFolder).size() == (isThere ? 1 : 0), "nothing lies beside the new file");
    clear(damagedFolder);
    clear(rescuedFolder);
    return 0;
}
