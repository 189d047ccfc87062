#pragma once

#include <tool/schema/TableSchema.h>
#include <tool/store/FaultFile.h>

#include <history/FaultQuery.h>
#include <history/FaultReader.h>

#include <cstdint>
#include <optional>

namespace tool
{

/// Watches the keys that a cursor returns. A page in the wrong place makes a cursor jump over keys, return a key that
/// is out of order, and come to its end early.
class KeyOrder
{
public:
    /// For the rows of `range`, of which the newest is noted: later ones are not read.
    KeyOrder(FaultFile& file, TableSchema const& schema, firaim::FaultQuery::Order order,
             firaim::RowCursor::KeyRange range);

    /// Takes the key of the next row; returns false if it is out of order.
    bool take(std::int64_t key);
    /// Whether the cursor has come to its end although there are rows behind the last one.
    bool isEndEarly() const;
    /// The last key that was in order; none before the first row.
    std::optional<std::int64_t> last() const { return m_last; }

private:
    FaultFile& m_file;
    TableSchema const& m_schema;
    firaim::FaultQuery::Order const m_order;
    firaim::RowCursor::KeyRange m_range;
    std::optional<std::int64_t> m_last;
};

/// The faults of a file that match a query. Goes on behind damage if the file was opened for that. `file` must outlive
/// this object.
class FaultReading
{
public:
    FaultReading(FaultFile& file, firaim::FaultQuery query);

    /// Reads the next fault; returns whether there is one. Throws a Problem or interrupt::Interrupted.
    bool next(Fault& fault);
    /// The fault read last, as the file holds it.
    firaim::RowCursor const& row() const { return m_cursor.row(); }
    double progress() const { return m_cursor.progress(); }

private:
    int tryNext(Fault& fault);

    FaultFile& m_file;
    firaim::FaultQuery m_query; ///< for what is left
    firaim::FaultCursor m_cursor;
    KeyOrder m_keys;
};

/// The same for the rows of a table, the oldest first.
class RowReading
{
public:
    RowReading(FaultFile& file, TableSchema const& schema, firaim::RowCursor::KeyRange range = {});

    bool next();
    firaim::RowCursor const& row() const { return m_cursor; }

private:
    int tryNext();

    FaultFile& m_file;
    TableSchema const& m_schema;
    firaim::RowCursor::KeyRange m_range; ///< of what is left
    firaim::RowCursor m_cursor;
    KeyOrder m_keys;
};

} // namespace tool
