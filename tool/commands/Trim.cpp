// firaim trim: removes old faults.

#include "../Command.h"
#include "../FaultFile.h"
#include "../Text.h"

#include <sqlite3.h>

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
        time = timeOf(static_cast<unsigned long long>(sqlite3_value_int64(arguments[0])), *style);
    }
    time ? sqlite3_result_int64(context, *time) : sqlite3_result_null(context);
}

/// The settings with which a finished transaction lasts, as the library has them.
void makeDurable(Connection const& connection)
{
    connection.run("PRAGMA synchronous=FULL");
    Statement mode = connection.prepare("PRAGMA journal_mode");
    mode.step();
    if (mode.text(0) != "wal")
    {
        connection.run("PRAGMA journal_mode=PERSIST");
    }
    connection.run(kJournalSizeLimit);
}

/// Which faults are old, as a condition with one parameter.
std::string oldFaults(Options const& options)
{
    // Of none that are kept, there is no oldest.
    return !options.keep ? "fault_time(TimeStampUTC) < ?1" : *options.keep == 0 ? "?1 NOT NULL" : "EntryId < ?1";
}

/// What an active statistic refers to stays, however old it is.
constexpr char kReferredTo[] =
    "EntryId IN (SELECT FaultEntryId FROM FdbFaultStatisticTbl WHERE FaultActive = 'active' AND FaultEntryId NOT NULL)";

/// The value of that parameter.
std::int64_t limitOf(Options const& options, Connection const& connection)
{
    if (!options.keep)
    {
        return requireTime(*options.before, options.style).begin;
    }
    Statement oldestKept =
        connection.prepare("SELECT EntryId FROM FdbFaultTbl ORDER BY EntryId DESC LIMIT 1 OFFSET ?1");
    oldestKept.bind(1, std::max<std::int64_t>(*options.keep, 1) - 1);
    return oldestKept.step() ? oldestKept.integer(0) : std::numeric_limits<std::int64_t>::min();
}

std::int64_t count(Connection const& connection, std::string const& condition, std::int64_t limit)
{
    Statement statement = connection.prepare("SELECT count(*) FROM FdbFaultTbl WHERE " + condition);
    statement.bind(1, limit);
    statement.step();
    return statement.integer(0);
}

void report(Options const& options, std::int64_t removed, std::int64_t kept, Output& output)
{
    output.writeLine((options.isDryRun ? "would remove " : "removed ") +
                     counted(static_cast<unsigned long long>(removed), "fault"));
    if (kept > 0)
    {
        output.writeLine(counted(static_cast<unsigned long long>(kept), "old fault") +
                         (kept == 1 ? " stays" : " stay") + ": active statistics refer to " +
                         (kept == 1 ? "it" : "them"));
    }
    output.flush();
}

int trim(Options const& options, Output& output)
{
    // Checked before anything is opened.
    if (!options.keep && !options.before)
    {
        throw Problem(STATUS_BAD_USAGE, "trim: --keep or --before is required");
    }
    TimeStyle style = options.style;
    if (options.before)
    {
        static_cast<void>(requireTime(*options.before, style));
    }
    if (!options.isDryRun)
    {
        requireWritableFaultFile(options.path);
    }
    Connection const connection =
        options.isDryRun ? FaultFile(options.path).takeConnection() : Connection(options.path, Connection::READ_WRITE);
    int const code = sqlite3_create_function_v2(connection.get(), "fault_time", 1,
                                                SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_DIRECTONLY, &style,
                                                faultTime, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK)
    {
        throw SqliteProblem(options.path, connection.get(), code);
    }
    if (!options.isDryRun)
    {
        makeDurable(connection);
    }
    Transaction transaction(connection, options.isDryRun ? "BEGIN" : "BEGIN IMMEDIATE");
    std::int64_t const limit = limitOf(options, connection);
    std::int64_t const kept = count(connection, oldFaults(options) + " AND " + kReferredTo, limit);
    std::string const removed = oldFaults(options) + " AND NOT " + kReferredTo;
    if (options.isDryRun)
    {
        report(options, count(connection, removed, limit), kept, output);
        return STATUS_DONE;
    }
    Statement remove = connection.prepare("DELETE FROM FdbFaultTbl WHERE " + removed);
    remove.bind(1, limit).step();
    std::int64_t const changes = connection.changes();
    transaction.commit();
    report(options, changes, kept, output);
    if (options.isVacuumed)
    {
        connection.run("VACUUM");
    }
    return STATUS_DONE;
}

} // namespace

void addTrim(CLI::App& app, Request& request)
{
    CLI::App* const command = addCommand(app, "trim",
                                         "Remove old faults, but none that an active statistic refers to; keys are "
                                         "never used again",
                                         "  firaim trim faults.db --keep 10000 --dry-run\n"
                                         "  firaim trim faults.db --before 2031-01-01 --vacuum");
    auto const options = std::make_shared<Options>();
    addFile(*command, options->path);
    CLI::Option* const keep = addNumber(*command, "--keep", options->keep, "Keep the newest N");
    command->add_option("--before", options->before, "Remove those before this time; those without a time stay")
        ->excludes(keep)
        ->type_name("TIME");
    command->add_flag("--vacuum", options->isVacuumed, "Give the space that becomes free back to the file system");
    command->add_flag("--dry-run", options->isDryRun, "Only say what would be removed");
    addTimeStyle(*command, options->style);
    runWith(*command, request, options, trim);
}

} // namespace tool
