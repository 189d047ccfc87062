#pragma once

#include <fdb/tables/FdbSqlFaultStatisticTbl.h>
#include <fdb/tables/FdbSqlFaultTbl.h>
#include <fdb/tables/FdbSqlVersionTbl.h>
#include <history/internal/BoundTable.h>
#include <history/internal/RowDecoder.h>

namespace firaim
{

/// A table object of the library and its statements. `Table` is the schema, `Record` the type of a row.
template <class Table, class Record>
class TableOf
{
public:
    TableOf() : m_tbl(Table::kTableName), m_bound(initialised(m_tbl)) {}
    TableOf(TableOf const&) = delete;
    TableOf& operator=(TableOf const&) = delete;

    /// The working record: holds the values to bind next, and the row decoded last.
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
    /// Decodes a row whose columns are those of `bound().selectText()`; valid until the next call.
    Fault const& decode(sqlite::Statement const& row)
    {
        record().Status = FAULT_INACTIVE; // A NULL status does not change the member.
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
