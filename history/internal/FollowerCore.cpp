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

/// For changes that the system does not tell of.
constexpr milliseconds kPollInterval(2000);
/// With a write-ahead log the system tells of a change before SQLite shows it: as late as the storage is slow.
constexpr milliseconds kRestlessInterval(50);
constexpr milliseconds kRestlessness(1000);
/// Many changes in a row are looked at together.
constexpr milliseconds kGathering(20);
/// While a writer is at work.
constexpr milliseconds kRetry(20);
/// For a lock at each look: long enough to tell a working writer's journal from a crashed one's.
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
    // Later changes are told. The first look says why a file cannot be read.
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
        int const result = look();
        m_wasBusy = result == HISTORY_BUSY;
        if (result != HISTORY_OK)
        {
            return result;
        }
    }
}

/// The largest key of the rows that are missing between the position and the next row, or behind the last row; none
/// unless some are. Keys have no gaps of their own: a transaction that is rolled back gives its keys back.
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

/// Moves the position on to the removed row with the key `last`, and tells of what is passed.
int FaultFollower::Core::passRemoved(std::int64_t last)
{
    std::int64_t const first = *m_position.key + 1;
    m_position.key = last;
    m_position.rowHash.reset();
    m_isHashDue = false;
    std::string const which = first == last ? "row " + std::to_string(last) + " was removed before it was read"
                                            : "rows " + std::to_string(first) + " to " + std::to_string(last) +
                                                  " were removed before they were read";
    return tell(HISTORY_ROWS_REMOVED, m_path.given() + ": " + which);
}

/// Reads the rows behind the position. HISTORY_OK when there is anything to give or to tell; else as `take`.
int FaultFollower::Core::look()
{
    std::optional<FileIdentity> const identity = identityOf(m_path.absolute());
    bool const isOther = !identity || m_core->identity() != *identity;
    if (isOther)
    {
        m_watch.retarget();
    }
    // A connection that reads a file as immutable sees no change in it.
    bool const isStale =
        m_core->isOpen() && m_core->connection().access() == sqlite::Connection::IMMUTABLE && !m_isMore;
    if (!m_core->isOpen() || isOther || isStale)
    {
        std::optional<std::int64_t> const comparedVersion = m_comparedVersion;
        int const result = reopen(kBusyTimeout);
        if (result != HISTORY_OK)
        {
            return tellOnce(result, m_core->problem());
        }
        if (isStale && !isOther)
        {
            m_comparedVersion = comparedVersion; // A file that cannot change is what it was.
        }
    }
    try
    {
        int const result = lookClosely();
        m_told = HISTORY_OK;
        return result;
    }
    catch (...)
    {
        m_rows.m_state->restart({}); // These rows were not compared with the position.
        int const result = m_core->fail();
        std::string const problem = m_core->problem();
        if (result != HISTORY_BUSY && result != HISTORY_CANCELLED)
        {
            drop(); // One was cut off, or the content is being replaced: another connection sees it afresh.
        }
        return tellOnce(result, problem);
    }
}

int FaultFollower::Core::lookClosely()
{
    constexpr char kVersion[] = "PRAGMA data_version";
    if (!m_isMore && m_version == m_core->connection().number(kVersion))
    {
        return HISTORY_END;
    }
    RowCursor::State& rows = *m_rows.m_state;
    // The row of the position, the largest key and the new rows in one moment: nothing can be removed in between.
    sqlite::Transaction transaction(m_core->connection(), "BEGIN");
    std::int64_t const version = m_core->connection().number(kVersion);
    RowCursor::KeyRange range;
    range.first = m_position.key.value_or(range.first);
    rows.restart(range);
    m_isMore = false;
    m_largestKey.reset();
    try
    {
        rows.fetch();
        m_isMore = !rows.isDone;
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
        m_isMore = true; // Rows before the damage are given first; the next look ends at it.
    }
    int const result = compare(m_comparedVersion != version);
    m_comparedVersion = version;
    m_version = m_isMore ? std::nullopt : std::optional(version);
    if (result != HISTORY_OK)
    {
        return result;
    }
    return rows.hasNext() || lastRemoved() ? HISTORY_OK : HISTORY_END;
}

/// Sees whether what was read goes on from the position, and leaves out the row that was given. HISTORY_OK or what has
/// happened instead. `isChanged`: somebody may have written since this was seen last.
int FaultFollower::Core::compare(bool isChanged)
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
        // Positions that version 1.0.0 gave have the hash of all cells.
        isRowSame = m_position.rowHash && (hash == m_position.rowHash || hashOf(row) == *m_position.rowHash);
    }
    if (isOther && !isRowSame)
    {
        return beginAnew("another file has got this name; following that");
    }
    // No key is ever used again. In a file that has not changed, another row is damage: beginning anew would not end.
    bool const isRowAnother = isChanged && isRowThere && !isRowSame && (m_position.rowHash || isKnown);
    if (isRowAnother || (m_position.key && !isRowSame && m_core->largestFaultKey() < *m_position.key))
    {
        return beginAnew("its content was replaced; following that");
    }
    m_position.device = m_core->identity().device;
    m_position.inode = m_core->identity().inode;
    rows.at = isRowThere ? 1 : 0;
    if (!m_position.key && !rows.hasNext())
    {
        m_position.key = m_largestKey; // Without a row, it is known which one comes next.
    }
    bool const isRowLost = m_position.key && m_position.rowHash && !isRowSame;
    m_position.rowHash = hash;
    if (!isRowLost)
    {
        return HISTORY_OK;
    }
    if (std::optional<std::int64_t> const last = lastRemoved())
    {
        return passRemoved(*last); // Told together.
    }
    return tell(HISTORY_ROWS_REMOVED, m_path.given() + ": row " + std::to_string(*m_position.key) +
                                          ", behind which it was " +
                                          "followed, is gone; rows behind it may have been removed as well");
}

int FaultFollower::Core::beginAnew(std::string const& reason)
{
    m_position = FollowPosition();
    m_position.device = m_core->identity().device;
    m_position.inode = m_core->identity().inode;
    m_rows.m_state->restart({});
    m_isMore = true;
    m_statistics.clear();
    return tell(HISTORY_FILE_REPLACED, m_path.given() + ": " + reason);
}

int FaultFollower::Core::reopen(milliseconds busyTimeout)
{
    drop();
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

void FaultFollower::Core::drop()
{
    m_core = std::make_shared<ReaderCore>();
    m_rows = m_core->rows(HistoryTable::FAULTS, FaultQuery::OLDEST_FIRST);
    m_version.reset();
    m_comparedVersion.reset();
    m_statistics.forgetVersion();
}

int FaultFollower::Core::tell(int result, std::string const& problem)
{
    m_problem = problem;
    return result;
}

/// As `tell`, unless it was just that which was told last. A lock and a wish to end pass, and are told every time.
int FaultFollower::Core::tellOnce(int result, std::string const& problem)
{
    if (result == HISTORY_BUSY || result == HISTORY_CANCELLED)
    {
        return tell(result, problem);
    }
    if (result == m_told && problem == m_problem)
    {
        return HISTORY_END;
    }
    m_told = result;
    return tell(result, problem);
}

int FaultFollower::Core::takeStatistic(FaultStatistic& statistic)
{
    if (m_statistics.isEmpty() && m_core->isOpen())
    {
        int const result = m_statistics.compare(*m_core);
        if (result != HISTORY_OK)
        {
            return tell(result, m_core->problem());
        }
    }
    if (m_statistics.isEmpty())
    {
        return HISTORY_END;
    }
    statistic = m_statistics.pop();
    return HISTORY_OK;
}

bool FaultFollower::Core::hasMore() const
{
    // A file that was never looked at, unless something is in the way.
    bool const isNew = !m_version && m_told == HISTORY_OK && !m_wasBusy;
    return m_rows.m_state->hasNext() || lastRemoved() || !m_statistics.isEmpty() || m_isMore || isNew;
}

bool FaultFollower::Core::waitForChange(milliseconds longest)
{
    if (m_wasBusy)
    {
        m_watch.pause(std::min(longest, kRetry));
        return true;
    }
    bool const isRestless = steady_clock::now() - m_lastEvent < kRestlessness;
    if (!m_watch.wait(std::min(longest, isRestless ? kRestlessInterval : kPollInterval)))
    {
        return false;
    }
    if (m_core->isOpen() && readOnlyOpening::isInWalMode(m_core->connection()))
    {
        m_lastEvent = steady_clock::now();
    }
    m_watch.pause(std::min(longest, kGathering));
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
