#pragma once

#include "Format.h"
#include "Sqlite.h"

#include <fdb/FaultDb.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <string>

namespace tool
{

enum class order_t
{
    OLDEST_FIRST,
    NEWEST_FIRST
};

/// The keys of the rows that are wanted, both included.
struct keyRange_t
{
    std::int64_t first = std::numeric_limits<std::int64_t>::min();
    std::int64_t last = std::numeric_limits<std::int64_t>::max();
};

/// Reads the rows of one table in the order of their keys, a few at a time, and holds the file's lock no longer than
/// that takes: whoever records faults meanwhile does not wait for a slow reader of ours. Rows that are added after the
/// beginning are not read.
class RowReader
{
public:
    RowReader(Connection const& connection, tableFormat_t const& format, order_t order, keyRange_t range = {});

    /// Calls `row` for each row, with its columns in the order of the format, until that returns false. Between two
    /// batches, when nothing is locked, calls `pause`, and once more at the end.
    void read(std::function<bool(Statement&)> const& row, std::function<void()> const& pause);

    /// How much of the table has been read, as far as its keys tell, between 0 and 1.
    double progress() const;

private:
    bool readBatch(std::function<bool(Statement&)> const& row);
    bool moveOn(std::int64_t key);

    order_t const m_order;
    keyRange_t m_whole;
    keyRange_t m_left;
    Statement m_statement;
    bool m_isDone = false;
};

/// Decodes rows as the library does, damaged cells included.
class FaultDecoder
{
public:
    FaultDecoder();

    /// The fault in a row whose columns stand in the order of the format; valid until the next call.
    Fault const& decode(Statement const& row);

private:
    FdbSqlFaultTbl m_tbl;
};

/// As FaultDecoder, for the statistic table.
class StatisticDecoder
{
public:
    StatisticDecoder();

    FaultStatistic const& decode(Statement const& row);

private:
    FdbSqlFaultStatisticTbl m_tbl;
};

/// "SELECT", the columns of `format` by name and the row's key after them, "FROM" its table. A column that the file
/// does not have is read as NULL.
std::string selectText(Connection const& connection, tableFormat_t const& format);

} // namespace tool
