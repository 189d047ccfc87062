#include <tool/schema/CellCheck.h>

#include <algorithm>

namespace tool
{

using firaim::RowCursor;

namespace
{

/// The text of a cell as SQLite converts it.
std::string textOf(RowCursor const& row, std::size_t cell)
{
    return row.type(cell) == RowCursor::CELL_INTEGER ? std::to_string(row.integer(cell)) : std::string(row.bytes(cell));
}

} // namespace

std::string cellProblem(RowCursor const& row, std::size_t cell, Column const& expected)
{
    RowCursor::CellType const type = row.type(cell);
    if (type == RowCursor::CELL_NULL)
    {
        return "is NULL";
    }
    if (type == RowCursor::CELL_BLOB)
    {
        return "holds a blob";
    }
    if (expected.kind == ColumnKind::KEY || expected.kind == ColumnKind::NUMBER)
    {
        if (type != RowCursor::CELL_INTEGER)
        {
            return "holds '" + textOf(row, cell) + "', which is not a whole number";
        }
        std::int64_t const value = row.integer(cell);
        bool const isTooLarge = expected.bits < 64 && value >> expected.bits != 0;
        return value < 0 || isTooLarge ? "holds " + std::to_string(value) + ", which is not an unsigned number of " +
                                             std::to_string(expected.bits) + " bits"
                                       : "";
    }
    if (type != RowCursor::CELL_TEXT)
    {
        return "holds the number " + textOf(row, cell) + " instead of a text";
    }
    std::string_view const text = row.bytes(cell);
    if (text.find('\0') != std::string_view::npos)
    {
        return "holds a text with a zero byte, at which it is cut off when it is read";
    }
    if (expected.kind == ColumnKind::STATUS &&
        std::find(expected.words.begin(), expected.words.end(), text) == expected.words.end())
    {
        return "holds '" + std::string(text) + "', which is not a status";
    }
    return "";
}

} // namespace tool
