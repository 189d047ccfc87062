#pragma once

#include <tool/store/TableSchema.h>

#include <history/RowCursor.h>

#include <cstddef>
#include <string>

namespace tool
{

/// The problem of a cell whose content the library would not have written there, and reads as something else. Empty
/// without one.
std::string cellProblem(firaim::RowCursor const& row, std::size_t cell, Column const& expected);

} // namespace tool
