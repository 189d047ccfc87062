#include "Rows.h"

#include "Interrupt.h"

#include <algorithm>
#include <vector>

namespace tool
{

namespace
{

/// What is read before the lock is given back: some milliseconds' worth.
constexpr int kRowsInBatch = 1000;
constexpr std::size_t kBytesInBatch = 1 << 20;

/// Decodes the row at which `row` stands into the working record of `tbl`.
template <class T>
T const& decodeRow(SqlTbl<T>& tbl, Statement const& row)
{
    std::vector<char*> cells(tbl.m_columns.size());
    for (std::size_t column = 0; column < cells.size(); ++column)
    {
        auto const number = static_cast<int>(column);
        // The library's decoding takes cells that may be changed, and changes none.
        cells[column] = row.isNull(number) ? nullptr : const_cast<char*>(row.text(number).data());
    }
    tbl.setDatafromSqlResult(cells.data());
    return tbl.m_record;
}

/// What the key of a row is called. Another column of the file may have the name rowid.
std::string keyText(Connection const& connection, tableFormat_t const& format)
{
    std::string const& key = format.columns.front().name;
    Statement isKey =
        connection.prepare("SELECT 1 FROM pragma_table_xinfo(?1) WHERE name = ?2 COLLATE NOCASE AND pk = 1 AND "
                           "type = 'INTEGER' COLLATE NOCASE");
    return isKey.bind(1, format.name).bind(2, key).step() ? format.name + "." + key : "rowid";
}

std::string pagingText(Connection const& connection, tableFormat_t const& format, order_t order)
{
    std::string const key = keyText(connection, format);
    return selectText(connection, format) + " WHERE " + key + " >= ?1 AND " + key + " <= ?2 ORDER BY " + key +
           (order == order_t::NEWEST_FIRST ? " DESC" : "") + " LIMIT " + std::to_string(kRowsInBatch);
}

} // namespace

std::string selectText(Connection const& connection, tableFormat_t const& format)
{
    Statement names = connection.prepare("SELECT 1 FROM pragma_table_xinfo(?1) WHERE name = ?2 COLLATE NOCASE");
    std::string text = "SELECT ";
    for (column_t const& column : format.columns)
    {
        bool const isThere = names.bind(1, format.name).bind(2, column.name).step();
        text += isThere ? format.name + "." + column.name + ", " : "NULL, ";
        names.reset();
    }
    return text + keyText(connection, format) + " FROM " + format.name;
}

RowReader::RowReader(Connection const& connection, tableFormat_t const& format, order_t order, keyRange_t range)
    : m_order(order), m_whole(range), m_left(range),
      m_statement(connection.prepare(pagingText(connection, format, order)))
{
    std::string const key = keyText(connection, format);
    Statement bounds = connection.prepare("SELECT (SELECT min(" + key + ") FROM " + format.name + "), (SELECT max(" +
                                          key + ") FROM " + format.name + ")");
    bounds.step();
    if (bounds.isNull(0))
    {
        m_isDone = true;
        return;
    }
    m_whole.first = std::max(m_whole.first, bounds.integer(0));
    m_whole.last = std::min(m_whole.last, bounds.integer(1));
    m_left = m_whole;
}

void RowReader::read(std::function<bool(Statement&)> const& row, std::function<void()> const& pause)
{
    while (!m_isDone && readBatch(row))
    {
        pause();
        interrupt::check();
    }
    m_isDone = true;
    pause();
}

/// Reads one batch; returns whether there is more to read.
bool RowReader::readBatch(std::function<bool(Statement&)> const& row)
{
    m_statement.bind(1, m_left.first).bind(2, m_left.last);
    std::size_t bytes = 0;
    int rows = 0;
    int const keyColumn = m_statement.columnCount() - 1;
    while (m_statement.step())
    {
        ++rows;
        for (int column = 0; column < keyColumn; ++column)
        {
            bytes += m_statement.size(column);
        }
        std::int64_t const key = m_statement.integer(keyColumn);
        if (!row(m_statement) || !moveOn(key))
        {
            m_statement.reset();
            return false;
        }
        if (bytes > kBytesInBatch)
        {
            m_statement.reset();
            return true;
        }
    }
    return rows == kRowsInBatch;
}

/// Leaves out the row with that key and those before it; returns whether there can be more.
bool RowReader::moveOn(std::int64_t key)
{
    if (key < m_left.first || key > m_left.last)
    {
        return false; // Only a damaged file has such a row here: there would be no end to it.
    }
    if (m_order == order_t::OLDEST_FIRST)
    {
        if (key == m_left.last)
        {
            return false;
        }
        m_left.first = key + 1;
    }
    else
    {
        if (key == m_left.first)
        {
            return false;
        }
        m_left.last = key - 1;
    }
    return true;
}

double RowReader::progress() const
{
    double const whole = static_cast<double>(m_whole.last) - static_cast<double>(m_whole.first) + 1;
    double const left = static_cast<double>(m_left.last) - static_cast<double>(m_left.first) + 1;
    return m_isDone || whole <= 0 ? 1.0 : 1.0 - left / whole;
}

FaultDecoder::FaultDecoder() : m_tbl(faultFormat().name)
{
    m_tbl.init("");
}

Fault const& FaultDecoder::decode(Statement const& row)
{
    // A status that is missing keeps what was there before.
    m_tbl.m_record.Status = FAULT_INACTIVE;
    return decodeRow<Fault>(m_tbl, row);
}

StatisticDecoder::StatisticDecoder() : m_tbl(statisticFormat().name)
{
    m_tbl.init("");
}

FaultStatistic const& StatisticDecoder::decode(Statement const& row)
{
    m_tbl.m_record.FaultActive = FAULT_INACTIVE;
    return decodeRow<FaultStatistic>(m_tbl, row);
}

} // namespace tool
