#include <history/FaultCursor.h>

#include <history/internal/FileIdentity.h>
#include <history/internal/QueryFilter.h>
#include <history/internal/ReaderCore.h>
#include <history/internal/RowHash.h>

#include <utility>

namespace firaim
{

namespace
{

/// No key is in this range.
constexpr RowCursor::KeyRange kNoKeys = {1, 0};

RowCursor::KeyRange rangeOf(FaultQuery const& query)
{
    RowCursor::KeyRange range;
    if (query.afterKey)
    {
        if (*query.afterKey == range.last)
        {
            return kNoKeys;
        }
        range.first = *query.afterKey + 1;
    }
    if (query.beforeKey)
    {
        if (*query.beforeKey == std::numeric_limits<std::int64_t>::min())
        {
            return kNoKeys;
        }
        range.last = *query.beforeKey - 1;
    }
    return range;
}

} // namespace

struct FIRAIM_HIDDEN FaultCursor::State
{
    State(std::shared_ptr<ReaderCore> owner, RowCursor cursor, FaultQuery const& query)
        : core(std::move(owner)), rows(std::move(cursor)), filter(query), limit(query.limit)
    {
    }

    std::shared_ptr<ReaderCore> core;
    RowCursor rows;
    QueryFilter filter;
    FaultTable table;
    std::optional<std::uint64_t> limit; ///< rows still to return
    std::optional<std::int64_t> position;
};

FaultCursor::FaultCursor(std::shared_ptr<ReaderCore> core, FaultQuery const& query)
{
    RowCursor rows(core, HistoryTable::FAULTS, query.order, rangeOf(query));
    m_state = std::make_unique<State>(std::move(core), std::move(rows), query);
}

FaultCursor::FaultCursor(FaultCursor&&) noexcept = default;
FaultCursor& FaultCursor::operator=(FaultCursor&&) noexcept = default;
FaultCursor::~FaultCursor() = default;

int FaultCursor::next(Fault& fault)
{
    State& state = *m_state;
    if (state.limit == 0U && state.core->isOpen())
    {
        return HISTORY_END;
    }
    for (;;)
    {
        int const result = state.rows.next();
        if (result != HISTORY_OK)
        {
            return result;
        }
        state.position = state.rows.key();
        Fault const& decoded = state.table.decode(state.rows.row());
        if (state.filter.accepts(decoded))
        {
            fault = decoded;
            if (state.limit)
            {
                --*state.limit;
            }
            return HISTORY_OK;
        }
    }
}

RowCursor const& FaultCursor::row() const
{
    return m_state->rows;
}

std::optional<std::int64_t> FaultCursor::position() const
{
    return m_state->position;
}

FollowPosition FaultCursor::followPosition() const
{
    FileIdentity const identity = m_state->core->identity();
    return {identity.device, identity.inode, m_state->rows.key(), occurrenceHashOf(m_state->rows.row())};
}

} // namespace firaim
