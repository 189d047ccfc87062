#include "CellCheck.h"

#include <sqlite3.h>

#include <algorithm>

namespace tool
{

std::string cellProblem(Statement const& row, int column, column_t const& expected)
{
    int const type = row.type(column);
    if (type == SQLITE_NULL)
    {
        return "is NULL";
    }
    if (type == SQLITE_BLOB)
    {
        return "holds a blob";
    }
    if (expected.content == content_t::KEY || expected.content == content_t::NUMBER)
    {
        if (type != SQLITE_INTEGER)
        {
            return "holds '" + std::string(row.text(column)) + "' and no whole number";
        }
        std::int64_t const value = row.integer(column);
        bool const isTooLarge = expected.bits < 64 && value >> expected.bits != 0;
        return value < 0 || isTooLarge ? "holds " + std::to_string(value) + ", which is no number of " +
                                             std::to_string(expected.bits) + " bits"
                                       : "";
    }
    if (type != SQLITE_TEXT)
    {
        return "holds the number " + std::string(row.text(column)) + " and no text";
    }
    std::string_view const text = row.text(column);
    if (text.find('\0') != std::string_view::npos)
    {
        return "holds a text with a zero byte, where it is cut off when it is read";
    }
    if (expected.content == content_t::STATUS &&
        std::find(expected.words.begin(), expected.words.end(), text) == expected.words.end())
    {
        return "holds '" + std::string(text) + "', which is no status";
    }
    return "";
}

} // namespace tool
