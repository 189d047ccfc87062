#include <history/RowCursor.h>

#include <history/internal/ResetAtEnd.h>
#include <history/internal/RowCursorState.h>

#include <algorithm>

namespace firaim
{

namespace
{

/// The first batch is small, so that a caller who wants few rows does not wait for many.
constexpr std::int64_t kRowsInFirstBatch = 16;
constexpr std::int64_t kMaxRowsInBatch = 512;
constexpr std::size_t kMaxBytesInBatch = 1 << 20;

std::size_t columnCount(ReaderCore& core, HistoryTable table)
{
    switch (table)
    {
    case HistoryTable::FAULTS:
        return core.faults().bound().columnCount();
    case HistoryTable::STATISTICS:
        return core.statistics().bound().columnCount();
    case HistoryTable::VERSIONS:
        break;
    }
    return core.versions().bound().columnCount();
}

} // namespace

RowCursor::State::State(std::shared_ptr<ReaderCore> owner, HistoryTable whose, FaultQuery::Order which, KeyRange range)
    : core(std::move(owner)), table(whose), order(which), whole(range), left(range), rowsInBatch(kRowsInFirstBatch),
      batch(columnCount(*core, table))
{
}

/// Limits the range to the keys that exist now: rows that are added later are not read.
void RowCursor::State::begin()
{
    if (!statement)
    {
        statement = core->prepareRows(table, order);
    }
    sqlite::Statement bounds = core->prepareBounds(table);
    isDone = !bounds.step() || bounds.isNull(0);
    if (!isDone)
    {
        whole.first = std::max(whole.first, bounds.integer(0));
        whole.last = std::min(whole.last, bounds.integer(1));
        isDone = whole.first > whole.last;
    }
    left = whole;
    isBegun = true;
}

void RowCursor::State::restart(KeyRange range)
{
    whole = range;
    left = range;
    isBegun = false;
    isDone = false;
    failure = HISTORY_OK;
    at = 0;
    hasRow = false;
    batch.clear();
}

void RowCursor::State::fetch()
{
    at = 0;
    hasRow = false;
    batch.clear();
    if (!isBegun)
    {
        begin();
    }
    if (isDone)
    {
        return;
    }
    statement.bind(1, left.first).bind(2, left.last).bind(3, rowsInBatch);
    ResetAtEnd const end(statement); // Releases the lock.
    std::int64_t rows = 0;
    while (statement.step())
    {
        ++rows;
        batch.append(statement);
        if (!moveOn(batch.key(batch.size() - 1)))
        {
            isDone = true;
            return;
        }
        if (batch.byteCount() >= kMaxBytesInBatch)
        {
            return;
        }
    }
    isDone = rows < rowsInBatch;
    rowsInBatch = std::min(rowsInBatch * 2, kMaxRowsInBatch);
}

/// Moves the range behind the row with that key; returns whether rows can remain.
bool RowCursor::State::moveOn(std::int64_t key)
{
    if (key < left.first || key > left.last)
    {
        return false; // Only a damaged file has such a row, and it would have no end.
    }
    bool const isForward = order == FaultQuery::OLDEST_FIRST;
    if (key == (isForward ? left.last : left.first))
    {
        return false;
    }
    if (isForward)
    {
        left.first = key + 1;
    }
    else
    {
        left.last = key - 1;
    }
    return true;
}

RowCursor::RowCursor(std::shared_ptr<ReaderCore> core, HistoryTable table, FaultQuery::Order order, KeyRange range)
    : m_state(std::make_unique<State>(std::move(core), table, order, range))
{
}

RowCursor::RowCursor(RowCursor&&) noexcept = default;
RowCursor& RowCursor::operator=(RowCursor&&) noexcept = default;
RowCursor::~RowCursor() = default;

int RowCursor::next()
{
    State& state = *m_state;
    state.hasRow = false;
    if (!state.core->isOpen())
    {
        return state.core->fail(HISTORY_INVALID_STATE, "not open");
    }
    if (!state.hasNext() && state.failure == HISTORY_OK)
    {
        if (state.isDone && state.isBegun)
        {
            return HISTORY_END;
        }
        if (state.core->isCancelled())
        {
            return state.core->fail(HISTORY_CANCELLED, "cancelled");
        }
        try
        {
            state.fetch();
        }
        catch (...)
        {
            state.failure = state.core->fail();
        }
    }
    if (advance())
    {
        return HISTORY_OK;
    }
    if (state.failure == HISTORY_OK)
    {
        return HISTORY_END;
    }
    int const failure = state.failure;
    if (failure != HISTORY_DAMAGED)
    {
        state.failure = HISTORY_OK; // The next call tries again.
    }
    return failure;
}

/// Moves to the next row of the batch; returns whether there is one.
bool RowCursor::advance()
{
    State& state = *m_state;
    state.hasRow = state.hasNext();
    state.at += state.hasRow ? 1 : 0;
    return state.hasRow;
}

RowView RowCursor::row() const
{
    return m_state->batch.row(m_state->at - 1);
}

std::int64_t RowCursor::key() const
{
    return m_state->hasRow ? m_state->batch.key(m_state->at - 1) : 0;
}

std::size_t RowCursor::cellCount() const
{
    return row().count;
}

RowCursor::CellType RowCursor::type(std::size_t cell) const
{
    return row().cells[cell].type;
}

std::int64_t RowCursor::integer(std::size_t cell) const
{
    Cell const& wanted = row().cells[cell];
    return wanted.type == CELL_INTEGER ? wanted.number : 0;
}

double RowCursor::real(std::size_t cell) const
{
    return row().cells[cell].real;
}

std::string_view RowCursor::bytes(std::size_t cell) const
{
    RowView const present = row();
    return present.bytesOf(present.cells[cell]);
}

double RowCursor::progress() const
{
    State const& state = *m_state;
    if (!state.hasRow)
    {
        return state.isDone && !state.hasNext() ? 1.0 : 0.0;
    }
    double const first = static_cast<double>(state.whole.first);
    double const last = static_cast<double>(state.whole.last);
    double const present = static_cast<double>(key());
    double const passed = state.order == FaultQuery::OLDEST_FIRST ? present - first : last - present;
    return std::clamp((passed + 1) / (last - first + 1), 0.0, 1.0);
}

} // namespace firaim
