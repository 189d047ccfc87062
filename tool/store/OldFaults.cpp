#include <tool/store/OldFaults.h>

#include <tool/files/Failures.h>
#include <tool/schema/TableSchema.h>
#include <tool/store/FaultFile.h>

#include <algorithm>
#include <limits>
#include <map>
#include <string_view>
#include <tuple>
#include <vector>

namespace tool
{

namespace
{

/// The SQL function fault_time(stamp): the time of a stamp in milliseconds, NULL when there is none.
void faultTime(sqlite3_context* context, int, sqlite3_value** arguments)
{
    auto const* const unit = static_cast<TimeUnit const*>(sqlite3_user_data(context));
    std::optional<std::int64_t> time;
    if (sqlite3_value_type(arguments[0]) == SQLITE_INTEGER && sqlite3_value_int64(arguments[0]) > 0)
    {
        time = firaim::timeOf(static_cast<unsigned long long>(sqlite3_value_int64(arguments[0])), *unit);
    }
    time ? sqlite3_result_int64(context, *time) : sqlite3_result_null(context);
}

/// The SQL condition for old faults, with one parameter.
std::string oldCondition(Retention const& retention)
{
    // With `keep` 0, every fault is old.
    return !retention.keep ? "fault_time(TimeStampUTC) < ?1" : *retention.keep == 0 ? "?1 NOT NULL" : "EntryId < ?1";
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
std::int64_t limitOf(Retention const& retention, sqlite::Connection const& connection)
{
    if (!retention.keep)
    {
        return retention.since.value();
    }
    sqlite::Statement oldestKept =
        connection.prepare("SELECT EntryId FROM " + faultSchema().name + " ORDER BY EntryId DESC LIMIT 1 OFFSET ?1");
    oldestKept.bind(1, std::max<std::int64_t>(*retention.keep, 1) - 1);
    return oldestKept.step() ? oldestKept.integer(0) : std::numeric_limits<std::int64_t>::min();
}

/// The newest fault of a code, module and parameter tells whether that triple is active. Returns the keys of the newest
/// faults that are needed for this: those that are active, and those without which an older fault that stays would make
/// the triple look active.
///
/// Takes one pass, because the file has no index. Only active triples take memory.
Keys keysNeededForState(Retention const& retention, sqlite::Connection const& connection, std::int64_t limit)
{
    struct Newest
    {
        std::int64_t key = 0;
        bool isRestActive = false; ///< state given by the newest fault that stays
    };
    std::map<std::tuple<std::uint32_t, std::string, std::string>, Newest> states;
    sqlite::Statement row =
        connection.prepare("SELECT EntryId, FaultCode, ModuleName, Parameter, Status, " + oldCondition(retention) +
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

/// The old faults in one file, within one transaction.
class OldFaults
{
public:
    /// `path` and `connection` must outlive this object. A connection can have only one such object at a time.
    OldFaults(std::string const& path, Retention const& retention, sqlite::Connection const& connection)
        : m_path(path), m_oldCondition(oldCondition(retention)), m_unit(retention.unit), m_connection(connection)
    {
        addFunction(connection, "fault_time", faultTime, &m_unit);
        addFunction(connection, "needed_for_state", neededForState, &m_keys);
        m_limit = limitOf(retention, connection);
        m_keys = keysNeededForState(retention, connection, m_limit);
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
    TimeUnit const m_unit;
    sqlite::Connection const& m_connection;
    std::int64_t m_limit = 0;
    Keys m_keys; ///< of the faults that are needed to tell what is active
};

bool faultExists(sqlite::Connection const& connection, std::int64_t key)
{
    sqlite::Statement row = connection.prepare("SELECT 1 FROM " + faultSchema().name + " WHERE EntryId = ?1");
    return row.bind(1, key).step();
}

} // namespace

OldFaultCounts countOldFaults(std::string const& path, Retention const& retention)
{
    static_cast<void>(FaultFile(path)); // Makes sure that it is a fault database.
    sqlite::Connection const connection = openForReading(path);
    return usingSqlite(path,
                       [&]
                       {
                           sqlite::Transaction const transaction(connection, "BEGIN");
                           OldFaults const old(path, retention, connection);
                           return OldFaultCounts{old.countRemovable(), old.countKept()};
                       });
}

OldFaultCounts removeOldFaults(std::string const& path, Retention const& retention)
{
    OldFaultCounts counts;
    std::optional<std::int64_t> removed; // Shows whether the change is stored, because keys are never used again.
    changeFile(
        path,
        [&](sqlite::Connection const& connection)
        {
            OldFaults const old(path, retention, connection);
            counts.kept = old.countKept();
            removed = old.newestRemovable();
            counts.removed = old.remove();
            return counts.removed > 0;
        },
        [&](sqlite::Connection const& connection) { return !faultExists(connection, *removed); });
    return counts;
}

} // namespace tool
