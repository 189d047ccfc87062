#pragma once

#include "Format.h"
#include "Sqlite.h"

#include <string>

namespace tool
{

/// What is wrong with a cell: that it holds something that the library would not have written there, and reads as
/// something else. Empty when nothing is.
std::string cellProblem(Statement const& row, int column, column_t const& expected);

} // namespace tool
