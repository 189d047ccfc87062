#pragma once

#include <fdb/tables/FdbSqlFaultStatisticTbl.h>
#include <fdb/tables/FdbSqlFaultTbl.h>
#include <fdb/tables/FdbSqlVersionTbl.h>
#include <history/internal/BoundTable.h>
#include <history/internal/RowDecoder.h>

namespace firaim
{

/// One table of the library with its statements. `Table` is its schema, `Record` what a row holds.
template <class Table, class Record>
class TableOf
{
public:
    TableOf() : m_tbl(Table::kTableName), m_bound(initialised(m_tbl)) {}
    TableOf(TableOf const&) = delete;
    TableOf& operator=(TableOf const&) = delete;

    /// The working record: what is bound next, and what was decoded last.
    Record& record() { return m_tbl.m_record; }
    BoundTable const& bound() const { return m_bound; }
    Table const& schema() const { return m_tbl; }

protected:
    Record const& decodeRow(sqlite::Statement const& row) { return firaim::decodeRow<Record>(m_tbl, row); }
    Record const& decodeRow(RowView const& row) { return firaim::decodeRow<Record>(m_tbl, row); }

private:
    static Table& initialised(Table& tbl)
    {
        tbl.init("");
        return tbl;
    }

    Table m_tbl;
    BoundTable m_bound;
};

class FaultTable : public TableOf<FdbSqlFaultTbl, Fault>
{
public:
    /// The fault in a row whose columns are those of `bound().selectText()`; valid until the next call.
    Fault const& decode(sqlite::Statement const& row)
    {
        record().Status = FAULT_INACTIVE; // A status that is NULL keeps what was there before.
        return decodeRow(row);
    }
    Fault const& decode(RowView const& row) ///< as above
    {
        record().Status = FAULT_INACTIVE;
        return decodeRow(row);
    }
};

class StatisticTable : public TableOf<FdbSqlFaultStatisticTbl, FaultStatistic>
{
public:
    /// As FaultTable::decode.
    FaultStatistic const& decode(sqlite::Statement const& row)
    {
        record().FaultActive = FAULT_INACTIVE;
        return decodeRow(row);
    }
    FaultStatistic const& decode(RowView const& row) ///< as above
    {
        record().FaultActive = FAULT_INACTIVE;
        return decodeRow(row);
    }
};

class VersionTable : public TableOf<FdbSqlVersionTbl, FdbVersion>
{
};

} // namespace firaim
