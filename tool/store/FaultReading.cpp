#include <tool/store/FaultReading.h>

#include <limits>
#include <utility>

namespace tool
{

using firaim::FaultQuery;
using firaim::RowCursor;

namespace
{

constexpr RowCursor::KeyRange kNoKeys = {1, 0};

RowCursor::KeyRange rangeOf(FaultQuery const& query)
{
    RowCursor::KeyRange range;
    if (query.afterKey == range.last || query.beforeKey == range.first)
    {
        return kNoKeys;
    }
    range.first = query.afterKey ? *query.afterKey + 1 : range.first;
    range.last = query.beforeKey ? *query.beforeKey - 1 : range.last;
    return range;
}

} // namespace

KeyOrder::KeyOrder(FaultFile& file, TableSchema const& schema, FaultQuery::Order order, RowCursor::KeyRange range)
    : m_file(file), m_schema(schema), m_order(order), m_range(range)
{
    if (order == FaultQuery::OLDEST_FIRST)
    {
        RowCursor newest = file.readerOf(schema).rows(schema.table, FaultQuery::NEWEST_FIRST, range);
        m_range = newest.next() == firaim::HISTORY_OK ? RowCursor::KeyRange{range.first, newest.key()} : kNoKeys;
    }
}

bool KeyOrder::take(std::int64_t key)
{
    bool const isInOrder = !m_last || (m_order == FaultQuery::OLDEST_FIRST ? key > *m_last : key < *m_last);
    m_last = isInOrder ? key : *m_last;
    return isInOrder;
}

bool KeyOrder::isEndEarly() const
{
    bool const isForward = m_order == FaultQuery::OLDEST_FIRST;
    RowCursor::KeyRange left = m_range;
    if (left.first > left.last || m_last == (isForward ? left.last : left.first))
    {
        return false;
    }
    if (m_last)
    {
        (isForward ? left.first : left.last) = isForward ? *m_last + 1 : *m_last - 1;
    }
    // From the other end: from this one, the cursor would meet the same page.
    RowCursor row = m_file.readerOf(m_schema).rows(
        m_schema.table, isForward ? FaultQuery::NEWEST_FIRST : FaultQuery::OLDEST_FIRST, left);
    return row.next() == firaim::HISTORY_OK;
}

FaultReading::FaultReading(FaultFile& file, FaultQuery query)
    : m_file(file), m_query(std::move(query)), m_cursor(file.readerOf(faultSchema()).faults(m_query)),
      m_keys(file, faultSchema(), m_query.order, rangeOf(m_query))
{
}

bool FaultReading::next(Fault& fault)
{
    int result = tryNext(fault);
    if (m_file.readsOnAfter(result, faultSchema()))
    {
        if (m_keys.last())
        {
            (m_query.order == FaultQuery::OLDEST_FIRST ? m_query.afterKey : m_query.beforeKey) = m_keys.last();
        }
        m_cursor = m_file.readerOf(faultSchema()).faults(m_query);
        result = tryNext(fault);
    }
    bool const isFound = m_file.isFound(result);
    if (isFound && m_query.limit)
    {
        --*m_query.limit;
    }
    return isFound;
}

/// As the cursor's function, but HISTORY_DAMAGED for damage that the cursor does not notice.
int FaultReading::tryNext(Fault& fault)
{
    int const result = m_cursor.next(fault);
    if (result == firaim::HISTORY_OK)
    {
        return m_keys.take(m_cursor.key()) ? result : firaim::HISTORY_DAMAGED;
    }
    if (result != firaim::HISTORY_END || m_query.limit == 0U)
    {
        return result;
    }
    // Rows that do not match may follow the last one that does.
    std::optional<std::int64_t> const position = m_cursor.position();
    bool const isInOrder = !position || position == m_keys.last() || m_keys.take(*position);
    return !isInOrder || m_keys.isEndEarly() ? firaim::HISTORY_DAMAGED : result;
}

RowReading::RowReading(FaultFile& file, TableSchema const& schema, RowCursor::KeyRange range)
    : m_file(file), m_schema(schema), m_range(range),
      m_cursor(file.readerOf(schema).rows(schema.table, FaultQuery::OLDEST_FIRST, range)),
      m_keys(file, schema, FaultQuery::OLDEST_FIRST, range)
{
}

bool RowReading::next()
{
    int result = tryNext();
    if (m_file.readsOnAfter(result, m_schema))
    {
        if (m_keys.last())
        {
            m_range.first = *m_keys.last() + 1;
        }
        m_cursor = m_file.readerOf(m_schema).rows(m_schema.table, FaultQuery::OLDEST_FIRST, m_range);
        result = tryNext();
    }
    return m_file.isFound(result);
}

int RowReading::tryNext()
{
    int const result = m_cursor.next();
    bool const isDamaged = (result == firaim::HISTORY_OK && !m_keys.take(m_cursor.key())) ||
                           (result == firaim::HISTORY_END && m_keys.isEndEarly());
    return isDamaged ? firaim::HISTORY_DAMAGED : result;
}

} // namespace tool
