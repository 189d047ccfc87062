#include <history/FaultReader.h>

#include <history/internal/ReaderCore.h>

#include <algorithm>
#include <limits>
#include <map>
#include <utility>

namespace firaim
{

namespace
{

/// Rows counted under one lock: takes some milliseconds.
constexpr std::int64_t kRowsInCount = 20000;

std::uint64_t countRows(ReaderCore const& core, HistoryTable table)
{
    sqlite::Statement statement = core.prepareCount(table);
    std::uint64_t rows = 0;
    std::int64_t first = std::numeric_limits<std::int64_t>::min();
    for (;;)
    {
        statement.bind(1, first).bind(2, kRowsInCount).step();
        std::int64_t const found = statement.integer(0);
        std::int64_t const last = statement.integer(1);
        statement.reset();
        rows += static_cast<std::uint64_t>(found);
        // A smaller key than asked for means a damaged file, which would have no end.
        if (found < kRowsInCount || last < first || last == std::numeric_limits<std::int64_t>::max())
        {
            return rows;
        }
        first = last + 1;
    }
}

/// Calls `visit` with each fault, oldest first. HISTORY_OK or below 0.
template <class Visit>
int visitFaults(FaultReader& reader, Visit const& visit)
{
    FaultQuery query;
    query.order = FaultQuery::OLDEST_FIRST;
    FaultCursor cursor = reader.faults(query);
    Fault fault;
    int result = cursor.next(fault);
    for (; result == HISTORY_OK; result = cursor.next(fault))
    {
        visit(fault);
    }
    return result == HISTORY_END ? HISTORY_OK : result;
}

} // namespace

FaultReader::FaultReader() : m_core(std::make_shared<ReaderCore>()) {}

FaultReader::~FaultReader() = default;

int FaultReader::open(std::string const& path, ReaderOptions const& options)
{
    if (m_core->isOpen())
    {
        return m_core->fail(HISTORY_INVALID_STATE, "open already");
    }
    m_core = std::make_shared<ReaderCore>(path, options);
    return m_core->open();
}

int FaultReader::close()
{
    if (!m_core->isOpen())
    {
        return m_core->fail(HISTORY_INVALID_STATE, "not open");
    }
    m_core = std::make_shared<ReaderCore>();
    return HISTORY_OK;
}

FaultCursor FaultReader::faults(FaultQuery const& query)
{
    return FaultCursor(m_core, query);
}

RowCursor FaultReader::rows(HistoryTable table, FaultQuery::Order order, RowCursor::KeyRange range)
{
    return RowCursor(m_core, table, order, range);
}

int FaultReader::fault(unsigned long long key, Fault& fault)
{
    if (key > static_cast<unsigned long long>(std::numeric_limits<std::int64_t>::max()))
    {
        return m_core->isOpen() ? HISTORY_NOT_FOUND : m_core->fail(HISTORY_INVALID_STATE, "not open");
    }
    auto const wanted = static_cast<std::int64_t>(key);
    RowCursor row = rows(HistoryTable::FAULTS, FaultQuery::OLDEST_FIRST, {wanted, wanted});
    int const result = row.next();
    if (result == HISTORY_OK)
    {
        fault = m_core->faults().decode(row.row());
    }
    return result == HISTORY_END ? HISTORY_NOT_FOUND : result;
}

template <class Visit>
int FaultReader::visitStatistics(Visit const& visit)
{
    RowCursor row = rows(HistoryTable::STATISTICS);
    int result = row.next();
    for (; result == HISTORY_OK; result = row.next())
    {
        if (!visit(m_core->statistics().decode(row.row())))
        {
            return HISTORY_OK;
        }
    }
    return result == HISTORY_END ? HISTORY_OK : result;
}

int FaultReader::statistics(std::vector<FaultStatistic>& statistics)
{
    std::vector<FaultStatistic> found;
    int const result = visitStatistics(
        [&](FaultStatistic const& statistic)
        {
            found.push_back(statistic);
            return true;
        });
    if (result == HISTORY_OK)
    {
        statistics.swap(found);
    }
    return result;
}

int FaultReader::statistic(std::uint32_t code, FaultStatistic& statistic)
{
    bool isFound = false;
    int const result = visitStatistics(
        [&](FaultStatistic const& candidate)
        {
            isFound = static_cast<std::uint32_t>(candidate.FaultCode) == code;
            if (isFound)
            {
                statistic = candidate;
            }
            return !isFound;
        });
    return result == HISTORY_OK && !isFound ? HISTORY_NOT_FOUND : result;
}

int FaultReader::counts(Counts& counts)
{
    Counts found;
    int const result = visitStatistics(
        [&](FaultStatistic const& statistic)
        {
            ++found.statistics;
            found.activeStatistics += statistic.FaultActive == FAULT_ACTIVE ? 1 : 0;
            return true;
        });
    if (result != HISTORY_OK)
    {
        return result;
    }
    try
    {
        found.faults = countRows(*m_core, HistoryTable::FAULTS);
    }
    catch (...)
    {
        return m_core->fail();
    }
    counts = found;
    return HISTORY_OK;
}

int FaultReader::activeNow(std::vector<Fault>& faults)
{
    std::map<std::string, Fault> active; // Key: code, module and parameter.
    std::string triple;
    int const result = visitFaults(*this,
                                   [&](Fault const& fault)
                                   {
                                       // Decoded texts have no zero byte.
                                       triple = std::to_string(static_cast<std::uint32_t>(fault.FaultCode));
                                       triple.append(1, '\0').append(fault.ModuleName);
                                       triple.append(1, '\0').append(fault.Parameter);
                                       if (fault.Status == FAULT_ACTIVE)
                                       {
                                           active[triple] = fault;
                                       }
                                       else
                                       {
                                           active.erase(triple);
                                       }
                                   });
    if (result != HISTORY_OK)
    {
        return result;
    }
    std::multimap<unsigned long long, Fault const*> byKey; // A damaged file may have the same key twice.
    for (auto const& [where, fault] : active)
    {
        byKey.emplace(fault.EntryId, &fault);
    }
    faults.clear();
    for (auto const& [key, fault] : byKey)
    {
        faults.push_back(*fault);
    }
    return HISTORY_OK;
}

int FaultReader::startups(std::vector<Startup>& startups)
{
    std::map<unsigned int, Startup> found;
    int const result = visitFaults(*this,
                                   [&](Fault const& fault)
                                   {
                                       Startup& startup = found[fault.RdbStartupId];
                                       if (startup.faults == 0)
                                       {
                                           startup.startupId = fault.RdbStartupId;
                                           startup.firstKey = fault.EntryId;
                                           startup.firstTime = fault.TimeStampUTC;
                                       }
                                       startup.lastKey = fault.EntryId;
                                       startup.lastTime = fault.TimeStampUTC;
                                       ++startup.faults;
                                   });
    if (result != HISTORY_OK)
    {
        return result;
    }
    startups.clear();
    for (auto const& [id, startup] : found)
    {
        startups.push_back(startup);
    }
    return HISTORY_OK;
}

int FaultReader::formatVersion(std::string& version)
{
    if (!m_core->isOpen())
    {
        return m_core->fail(HISTORY_INVALID_STATE, "not open");
    }
    try
    {
        std::optional<std::string> const found = m_core->formatVersion();
        version = found.value_or(version);
        return found ? HISTORY_OK : HISTORY_NOT_FOUND;
    }
    catch (...)
    {
        return m_core->fail();
    }
}

FaultFollower FaultReader::follow(FollowPosition const& position, FaultQuery const& query)
{
    return FaultFollower(*m_core, position, query);
}

int FaultReader::newestPosition(FollowPosition& position)
{
    if (!m_core->isOpen())
    {
        return m_core->fail(HISTORY_INVALID_STATE, "not open");
    }
    try
    {
        // Read both in one transaction: a fault recorded in between would be taken for a removed one.
        sqlite::Transaction const moment(m_core->connection(), "BEGIN");
        FaultQuery query;
        query.limit = 1;
        FaultCursor newest = faults(query);
        Fault fault;
        int const result = newest.next(fault);
        if (result == HISTORY_OK)
        {
            position = newest.followPosition();
        }
        if (result != HISTORY_END)
        {
            return result;
        }
        // Behind the removed rows, so that a follower can report rows that are removed from now on.
        position = {m_core->identity().device, m_core->identity().inode, m_core->largestFaultKey(), std::nullopt};
        return HISTORY_OK;
    }
    catch (...)
    {
        return m_core->fail();
    }
}

bool FaultReader::isImmutable() const
{
    return m_core->isOpen() && m_core->connection().access() == sqlite::Connection::IMMUTABLE;
}

std::string const& FaultReader::lastProblem() const
{
    return m_core->problem();
}

} // namespace firaim
