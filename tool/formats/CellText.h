#pragma once

#include <history/RowCursor.h>

#include <cstddef>
#include <string>

/// Writes cells for other programs, with exactly the values in the file.
namespace tool
{

/// Appends the cell for CSV, quoted where RFC 4180 requires it. An empty text is always quoted, so that it differs from
/// NULL, for which nothing is appended. A blob is written as hexadecimal digits.
void appendCsv(std::string& text, firaim::RowCursor const& row, std::size_t cell);

/// Appends the cell as an SQLite literal of the same value. A text with unprintable characters or zero bytes is written
/// as hexadecimal digits of its bytes.
void appendSql(std::string& text, firaim::RowCursor const& row, std::size_t cell);

} // namespace tool
