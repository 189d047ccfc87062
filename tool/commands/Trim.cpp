// firaim trim: removes old faults.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/store/FaultFile.h>
#include <tool/store/TableSchema.h>
#include <tool/values/Text.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

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

/// The SQL condition for old faults, with one parameter.
std::string oldCondition(Options const& options)
{
    // With --keep 0 every fault is old.
    return !options.keep ? "fault_time(TimeStampUTC) < ?1" : *options.keep == 0 ? "?1 NOT NULL" : "EntryId < ?1";
}

/// The SQL condition for faults that an active statistic refers to: they stay at any age.
std::string referencedCondition()
{
    return "EntryId IN (SELECT FaultEntryId FROM " + statisticSchema().name +
           " WHERE FaultActive = 'active' AND FaultEntryId NOT NULL)";
}

/// Keys of faults, sorted.
using Keys = std::vector<std::int64_t>;

/// The SQL function needed_for_state(key): whether the fault with that key is needed to tell what is active.
void neededForState(sqlite3_context* context, int, sqlite3_value** arguments)
{
    auto const* const keys = static_cast<Keys const*>(sqlite3_user_data(context));
    sqlite3_result_int(context, std::binary_search(keys->begin(), keys->end(), sqlite3_value_int64(arguments[0])));
}

/// The SQL condition for faults that stay at any age.
std::string neededCondition()
{
    return "(needed_for_state(EntryId) OR " + referencedCondition() + ")";
}

using Function = void (*)(sqlite3_context*, int, sqlite3_value**);

/// Adds a function of one argument, or replaces it; `data` must stay as long as statements call it.
void addFunction(sqlite::Connection const& connection, char const* name, Function function, void const* data)
{
    int const code =
        sqlite3_create_function_v2(connection.get(), name, 1, SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_DIRECTONLY,
                                   const_cast<void*>(data), function, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK)
    {
        throw sqlite::Error(connection.get(), code);
    }
}

/// A text cell as the library decodes it.
std::string decodedText(sqlite::Statement const& row, int column)
{
    if (row.isNull(column))
    {
        return "n/a";
    }
    std::string_view const text = row.text(column);
    return std::string(text.substr(0, text.find('\0')));
}

/// The value of the parameter of `oldCondition`.
std::int64_t limitOf(Options const& options, sqlite::Connection const& connection)
{
    if (!options.keep)
    {
        return requireTime(*options.before, options.style).begin;
    }
    sqlite::Statement oldestKept =
        connection.prepare("SELECT EntryId FROM " + faultSchema().name + " ORDER BY EntryId DESC LIMIT 1 OFFSET ?1");
    oldestKept.bind(1, std::max<std::int64_t>(*options.keep, 1) - 1);
    return oldestKept.step() ? oldestKept.integer(0) : std::numeric_limits<std::int64_t>::min();
}

/// The newest fault of a code, module and parameter tells whether that triple is active. Returns the keys of the newest
/// faults that are needed for this: those that are active, and those without which an older fault that stays would make
/// the triple look active.
///
/// Takes one pass, because the file has no index. Only active triples take memory.
Keys keysNeededForState(Options const& options, sqlite::Connection const& connection, std::int64_t limit)
{
    struct Newest
    {
        std::int64_t key = 0;
        bool isRestActive = false; ///< as the newest one that is not removable tells
    };
    std::map<std::tuple<std::uint32_t, std::string, std::string>, Newest> states;
    sqlite::Statement row =
        connection.prepare("SELECT EntryId, FaultCode, ModuleName, Parameter, Status, " + oldCondition(options) +
                           " AND NOT " + referencedCondition() + " FROM " + faultSchema().name + " ORDER BY EntryId");
    row.bind(1, limit);
    while (row.step())
    {
        bool const isActive = decodedText(row, 4) == "ErrorActive";
        bool const isRemovable = row.integer(5) != 0;
        std::tuple const triple(static_cast<std::uint32_t>(row.integer(1)), decodedText(row, 2), decodedText(row, 3));
        auto state = states.find(triple);
        if (state == states.end())
        {
            if (!isActive)
            {
                continue;
            }
            state = states.emplace(triple, Newest()).first;
        }
        state->second.key = row.integer(0);
        if (!isRemovable)
        {
            state->second.isRestActive = isActive;
        }
        if (!isActive && !state->second.isRestActive)
        {
            states.erase(state);
        }
    }
    Keys keys;
    for (auto const& [triple, newest] : states)
    {
        keys.push_back(newest.key);
    }
    std::sort(keys.begin(), keys.end());
    return keys;
}

unsigned long long count(sqlite::Connection const& connection, std::string const& condition, std::int64_t limit)
{
    sqlite::Statement statement =
        connection.prepare("SELECT count(*) FROM " + faultSchema().name + " WHERE " + condition);
    statement.bind(1, limit).step();
    return static_cast<unsigned long long>(statement.integer(0));
}

/// The numbers of rows that were removed, or would be, and of old rows that stay.
struct Amounts
{
    unsigned long long removed = 0;
    unsigned long long kept = 0;
};

/// The old faults in one file, within one transaction.
class OldFaults
{
public:
    /// Both must outlive this object. A connection can have only one such object at a time.
    OldFaults(Options const& options, sqlite::Connection const& connection)
        : m_path(options.path), m_oldCondition(oldCondition(options)), m_connection(connection)
    {
        addFunction(connection, "fault_time", faultTime, &options.style);
        addFunction(connection, "needed_for_state", neededForState, &m_keys);
        m_limit = limitOf(options, connection);
        m_keys = keysNeededForState(options, connection, m_limit);
    }
    OldFaults(OldFaults const&) = delete;
    OldFaults& operator=(OldFaults const&) = delete;

    unsigned long long countRemovable() const { return count(m_connection, removableCondition(), m_limit); }
    unsigned long long countKept() const
    {
        return count(m_connection, m_oldCondition + " AND " + neededCondition(), m_limit);
    }

    /// The newest removable fault, which other processes would remove last. None if no fault is removable.
    std::optional<std::int64_t> newestRemovable() const
    {
        sqlite::Statement row = m_connection.prepare("SELECT EntryId FROM " + faultSchema().name + " WHERE " +
                                                     removableCondition() + " ORDER BY EntryId DESC LIMIT 1");
        return row.bind(1, m_limit).step() ? std::optional(row.integer(0)) : std::nullopt;
    }

    /// Returns the number of removed faults.
    std::uint64_t remove() const
    {
        return runWithTriggers(m_path, m_connection,
                               "DELETE FROM " + faultSchema().name + " WHERE " + removableCondition(), {m_limit});
    }

private:
    std::string removableCondition() const { return m_oldCondition + " AND NOT " + neededCondition(); }

    std::string const& m_path;
    std::string const m_oldCondition;
    sqlite::Connection const& m_connection;
    std::int64_t m_limit = 0;
    Keys m_keys; ///< of the faults that are needed to tell what is active
};

Amounts dryRun(Options const& options)
{
    static_cast<void>(FaultFile(options.path)); // Makes sure that it is a fault database.
    sqlite::Connection const connection = openForReading(options.path);
    return usingSqlite(options.path,
                       [&]
                       {
                           sqlite::Transaction const transaction(connection, "BEGIN");
                           OldFaults const old(options, connection);
                           return Amounts{old.countRemovable(), old.countKept()};
                       });
}

bool faultExists(sqlite::Connection const& connection, std::int64_t key)
{
    sqlite::Statement row = connection.prepare("SELECT 1 FROM " + faultSchema().name + " WHERE EntryId = ?1");
    return row.bind(1, key).step();
}

Amounts remove(Options const& options)
{
    Amounts amounts;
    std::optional<std::int64_t> removed; // Shows whether the change is stored, because keys are never used again.
    changeFile(
        options.path,
        [&](sqlite::Connection const& connection)
        {
            OldFaults const old(options, connection);
            amounts.kept = old.countKept();
            removed = old.newestRemovable();
            amounts.removed = old.remove();
            return amounts.removed > 0;
        },
        [&](sqlite::Connection const& connection) { return !faultExists(connection, *removed); });
    return amounts;
}

std::string reportOf(Options const& options, Amounts const& amounts)
{
    std::string report = (options.isDryRun ? "would remove " : "removed ") + counted(amounts.removed, "fault");
    if (amounts.kept > 0)
    {
        report += "; " + counted(amounts.kept, "old fault") +
                  (amounts.kept == 1 ? " stays: it tells what is active, or an active statistic refers to it"
                                     : " stay: they tell what is active, or active statistics refer to them");
    }
    return report;
}

/// `done` reports the change that was made before and stays when this fails.
void vacuum(std::string const& path, std::string const& done)
{
    try
    {
        sqlite::Connection const connection = openForChanging(path);
        usingSqlite(path, [&] { connection.run("VACUUM"); });
    }
    catch (...)
    {
        printMessage("this was done all the same: " + done);
        throw;
    }
}

int trim(Options const& options, Output& output)
{
    // Check the options before anything is opened.
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
        output.writeLine(reportOf(options, dryRun(options)));
        return STATUS_DONE;
    }
    std::string const report = reportOf(options, remove(options));
    if (options.isVacuumed)
    {
        vacuum(options.path, report);
    }
    reportDone(report, output);
    return STATUS_DONE;
}

} // namespace

void addTrim(CommandLine& line, Request& request)
{
    Command command = line.add("trim", "Remove old faults that nothing active needs",
                               "  firaim trim faults.db --keep 10000 --dry-run\n"
                               "  firaim trim faults.db --before 2031-01-01 --vacuum");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    Option const keep = command.number("--keep", options->keep, "Keep the newest N faults");
    command.text("--before", options->before, "Remove faults before this time; faults without a time stay", "TIME")
        .exclude(keep);
    command.flag("--vacuum", options->isVacuumed, "Return the freed space to the file system");
    command.flag("--dry-run", options->isDryRun, "Only print how many faults would be removed");
    addTimeStyle(command, options->style);
    runWith(command, request, options, trim);
}

} // namespace tool
