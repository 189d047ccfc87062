#pragma once

#include <fdb/tables/SqlTbl.h>
#include <history/internal/RowBatch.h>

namespace firaim
{

/// The row, whose cells are those of `tbl` in their order, decoded into the working record as the library decodes rows,
/// damaged cells included. Compiled for Fault, FaultStatistic, FdbVersion.
template <class T>
T const& decodeRow(SqlTbl<T>& tbl, RowView const& row);

} // namespace firaim
