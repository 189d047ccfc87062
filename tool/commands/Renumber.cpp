// firaim renumber: moves faults and statistics from one start-up id to another.

#include "../Command.h"
#include "../Format.h"
#include "../Interrupt.h"
#include "../Recorder.h"
#include "../Text.h"

namespace tool
{

namespace
{

struct Options
{
    std::string path;
    unsigned int from = 0;
    unsigned int to = 0;
};

/// The rows of one table, before and after.
struct Count
{
    std::size_t found = 0;
    std::size_t left = 0;

    std::size_t moved() const { return found - left; }
};

std::string select(tableFormat_t const& format, unsigned int startup)
{
    return "SELECT * FROM " + format.name + " WHERE RdbStartupId = " + std::to_string(startup);
}

template <class Container>
Container read(Recorder& recorder, std::string const& query, int (FaultDb::*reader)(std::string const&, Container&))
{
    Container rows;
    if ((recorder.db().*reader)(query, rows) < 0)
    {
        throw Problem(STATUS_BAD_FILE, "the rows cannot be read; the library's line above says why");
    }
    return rows;
}

/// Whether a text holds what keeps the library from writing it back.
bool hasQuote(std::string const& text)
{
    return text.find('\'') != std::string::npos;
}

/// The columns of a row that keep it where it is.
std::string quotedColumns(std::vector<std::pair<char const*, std::string const*>> const& texts)
{
    std::string columns;
    for (auto const& [name, text] : texts)
    {
        if (hasQuote(*text))
        {
            columns += (columns.empty() ? "" : ", ") + std::string(name);
        }
    }
    return columns;
}

std::string quotedColumns(Fault const& fault)
{
    return quotedColumns({{"DateTimeString", &fault.DateTimeString},
                          {"FaultCodeName", &fault.FaultCodeName},
                          {"ModuleName", &fault.ModuleName},
                          {"Parameter", &fault.Parameter},
                          {"TimeZone", &fault.TimeZone},
                          {"Description", &fault.Description},
                          {"DiagSignalsDumpFileName", &fault.DiagSignalsDumpFileName},
                          {"CfgBackupFile", &fault.CfgBackupFile},
                          {"SystemDateTimeString", &fault.SystemDateTimeString}});
}

std::string quotedColumns(FaultStatistic const& statistic)
{
    return quotedColumns({{"FaultCodeName", &statistic.FaultCodeName},
                          {"TimeZoneFirstOccurred", &statistic.TimeZoneFirstOccurred},
                          {"TimeZoneLastOccurred", &statistic.TimeZoneLastOccurred}});
}

/// Says of every row that is still there why it is.
template <class Container>
void explain(Container const& left, tableFormat_t const& format)
{
    for (auto const& row : left)
    {
        std::string const columns = quotedColumns(row);
        complain(format.name + " row " + std::to_string(row.EntryId) + " stays behind: " +
                 (columns.empty() ? "the library could not write it; its lines above say why"
                                  : "a text with a quote cannot be written back by the library (" + columns + ")"));
    }
}

/// The library writes a statistic back by its code: of two rows with one code, it would write one over the other.
void refuseSharedCodes(Recorder& recorder, Options const& options)
{
    FaultStatisticTbl const shared = read(
        recorder,
        "SELECT * FROM FdbFaultStatisticTbl WHERE FaultCode IN (SELECT FaultCode FROM FdbFaultStatisticTbl GROUP BY "
        "FaultCode HAVING count(*) > 1 AND max(RdbStartupId = " +
            std::to_string(options.from) + ")) LIMIT 1",
        static_cast<int (FaultDb::*)(std::string const&, FaultStatisticTbl&)>(&FaultDb::getFaultStatisticTbl));
    if (!shared.empty())
    {
        throw Problem(STATUS_BAD_FILE, options.path + ": several statistics have the code " +
                                           std::to_string(static_cast<unsigned int>(shared.front().FaultCode)) +
                                           ", and moving one would write it over the others; nothing was moved");
    }
}

int renumber(Options const& options, Output& output)
{
    if (options.from == options.to)
    {
        throw Problem(STATUS_BAD_USAGE, "renumber: --from and --to are the same");
    }
    auto const readFaults = static_cast<int (FaultDb::*)(std::string const&, FaultTbl&)>(&FaultDb::getFaultTbl);
    auto const readStatistics =
        static_cast<int (FaultDb::*)(std::string const&, FaultStatisticTbl&)>(&FaultDb::getFaultStatisticTbl);
    Recorder recorder(options.path, TimeStyle());
    // In one transaction nobody sees half of it, and it takes one commit and not one for each row.
    recorder.begin();
    refuseSharedCodes(recorder, options);
    Count faults;
    Count statistics;
    faults.found = read(recorder, select(faultFormat(), options.from), readFaults).size();
    statistics.found = read(recorder, select(statisticFormat(), options.from), readStatistics).size();
    if (faults.found + statistics.found == 0)
    {
        throw Problem(STATUS_NO, options.path + ": nothing has the start-up id " + std::to_string(options.from));
    }
    static_cast<void>(recorder.db().updateRdbStartup(options.to, options.from)); // What it says does not tell.
    interrupt::check();
    FaultTbl const faultsLeft = read(recorder, select(faultFormat(), options.from), readFaults);
    FaultStatisticTbl const statisticsLeft = read(recorder, select(statisticFormat(), options.from), readStatistics);
    recorder.commit();
    faults.left = faultsLeft.size();
    statistics.left = statisticsLeft.size();
    explain(faultsLeft, faultFormat());
    explain(statisticsLeft, statisticFormat());
    output.writeLine("moved " + counted(faults.moved(), "fault") + " and " + counted(statistics.moved(), "statistic") +
                     " from start-up id " + std::to_string(options.from) + " to " + std::to_string(options.to));
    if (faults.left + statistics.left > 0)
    {
        output.writeLine(counted(faults.left, "fault") + " and " + counted(statistics.left, "statistic") +
                         " stayed behind");
        return STATUS_NO;
    }
    return STATUS_DONE;
}

} // namespace

void addRenumber(CLI::App& app, Request& request)
{
    CLI::App* const command = addCommand(app, "renumber", "Move faults and statistics from one start-up id to another",
                                         "  firaim renumber faults.db --from 7 --to 8");
    auto const options = std::make_shared<Options>();
    addFile(*command, options->path);
    addNumber(*command, "--from", options->from, "The start-up id that they have")->required();
    addNumber(*command, "--to", options->to, "The start-up id that they are to get")->required();
    runWith(*command, request, options, renumber);
}

} // namespace tool
