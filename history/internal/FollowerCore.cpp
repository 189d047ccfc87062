#include <history/internal/FollowerCore.h>

#include <db/internal/ReadOnlyOpening.h>
#include <history/internal/RowHash.h>

#include <algorithm>
#include <utility>

namespace firaim
{

namespace
{

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// Finds changes that the system does not report, such as those of another machine.
constexpr milliseconds kPollInterval(2000);
/// The system reports a change of a write-ahead log before SQLite shows it; slow storage makes this gap longer.
constexpr milliseconds kPollIntervalAfterLogEvent(50);
constexpr milliseconds kLogEventAge(1000);
/// Delay that lets a series of changes be read together.
constexpr milliseconds kEventDelay(20);
/// While a writer is active.
constexpr milliseconds kRetryInterval(20);
/// For each read: long enough to tell a working writer's journal from a crashed writer's.
constexpr milliseconds kBusyTimeout(500);

ReaderOptions withBusyTimeout(ReaderOptions options, milliseconds busyTimeout)
{
    options.busyTimeout = busyTimeout;
    return options;
}

} // namespace

FaultFollower::Core::Core(ReaderCore const& reader, FollowPosition const& position, FaultQuery const& query)
    : m_path(reader.path()), m_options(reader.options()), m_filter(query),
      m_watch(m_path.absolute(), m_options.isCancelled), m_position(position), m_core(std::make_shared<ReaderCore>()),
      m_rows(m_core->rows(HistoryTable::FAULTS, FaultQuery::OLDEST_FIRST))
{
    // Later changes are reported. The first `take` reports why the file cannot be read.
    int const result = reopen(m_options.busyTimeout);
    if (result == HISTORY_OK)
    {
        m_core->connection().waitFor({kBusyTimeout, m_options.isCancelled});
    }
    if (result == HISTORY_NO_FILE)
    {
        m_statistics.setNoFile();
    }
}

int FaultFollower::Core::take(Fault& fault)
{
    for (;;)
    {
        if (std::optional<std::int64_t> const last = lastRemoved())
        {
            return passRemoved(*last);
        }
        if (m_rows.advance())
        {
            m_position.key = m_rows.key();
            m_isHashDue = true;
            Fault const& decoded = m_table.decode(m_rows.row());
            if (m_filter.accepts(decoded))
            {
                fault = decoded;
                return HISTORY_OK;
            }
            continue;
        }
        m_position = position();
        m_isHashDue = false;
        int const result = readBehindPosition();
        m_wasBusy = result == HISTORY_BUSY;
        if (result != HISTORY_OK)
        {
            return result;
        }
    }
}

/// The largest key of the rows that are missing between the position and the next row, or behind the last row; none if
/// no rows are missing. Keys have no gaps of their own: a transaction that is rolled back releases its keys.
std::optional<std::int64_t> FaultFollower::Core::lastRemoved() const
{
    if (!m_position.key)
    {
        return std::nullopt; // The first key of a history is not known.
    }
    RowCursor::State const& rows = *m_rows.m_state;
    if (!rows.hasNext())
    {
        return m_largestKey && *m_largestKey > *m_position.key ? m_largestKey : std::nullopt;
    }
    std::int64_t const next = rows.batch.key(rows.at);
    // In a damaged file, the next key may be smaller.
    return next > *m_position.key && next - 1 > *m_position.key ? std::optional(next - 1) : std::nullopt;
}

/// Moves the position to the removed row with the key `last` and reports the gap.
int FaultFollower::Core::passRemoved(std::int64_t last)
{
    std::int64_t const first = *m_position.key + 1;
    m_position.key = last;
    m_position.rowHash.reset();
    m_isHashDue = false;
    std::string const which = first == last ? "row " + std::to_string(last) + " was removed before it was read"
                                            : "rows " + std::to_string(first) + " to " + std::to_string(last) +
                                                  " were removed before they were read";
    return report(HISTORY_ROWS_REMOVED, m_path.given() + ": " + which);
}

/// Reads the rows behind the position. HISTORY_OK if there is anything to return or report; else as `take`.
int FaultFollower::Core::readBehindPosition()
{
    std::optional<FileIdentity> const identity = identityOf(m_path.absolute());
    bool const isOther = !identity || m_core->identity() != *identity;
    if (isOther)
    {
        m_watch.retarget();
    }
    // A connection that reads a file as immutable sees no change of it.
    bool const isStale =
        m_core->isOpen() && m_core->connection().access() == sqlite::Connection::IMMUTABLE && !m_hasMoreRows;
    if (!m_core->isOpen() || isOther || isStale)
    {
        std::optional<std::int64_t> const comparedVersion = m_comparedVersion;
        int const result = reopen(kBusyTimeout);
        if (result != HISTORY_OK)
        {
            return reportOnce(result, m_core->problem());
        }
        if (isStale && !isOther)
        {
            m_comparedVersion = comparedVersion; // An immutable file has not changed.
        }
    }
    try
    {
        int const result = readRows();
        m_reported = HISTORY_OK;
        return result;
    }
    catch (...)
    {
        m_rows.m_state->restart({}); // These rows were not compared with the position.
        int const result = m_core->fail();
        std::string const problem = m_core->problem();
        if (result != HISTORY_BUSY && result != HISTORY_CANCELLED)
        {
            dropConnection(); // The file was cut off, or its content is being replaced: read it with a new connection.
        }
        return reportOnce(result, problem);
    }
}

int FaultFollower::Core::readRows()
{
    constexpr char kVersion[] = "PRAGMA data_version";
    if (!m_hasMoreRows && m_version == m_core->connection().number(kVersion))
    {
        return HISTORY_END;
    }
    RowCursor::State& rows = *m_rows.m_state;
    // Read the row of the position, the largest key and the new rows in one transaction: nothing can be removed in
    // between.
    sqlite::Transaction transaction(m_core->connection(), "BEGIN");
    std::int64_t const version = m_core->connection().number(kVersion);
    RowCursor::KeyRange range;
    range.first = m_position.key.value_or(range.first);
    rows.restart(range);
    m_hasMoreRows = false;
    m_largestKey.reset();
    try
    {
        rows.fetch();
        m_hasMoreRows = !rows.isDone;
        if (rows.isDone)
        {
            m_largestKey = m_core->largestFaultKey();
        }
    }
    catch (sqlite::Error const&)
    {
        if (rows.batch.size() <= 1)
        {
            throw;
        }
        m_hasMoreRows = true; // Return the rows before the damage first; the next read fails at it.
    }
    int const result = checkContinuity(m_comparedVersion != version);
    m_comparedVersion = version;
    m_version = m_hasMoreRows ? std::nullopt : std::optional(version);
    if (result != HISTORY_OK)
    {
        return result;
    }
    return rows.hasNext() || lastRemoved() ? HISTORY_OK : HISTORY_END;
}

/// Checks whether the rows continue from the position, and skips the row that was returned last. HISTORY_OK, or the
/// result to report. `isChanged`: another connection may have written since the last comparison.
int FaultFollower::Core::checkContinuity(bool isChanged)
{
    RowCursor::State& rows = *m_rows.m_state;
    FileIdentity const before = {m_position.device, m_position.inode};
    bool const isKnown = before != FileIdentity();
    bool const isOther = isKnown && before != m_core->identity();
    bool const isRowThere = m_position.key && rows.batch.size() > 0 && rows.batch.key(0) == *m_position.key;
    std::optional<std::uint64_t> hash;
    bool isRowSame = false;
    if (isRowThere)
    {
        RowView const row = rows.batch.row(0);
        hash = occurrenceHashOf(row);
        // Positions of version 1.0.0 have the hash of all cells.
        isRowSame = m_position.rowHash && (hash == m_position.rowHash || hashOf(row) == *m_position.rowHash);
    }
    if (isOther && !isRowSame)
    {
        return startOver("another file has got this name; following that");
    }
    // Keys are never used again. In an unchanged file, another row means damage: starting again would not end.
    bool const isRowAnother = isChanged && isRowThere && !isRowSame && (m_position.rowHash || isKnown);
    if (isRowAnother || (m_position.key && !isRowSame && m_core->largestFaultKey() < *m_position.key))
    {
        return startOver("its content was replaced; following that");
    }
    m_position.device = m_core->identity().device;
    m_position.inode = m_core->identity().inode;
    rows.at = isRowThere ? 1 : 0;
    if (!m_position.key && !rows.hasNext())
    {
        m_position.key = m_largestKey; // There is no row yet, but the next key is known.
    }
    bool const isRowLost = m_position.key && m_position.rowHash && !isRowSame;
    m_position.rowHash = hash;
    if (!isRowLost)
    {
        return HISTORY_OK;
    }
    if (std::optional<std::int64_t> const last = lastRemoved())
    {
        return passRemoved(*last); // Report both together.
    }
    return report(HISTORY_ROWS_REMOVED, m_path.given() + ": row " + std::to_string(*m_position.key) +
                                            ", behind which it was " +
                                            "followed, is gone; rows behind it may have been removed as well");
}

int FaultFollower::Core::startOver(std::string const& reason)
{
    m_position = FollowPosition();
    m_position.device = m_core->identity().device;
    m_position.inode = m_core->identity().inode;
    m_rows.m_state->restart({});
    m_hasMoreRows = true;
    m_statistics.clear();
    return report(HISTORY_FILE_REPLACED, m_path.given() + ": " + reason);
}

int FaultFollower::Core::reopen(milliseconds busyTimeout)
{
    dropConnection();
    auto core = std::make_shared<ReaderCore>(m_path, withBusyTimeout(m_options, busyTimeout));
    int const result = core->open();
    m_core = core;
    if (result == HISTORY_OK)
    {
        m_rows = m_core->rows(HistoryTable::FAULTS, FaultQuery::OLDEST_FIRST);
        m_statistics.readFirst(*m_core);
    }
    return result;
}

void FaultFollower::Core::dropConnection()
{
    m_core = std::make_shared<ReaderCore>();
    m_rows = m_core->rows(HistoryTable::FAULTS, FaultQuery::OLDEST_FIRST);
    m_version.reset();
    m_comparedVersion.reset();
    m_statistics.forgetVersion();
}

int FaultFollower::Core::report(int result, std::string const& problem)
{
    m_problem = problem;
    return result;
}

/// As `report`, unless the same was reported last. HISTORY_BUSY and HISTORY_CANCELLED are passing and reported every
/// time.
int FaultFollower::Core::reportOnce(int result, std::string const& problem)
{
    if (result == HISTORY_BUSY || result == HISTORY_CANCELLED)
    {
        return report(result, problem);
    }
    if (result == m_reported && problem == m_problem)
    {
        return HISTORY_END;
    }
    m_reported = result;
    return report(result, problem);
}

int FaultFollower::Core::takeStatistic(FaultStatistic& statistic)
{
    if (m_statistics.isEmpty() && m_core->isOpen())
    {
        int const result = m_statistics.compare(*m_core);
        if (result != HISTORY_OK)
        {
            return report(result, m_core->problem());
        }
    }
    if (m_statistics.isEmpty())
    {
        return HISTORY_END;
    }
    m_statistics.pop(statistic);
    return HISTORY_OK;
}

bool FaultFollower::Core::hasMore() const
{
    // The file was never read, and no known problem prevents it.
    bool const isNew = !m_version && m_reported == HISTORY_OK && !m_wasBusy;
    return m_rows.m_state->hasNext() || lastRemoved() || !m_statistics.isEmpty() || m_hasMoreRows || isNew;
}

bool FaultFollower::Core::waitForChange(milliseconds longest)
{
    if (m_wasBusy)
    {
        m_watch.pause(std::min(longest, kRetryInterval));
        return true;
    }
    bool const isLogActive = steady_clock::now() - m_lastEvent < kLogEventAge;
    if (!m_watch.wait(std::min(longest, isLogActive ? kPollIntervalAfterLogEvent : kPollInterval)))
    {
        return false;
    }
    if (m_core->isOpen() && readOnlyOpening::isInWalMode(m_core->connection()))
    {
        m_lastEvent = steady_clock::now();
    }
    m_watch.pause(std::min(longest, kEventDelay));
    return true;
}

FollowPosition FaultFollower::Core::position() const
{
    FollowPosition position = m_position;
    if (m_isHashDue)
    {
        position.rowHash = occurrenceHashOf(m_rows.row());
    }
    return position;
}

} // namespace firaim
