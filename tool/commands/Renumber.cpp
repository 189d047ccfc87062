// firaim renumber: moves faults and statistics from one start-up id to another.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/store/FaultFile.h>
#include <tool/store/Format.h>
#include <tool/values/Text.h>

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

/// The column of both tables that holds the start-up id.
std::string const& startupColumn()
{
    return faultFormat().columns[FdbSqlFaultTbl::kRdbStartupIdColumn].name;
}

/// Moves the rows of one table; returns how many. No other cell of them is touched, whatever it holds.
unsigned long long move(sqlite::Connection const& connection, tableFormat_t const& format, Options const& options)
{
    sqlite::Statement update = connection.prepare("UPDATE " + format.name + " SET " + startupColumn() + " = ?2 WHERE " +
                                                  startupColumn() + " = ?1");
    update.bind(1, static_cast<std::int64_t>(options.from)).bind(2, static_cast<std::int64_t>(options.to)).run();
    return static_cast<unsigned long long>(sqlite3_changes(connection.get()));
}

bool isAnyLeft(sqlite::Connection const& connection, tableFormat_t const& format, Options const& options)
{
    sqlite::Statement row =
        connection.prepare("SELECT 1 FROM " + format.name + " WHERE " + startupColumn() + " = ?1 LIMIT 1");
    return row.bind(1, static_cast<std::int64_t>(options.from)).step();
}

int renumber(Options const& options, Output& output)
{
    if (options.from == options.to)
    {
        throw Problem(STATUS_BAD_USAGE, "renumber: --from and --to are the same");
    }
    unsigned long long faults = 0;
    unsigned long long statistics = 0;
    changeFile(
        options.path,
        [&](sqlite::Connection const& connection)
        {
            faults = move(connection, faultFormat(), options);
            statistics = move(connection, statisticFormat(), options);
            return faults + statistics > 0;
        },
        [&](sqlite::Connection const& connection) {
            return !isAnyLeft(connection, faultFormat(), options) && !isAnyLeft(connection, statisticFormat(), options);
        });
    if (faults + statistics == 0)
    {
        throw Problem(STATUS_NO, options.path + ": nothing has the start-up id " + std::to_string(options.from));
    }
    reportDone("moved " + counted(faults, "fault") + " and " + counted(statistics, "statistic") + " from start-up id " +
                   std::to_string(options.from) + " to " + std::to_string(options.to),
               output);
    return STATUS_DONE;
}

} // namespace

void addRenumber(CommandLine& line, Request& request)
{
    Command command = line.add("renumber", "Move faults and statistics from one start-up id to another",
                               "  firaim renumber faults.db --from 7 --to 8");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    command.number("--from", options->from, "The start-up id that they have").require();
    command.number("--to", options->to, "The start-up id that they are to get").require();
    runWith(command, request, options, renumber);
}

} // namespace tool
