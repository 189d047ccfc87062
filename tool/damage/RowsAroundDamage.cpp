#include <tool/damage/RowsAroundDamage.h>

#include <tool/process/Interrupt.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace tool
{

namespace
{

constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
/// Rows read under one lock.
constexpr std::int64_t kRowsInBatch = 512;
/// In a table without an end, each of its rows could be followed by damage.
constexpr std::uint64_t kMostTries = 200000;
/// The part of the distance from the damage that is skipped with each try.
constexpr std::int64_t kSkippedPart = 64;

std::string selectOf(sqlite::Connection const& source, TableSchema const& schema)
{
    sqlite::Statement info = source.prepare("SELECT 1 FROM pragma_table_info(?1) WHERE name = ?2 COLLATE NOCASE");
    std::string columns = "rowid";
    for (Column const& column : schema.columns)
    {
        info.reset();
        bool const isThere = info.bind(1, schema.name).bind(2, column.name).step();
        columns += isThere ? ", \"" + column.name + "\"" : ", NULL";
    }
    return "SELECT " + columns + " FROM \"" + schema.name +
           "\" WHERE rowid >= ?1 AND rowid <= ?3 ORDER BY rowid LIMIT ?2";
}

bool isFailureOfMedium(sqlite::Error const& error)
{
    return error.kind() == SQLITE_IOERR;
}

} // namespace

RowsAroundDamage::RowsAroundDamage(sqlite::Connection const& source, TableSchema const& schema,
                                   std::vector<KeyGap> known)
    : m_statement(source.prepare(selectOf(source, schema))), m_known(std::move(known)), m_last(kLargest),
      m_from(kSmallest), m_triesLeft(kMostTries)
{
    m_isAtEnd = !passKnownGap();
}

bool RowsAroundDamage::next()
{
    while (!m_isAtEnd)
    {
        if (nextInRange())
        {
            return true;
        }
        m_isAtEnd = m_last == kLargest || !passKnownGap();
    }
    return false;
}

/// Moves on to the keys behind the next known gap that is not passed yet, or to those before it if there are any.
/// Returns whether there are keys left.
bool RowsAroundDamage::passKnownGap()
{
    m_isRunning = false;
    while (m_knownPassed < m_known.size() && m_known[m_knownPassed].keys.first <= m_from)
    {
        KeyGap const& gap = m_known[m_knownPassed++];
        m_gaps.push_back(gap);
        if (gap.keys.last == kLargest)
        {
            return false;
        }
        m_from = gap.keys.last + 1;
    }
    m_last = m_knownPassed < m_known.size() ? m_known[m_knownPassed].keys.first - 1 : kLargest;
    return true;
}

/// Moves to the next row up to `m_last`; if there is none, behind that key.
bool RowsAroundDamage::nextInRange()
{
    while (m_from <= m_last)
    {
        Outcome const outcome = tryNext();
        if (outcome == ROW)
        {
            m_isAtEnd = key() == kLargest; // Then no key is larger; the row itself is still to be taken.
            m_from = m_isAtEnd ? kLargest : key() + 1;
            return true;
        }
        if (outcome == NO_ROW || !skipDamage())
        {
            break;
        }
    }
    m_from = m_last == kLargest ? kLargest : m_last + 1;
    return false;
}

/// Tries to move to the next row, in this batch or the next one.
RowsAroundDamage::Outcome RowsAroundDamage::tryNext()
{
    if (!m_isRunning)
    {
        return tryFrom(m_from, kRowsInBatch);
    }
    Outcome const outcome = tryStep();
    return outcome == NO_ROW && m_rowsLeft == 0 ? tryFrom(m_from, kRowsInBatch) : outcome;
}

RowsAroundDamage::Outcome RowsAroundDamage::tryFrom(std::int64_t key, std::int64_t rows)
{
    interrupt::throwIfPending();
    m_statement.reset();
    m_statement.bind(1, key).bind(2, rows).bind(3, m_last);
    m_rowsLeft = rows;
    return tryStep();
}

RowsAroundDamage::Outcome RowsAroundDamage::tryStep()
{
    m_isRunning = false;
    try
    {
        if (!m_statement.step())
        {
            return NO_ROW;
        }
    }
    catch (sqlite::Error const& error)
    {
        m_isMedium = isFailureOfMedium(error);
        if (error.kind() != SQLITE_CORRUPT && !m_isMedium)
        {
            throw;
        }
        return UNREADABLE;
    }
    if (key() < m_from)
    {
        m_isMedium = false;
        return UNREADABLE; // A page with keys of another one.
    }
    --m_rowsLeft;
    m_isRunning = true;
    return ROW;
}

/// Finds the next row that can be read and notes the gap before it; returns whether there is one.
bool RowsAroundDamage::skipDamage()
{
    bool const isMedium = m_isMedium;
    std::int64_t const first = m_from;
    std::optional<std::int64_t> const readable = findReadable();
    m_gaps.push_back({{first, readable ? *readable - 1 : m_last}, {}, isMedium});
    m_from = readable.value_or(m_last);
    m_isRunning = false;
    return readable.has_value();
}

std::optional<std::int64_t> RowsAroundDamage::findReadable()
{
    // The library's keys begin with 1. From the smallest number on, the distances would soon pass over all of them.
    std::int64_t const begin = m_from < 0 ? 0 : m_from;
    std::int64_t unreadable = begin;
    for (std::int64_t step = 1; unreadable <= m_last - step && m_triesLeft > 0; --m_triesLeft)
    {
        m_from = unreadable + step;
        if (tryFrom(m_from, 1) != UNREADABLE)
        {
            return firstReadable(unreadable, m_from);
        }
        unreadable = m_from;
        step = std::max<std::int64_t>(1, (unreadable - begin) / kSkippedPart);
    }
    return std::nullopt;
}

/// The smallest readable key between one that is not and one that is.
std::int64_t RowsAroundDamage::firstReadable(std::int64_t unreadable, std::int64_t readable)
{
    while (readable - unreadable > 1)
    {
        m_from = unreadable + (readable - unreadable) / 2;
        (tryFrom(m_from, 1) == UNREADABLE ? unreadable : readable) = m_from;
    }
    return readable;
}

} // namespace tool
