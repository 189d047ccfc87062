#pragma once

#include <history/RowCursor.h>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <variant>

namespace tool
{

/// The bytes of a cell that is no text.
struct Blob
{
    std::string_view bytes;
};

/// The value of a cell: NULL, an integer, a real, a blob or a text.
using CellValue = std::variant<std::nullptr_t, std::int64_t, double, Blob, std::string_view>;

/// The value as the file holds it; it may refer to `row` and is good for as long as that stays where it is.
CellValue cellValue(firaim::RowCursor const& row, std::size_t cell);

} // namespace tool
