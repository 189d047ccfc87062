// firaim renumber: moves faults and statistics from one start-up id to another.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/schema/TableSchema.h>
#include <tool/store/FaultFile.h>
#include <tool/values/Text.h>

#include <cstdint>
#include <optional>
#include <string>

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
    return faultSchema().columns[FdbSqlFaultTbl::kRdbStartupIdColumn].name;
}

/// Moves the rows of one table; returns how many. Writes no other cell, whatever it holds.
unsigned long long move(sqlite::Connection const& connection, TableSchema const& schema, Options const& options)
{
    return runWithTriggers(options.path, connection,
                           "UPDATE " + schema.name + " SET " + startupColumn() + " = ?2 WHERE " + startupColumn() +
                               " = ?1",
                           {options.from, options.to});
}

/// One of the moved rows: it shows whether the change is stored.
class MovedRow
{
public:
    explicit MovedRow(Options const& options) : m_options(options) {}

    /// Chooses the newest fault to move: retention removes it last, and no other process changes its start-up id.
    /// Without a fault, chooses a statistic, whose start-up id other processes may change.
    void choose(sqlite::Connection const& connection)
    {
        for (TableSchema const* const schema : {&faultSchema(), &statisticSchema()})
        {
            sqlite::Statement row = connection.prepare("SELECT EntryId FROM " + schema->name + " WHERE " +
                                                       startupColumn() + " = ?1 ORDER BY EntryId DESC LIMIT 1");
            if (row.bind(1, static_cast<std::int64_t>(m_options.from)).step())
            {
                m_schema = schema;
                m_key = row.integer(0);
                return;
            }
        }
    }

    /// Whether the row has been moved. Throws a Problem when it has neither start-up id.
    bool isMoved(sqlite::Connection const& connection) const
    {
        sqlite::Statement row =
            connection.prepare("SELECT " + startupColumn() + " FROM " + m_schema->name + " WHERE EntryId = ?1");
        std::optional<std::int64_t> const startup =
            row.bind(1, m_key).step() ? std::optional(row.integer(0)) : std::nullopt;
        if (startup != m_options.from && startup != m_options.to)
        {
            throw Problem(STATUS_BAD_FILE, m_options.path + ": another process has changed or removed the row " +
                                               std::to_string(m_key) + " of " + m_schema->name + " meanwhile");
        }
        return startup == m_options.to;
    }

private:
    Options const& m_options;
    TableSchema const* m_schema = nullptr;
    std::int64_t m_key = 0;
};

int renumber(Options const& options, Output& output)
{
    if (options.from == options.to)
    {
        throw Problem(STATUS_BAD_USAGE, "renumber: --from and --to are the same");
    }
    unsigned long long faults = 0;
    unsigned long long statistics = 0;
    MovedRow row(options);
    changeFile(
        options.path,
        [&](sqlite::Connection const& connection)
        {
            row.choose(connection);
            faults = move(connection, faultSchema(), options);
            statistics = move(connection, statisticSchema(), options);
            return faults + statistics > 0;
        },
        [&](sqlite::Connection const& connection) { return row.isMoved(connection); });
    if (faults + statistics == 0)
    {
        throw Problem(STATUS_NO,
                      options.path + ": no fault or statistic has the start-up id " + std::to_string(options.from));
    }
    reportDone("moved " + counted(faults, "fault") + " and " + counted(statistics, "statistic") + " from start-up id " +
                   std::to_string(options.from) + " to " + std::to_string(options.to),
               output);
    return STATUS_DONE;
}

} // namespace

void addRenumber(CommandLine& line, Request& request)
{
    Command command = line.add("renumber", "Move faults and statistics to another start-up id",
                               "  firaim renumber faults.db --from 7 --to 8");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    command.number("--from", options->from, "Present start-up id").require();
    command.number("--to", options->to, "New start-up id").require();
    runWith(command, request, options, renumber);
}

} // namespace tool
