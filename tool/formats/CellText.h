#pragma once

#include <history/RowCursor.h>

#include <cstddef>
#include <string>

/// Cells as other programs read them, exactly as they are in the file.
namespace tool
{

/// Appends the cell for CSV: in quotes where RFC 4180 asks for them, and an empty text always, so that it differs from
/// NULL, which is nothing at all. A blob is written as hexadecimal digits.
void appendCsv(std::string& text, firaim::RowCursor const& row, std::size_t cell);

/// Appends the cell as a literal of SQLite that gives the same value back. A text that could act on a terminal, or that
/// holds a zero byte, is written by its bytes.
void appendSql(std::string& text, firaim::RowCursor const& row, std::size_t cell);

} // namespace tool
