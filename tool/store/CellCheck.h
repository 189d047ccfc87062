#pragma once

#include <tool/store/Format.h>

#include <history/RowCursor.h>

#include <cstddef>
#include <string>

namespace tool
{

/// What is wrong with a cell: that it holds something that the library would not have written there, and reads as
/// something else. Empty when nothing is.
std::string cellProblem(firaim::RowCursor const& row, std::size_t cell, column_t const& expected);

} // namespace tool
