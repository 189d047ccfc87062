#pragma once

#include <fdb/tables/SqlTbl.h>
#include <history/internal/RowBatch.h>

namespace firaim
{

/// Decodes a row, whose cells are those of `tbl` in their order, into the working record. Decodes as the library does,
/// damaged cells included. Compiled for Fault, FaultStatistic, FdbVersion.
template <class T>
T const& decodeRow(SqlTbl<T>& tbl, RowView const& row);

} // namespace firaim
