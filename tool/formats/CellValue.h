#pragma once

#include <history/RowCursor.h>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <variant>

namespace tool
{

/// The bytes of a blob cell.
struct Blob
{
    std::string_view bytes;
};

/// The value of a cell: NULL, an integer, a real, a blob or a text.
using CellValue = std::variant<std::nullptr_t, std::int64_t, double, Blob, std::string_view>;

/// The value as the file holds it. It may refer to memory of `row`, and is valid until that goes to another row.
CellValue cellValue(firaim::RowCursor const& row, std::size_t cell);

} // namespace tool
