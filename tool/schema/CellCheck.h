#pragma once

#include <tool/schema/TableSchema.h>

#include <history/RowCursor.h>

#include <cstddef>
#include <string>

namespace tool
{

/// The problem of a cell with content that the library never writes there, and reads as another value. Empty if there
/// is none.
std::string cellProblem(firaim::RowCursor const& row, std::size_t cell, Column const& expected);

} // namespace tool
