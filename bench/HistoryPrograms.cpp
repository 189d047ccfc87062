// `firaim record --stdin`: its effect on a recorder in another process, and its cost beside the SQLite shell's import.

#include "ChildProcess.h"
#include "HistoryBaselines.h"
#include "HistoryTables.h"
#include "Report.h"
#include "Turns.h"

#include <filesystem>
#include <fstream>
#include <thread>

#include <unistd.h>

namespace
{

char const* statusText(Fault const& fault)
{
    return fault.Status == FAULT_ACTIVE ? "ErrorActive" : "ErrorInactive";
}

void writeJsonLines(std::string const& path, unsigned int lines)
{
    std::ofstream out(path);
    for (unsigned int seed = 1; seed <= lines; ++seed)
    {
        Fault const f = deviceFault(seed);
        out << R"({"DateTimeString":")" << f.DateTimeString << R"(","FaultCode":)"
            << static_cast<unsigned int>(f.FaultCode) << R"(,"FaultCodeName":")" << f.FaultCodeName
            << R"(","ModuleName":")" << f.ModuleName << R"(","Parameter":")" << f.Parameter << R"(","TimeStampUTC":)"
            << f.TimeStampUTC << R"(,"TimeZone":")" << f.TimeZone << R"(","Status":")" << statusText(f)
            << R"(","Description":")" << f.Description << R"(","DiagSignalsDumpFileName":")"
            << f.DiagSignalsDumpFileName << R"(","LoggerUpTime":)" << f.LoggerUpTime << R"(,"LoggerLifeTime":)"
            << f.LoggerLifeTime << R"(,"CfgBackupFile":")" << f.CfgBackupFile << R"(","RdbStartupId":)"
            << f.RdbStartupId << R"(,"SystemDateTimeString":")" << f.SystemDateTimeString << "\"}\n";
    }
    require(out.flush().good(), "lines for record --stdin");
}

void writeCsv(std::string const& path, unsigned int lines)
{
    std::ofstream out(path);
    for (unsigned int seed = 1; seed <= lines; ++seed)
    {
        Fault const f = deviceFault(seed);
        out << seed << ',' << f.DateTimeString << ',' << static_cast<unsigned int>(f.FaultCode) << ','
            << f.FaultCodeName << ',' << f.ModuleName << ',' << f.Parameter << ',' << f.TimeStampUTC << ','
            << f.TimeZone << ',' << statusText(f) << ',' << f.Description << ',' << f.DiagSignalsDumpFileName << ','
            << f.LoggerUpTime << ',' << f.LoggerLifeTime << ',' << f.CfgBackupFile << ',' << f.RdbStartupId << ','
            << f.SystemDateTimeString << '\n';
    }
    require(out.flush().good(), "lines for .import");
}

bool isOnPath(std::string const& program)
{
    std::string const paths = std::getenv("PATH") != nullptr ? std::getenv("PATH") : "";
    for (std::size_t begin = 0; begin <= paths.size();)
    {
        std::size_t const end = std::min(paths.find(':', begin), paths.size());
        if (access((paths.substr(begin, end - begin) + '/' + program).c_str(), X_OK) == 0)
        {
            return true;
        }
        begin = end + 1;
    }
    return false;
}

/// Replaces the database by one with neither faults nor statistics.
void renew(std::string const& path)
{
    std::filesystem::remove(path);
    std::filesystem::remove(path + "-journal");
    OpenRecorder const creating(path);
}

} // namespace

void measureRecordingBesideImporters(HistorySetting const& setting)
{
    constexpr unsigned int kImporters = 4;
    constexpr std::chrono::milliseconds kPause(50);
    if (setting.tool.empty())
    {
        return;
    }
    Folder const folder(setting.diskFolder);
    std::string const path = folder.file("faults.db");
    std::string const lines = folder.file("lines");
    createFile(path, 0);
    writeJsonLines(lines, setting.importedLines);
    OpenRecorder recorder(path);
    RecorderSide side(recorder);
    std::vector<ChildProcess> importers;
    for (unsigned int i = 0; i < kImporters; ++i)
    {
        importers.emplace_back(setting.tool, std::vector<std::string>{"record", path, "--stdin"}, lines);
    }
    double worst = 0;
    unsigned int beside = 0; // Calls after which an importer still ran.
    for (unsigned int i = 0; i < setting.callsBesideImporters; ++i)
    {
        std::this_thread::sleep_for(kPause);
        double const begin = secondsNow(Meter::WALL);
        side.record();
        worst = std::max(worst, secondsNow(Meter::WALL) - begin);
        bool isBeside = false;
        for (ChildProcess& importer : importers)
        {
            isBeside = isBeside || importer.isRunning();
        }
        beside += isBeside ? 1 : 0;
    }
    unsigned int failed = 0; // On a slow disk an importer may wait for the others longer than its timeout.
    for (ChildProcess& importer : importers)
    {
        failed += importer.wait() ? 0 : 1;
    }
    if (failed > 0)
    {
        std::fprintf(stderr, "%u importers gave up\n", failed);
    }
    print({"record beside four importers, worst call",
           std::to_string(beside) + " of " + std::to_string(setting.callsBesideImporters) + " calls while they ran", "",
           timeText(worst), "", "1 s"});
}

void compareImport(HistorySetting const& setting)
{
    constexpr unsigned int kRounds = 3;
    if (setting.tool.empty() || !isOnPath("sqlite3"))
    {
        return;
    }
    Folder const folder(setting.memoryFolder);
    std::string const path = folder.file("library.db");
    std::string const baselinePath = folder.file("baseline.db");
    std::string const lines = folder.file("lines");
    std::string const csv = folder.file("csv");
    writeJsonLines(lines, setting.importedLinesByOne);
    writeCsv(csv, setting.importedLinesByOne);
    std::vector<double> const cpu = medianTurns(
        Meter::CHILDREN, kRounds,
        {[&]
         {
             renew(path);
             require(ChildProcess(setting.tool, {"record", path, "--stdin"}, lines).wait(), "record --stdin");
         },
         [&]
         {
             renew(baselinePath);
             require(ChildProcess("sqlite3", {baselinePath, ".mode csv", ".import " + csv + " FdbFaultTbl"}).wait(),
                     ".import");
         }});
    printTimes("record --stdin, " + std::to_string(setting.importedLinesByOne) + " lines, CPU",
               "the SQLite shell's .import of CSV", cpu[1], cpu[0], 0);
}
