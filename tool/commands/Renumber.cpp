// firaim renumber: moves faults and statistics from one start-up id to another.

#include "../CellCheck.h"
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

constexpr char kWithStartup[] = " WHERE RdbStartupId = ?1";

std::int64_t count(Recorder const& recorder, tableFormat_t const& format, unsigned int startup)
{
    Statement statement = recorder.prepare("SELECT count(*) FROM " + format.name + kWithStartup);
    statement.bind(1, static_cast<std::int64_t>(startup)).step();
    return statement.integer(0);
}

/// Calls `look` for each row of one start-up id, with its columns in the order of the format.
template <class Look>
void forEachRow(Recorder const& recorder, tableFormat_t const& format, unsigned int startup, Look const& look)
{
    Statement row = recorder.prepare("SELECT * FROM " + format.name + kWithStartup);
    row.bind(1, static_cast<std::int64_t>(startup));
    while (row.step())
    {
        look(row);
    }
}

std::string nameOf(Statement const& row, tableFormat_t const& format)
{
    return format.name + " row " + std::string(row.text(0));
}

/// The library writes whole rows back, as it has read them: what a damaged cell holds would be lost.
void refuseDamaged(Recorder const& recorder, tableFormat_t const& format, Options const& options)
{
    forEachRow(recorder, format, options.from,
               [&](Statement const& row)
               {
                   for (std::size_t column = 0; column < format.columns.size(); ++column)
                   {
                       std::string const problem = cellProblem(row, static_cast<int>(column), format.columns[column]);
                       if (!problem.empty())
                       {
                           throw Problem(STATUS_BAD_FILE, options.path + ": " + nameOf(row, format) + ": " +
                                                              format.columns[column].name + " " + problem +
                                                              "; it would be lost in moving, and nothing was moved");
                       }
                   }
               });
}

/// The library writes a statistic back by its code: of two rows with one code, it would write one over the other.
void refuseSharedCodes(Recorder const& recorder, Options const& options)
{
    Statement shared =
        recorder.prepare("SELECT FaultCode FROM FdbFaultStatisticTbl GROUP BY FaultCode HAVING count(*) > 1 "
                         "AND max(RdbStartupId = ?1)");
    if (shared.bind(1, static_cast<std::int64_t>(options.from)).step())
    {
        throw Problem(STATUS_BAD_FILE, options.path + ": several statistics have the code " +
                                           std::string(shared.text(0)) +
                                           ", and moving one would write it over the others; nothing was moved");
    }
}

/// Says of every row that is still there why it is.
void explain(Recorder const& recorder, tableFormat_t const& format, Options const& options)
{
    forEachRow(recorder, format, options.from,
               [&](Statement const& row)
               {
                   std::string columns;
                   for (std::size_t column = 0; column < format.columns.size(); ++column)
                   {
                       if (row.text(static_cast<int>(column)).find('\'') != std::string_view::npos)
                       {
                           columns += (columns.empty() ? "" : ", ") + format.columns[column].name;
                       }
                   }
                   complain(nameOf(row, format) + " stays behind: " +
                            (columns.empty()
                                 ? "the library could not write it back"
                                 : "a text with a quote cannot be written back by the library (" + columns + ")"));
               });
}

std::string amounts(std::int64_t faults, std::int64_t statistics)
{
    return counted(static_cast<unsigned long long>(faults), "fault") + " and " +
           counted(static_cast<unsigned long long>(statistics), "statistic");
}

int renumber(Options const& options, Output& output)
{
    if (options.from == options.to)
    {
        throw Problem(STATUS_BAD_USAGE, "renumber: --from and --to are the same");
    }
    Recorder recorder(options.path, TimeStyle());
    // In one transaction nobody sees half of it, and it takes one commit and not one for each row.
    recorder.begin();
    std::int64_t const faults = count(recorder, faultFormat(), options.from);
    std::int64_t const statistics = count(recorder, statisticFormat(), options.from);
    if (faults + statistics == 0)
    {
        throw Problem(STATUS_NO, options.path + ": nothing has the start-up id " + std::to_string(options.from));
    }
    refuseSharedCodes(recorder, options);
    refuseDamaged(recorder, faultFormat(), options);
    refuseDamaged(recorder, statisticFormat(), options);
    recorder.endOnSignal();
    // What it returns does not tell whether rows could be written; what is left then does.
    static_cast<void>(recorder.db().updateRdbStartup(options.to, options.from));
    interrupt::check();
    recorder.commit();
    std::int64_t const faultsLeft = count(recorder, faultFormat(), options.from);
    std::int64_t const statisticsLeft = count(recorder, statisticFormat(), options.from);
    output.writeLine("moved " + amounts(faults - faultsLeft, statistics - statisticsLeft) + " from start-up id " +
                     std::to_string(options.from) + " to " + std::to_string(options.to));
    if (faultsLeft + statisticsLeft == 0)
    {
        return STATUS_DONE;
    }
    output.writeLine(amounts(faultsLeft, statisticsLeft) + " stayed behind");
    output.flush();
    explain(recorder, faultFormat(), options);
    explain(recorder, statisticFormat(), options);
    return STATUS_NO;
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
