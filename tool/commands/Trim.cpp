// firaim trim: removes old faults.

#include "../Command.h"
#include "../FaultFile.h"
#include "../Format.h"
#include "../Text.h"

#include <algorithm>
#include <limits>

namespace tool
{

namespace
{

struct Options
{
    std::string path;
    std::optional<unsigned int> keep;
    std::optional<std::string> before;
    TimeStyle style;
    bool isVacuumed = false;
    bool isDryRun = false;
};

/// The SQL function fault_time(stamp): the time of a stamp in milliseconds, NULL when there is none.
void faultTime(sqlite3_context* context, int, sqlite3_value** arguments)
{
    auto const* const style = static_cast<TimeStyle const*>(sqlite3_user_data(context));
    std::optional<std::int64_t> time;
    if (sqlite3_value_type(arguments[0]) == SQLITE_INTEGER && sqlite3_value_int64(arguments[0]) > 0)
    {
        time = firaim::timeOf(static_cast<unsigned long long>(sqlite3_value_int64(arguments[0])), style->unit);
    }
    time ? sqlite3_result_int64(context, *time) : sqlite3_result_null(context);
}

/// Which faults are old, as a condition with one parameter.
std::string oldFaults(Options const& options)
{
    // With --keep 0 every fault is old.
    return !options.keep ? "fault_time(TimeStampUTC) < ?1" : *options.keep == 0 ? "?1 NOT NULL" : "EntryId < ?1";
}

/// What an active statistic refers to stays, however old it is.
std::string referredTo()
{
    return "EntryId IN (SELECT FaultEntryId FROM " + statisticFormat().name +
           " WHERE FaultActive = 'active' AND FaultEntryId NOT NULL)";
}

std::string removable(Options const& options)
{
    return oldFaults(options) + " AND NOT " + referredTo();
}

void addFaultTime(sqlite::Connection const& connection, TimeStyle const& style)
{
    int const code = sqlite3_create_function_v2(connection.get(), "fault_time", 1,
                                                SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_DIRECTONLY,
                                                const_cast<TimeStyle*>(&style), faultTime, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK)
    {
        throw sqlite::Error(connection.get(), code);
    }
}

/// The value of that parameter.
std::int64_t limitOf(Options const& options, sqlite::Connection const& connection)
{
    if (!options.keep)
    {
        return requireTime(*options.before, options.style).begin;
    }
    sqlite::Statement oldestKept =
        connection.prepare("SELECT EntryId FROM " + faultFormat().name + " ORDER BY EntryId DESC LIMIT 1 OFFSET ?1");
    oldestKept.bind(1, std::max<std::int64_t>(*options.keep, 1) - 1);
    return oldestKept.step() ? oldestKept.integer(0) : std::numeric_limits<std::int64_t>::min();
}

unsigned long long count(sqlite::Connection const& connection, std::string const& condition, std::int64_t limit)
{
    sqlite::Statement statement =
        connection.prepare("SELECT count(*) FROM " + faultFormat().name + " WHERE " + condition);
    statement.bind(1, limit).step();
    return static_cast<unsigned long long>(statement.integer(0));
}

/// What was removed, or would be, and what stays although it is old.
struct amounts_t
{
    unsigned long long removed = 0;
    unsigned long long kept = 0;
};

amounts_t look(Options const& options, sqlite::Connection const& connection)
{
    addFaultTime(connection, options.style);
    std::int64_t const limit = limitOf(options, connection);
    return {count(connection, removable(options), limit),
            count(connection, oldFaults(options) + " AND " + referredTo(), limit)};
}

amounts_t lookOnly(Options const& options)
{
    static_cast<void>(FaultFile(options.path)); // Makes sure that it is a fault database.
    sqlite::Connection const connection = openForLooking(options.path);
    return usingSqlite(options.path,
                       [&]
                       {
                           sqlite::Transaction const transaction(connection, "BEGIN");
                           return look(options, connection);
                       });
}

amounts_t remove(Options const& options)
{
    amounts_t amounts;
    changeFile(
        options.path,
        [&](sqlite::Connection const& connection)
        {
            addFaultTime(connection, options.style);
            std::int64_t const limit = limitOf(options, connection);
            amounts.kept = count(connection, oldFaults(options) + " AND " + referredTo(), limit);
            sqlite::Statement statement =
                connection.prepare("DELETE FROM " + faultFormat().name + " WHERE " + removable(options));
            statement.bind(1, limit).run();
            amounts.removed = static_cast<unsigned long long>(sqlite3_changes(connection.get()));
            return amounts.removed > 0;
        },
        [&](sqlite::Connection const& connection) { return look(options, connection).removed == 0; });
    return amounts;
}

std::string reportOf(Options const& options, amounts_t const& amounts)
{
    std::string const kept =
        amounts.kept == 0 ? ""
                          : "\n" + counted(amounts.kept, "old fault") + (amounts.kept == 1 ? " stays" : " stay") +
                                ": active statistics refer to " + (amounts.kept == 1 ? "it" : "them");
    return (options.isDryRun ? "would remove " : "removed ") + counted(amounts.removed, "fault") + kept;
}

int trim(Options const& options, Output& output)
{
    // Checked before anything is opened.
    if (!options.keep && !options.before)
    {
        throw Problem(STATUS_BAD_USAGE, "trim: --keep or --before is required");
    }
    if (options.before)
    {
        static_cast<void>(requireTime(*options.before, options.style));
    }
    if (options.isDryRun)
    {
        output.writeLine(reportOf(options, lookOnly(options)));
        return STATUS_DONE;
    }
    reportDone(reportOf(options, remove(options)), output);
    if (options.isVacuumed)
    {
        sqlite::Connection const connection = openForChanging(options.path);
        usingSqlite(options.path, [&] { connection.run("VACUUM"); });
    }
    return STATUS_DONE;
}

} // namespace

void addTrim(CommandLine& line, Request& request)
{
    Command command = line.add("trim",
                               "Remove old faults, but none that an active statistic refers to; keys are "
                               "never used again",
                               "  firaim trim faults.db --keep 10000 --dry-run\n"
                               "  firaim trim faults.db --before 2031-01-01 --vacuum");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    Option const keep = command.number("--keep", options->keep, "Keep the newest N");
    command.text("--before", options->before, "Remove those before this time; those without a time stay", "TIME")
        .exclude(keep);
    command.flag("--vacuum", options->isVacuumed, "Give the space that becomes free back to the file system");
    command.flag("--dry-run", options->isDryRun, "Only say what would be removed");
    addTimeStyle(command, options->style);
    runWith(command, request, options, trim);
}

} // namespace tool
