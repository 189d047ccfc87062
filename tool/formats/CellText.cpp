#include <tool/formats/CellText.h>

#include <tool/terminal/SafeText.h>
#include <tool/values/Text.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace tool
{

using firaim::RowCursor;

namespace
{

void appendInteger(std::string& text, std::int64_t number)
{
    std::array<char, 24> digits;
    text.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
}

/// Enough digits to tell every number from every other.
void appendReal(std::string& text, double number)
{
    std::array<char, 40> digits;
    auto const size = std::snprintf(digits.data(), digits.size(), "%.17g", number);
    text.append(digits.data(), static_cast<std::size_t>(size));
    std::string_view const written(digits.data(), static_cast<std::size_t>(size));
    if (written.find_first_not_of("-0123456789") == std::string_view::npos)
    {
        text += ".0"; // Without it, it would be an integer.
    }
}

/// Appends `value` between `quote` and `quote`, with those inside doubled.
void appendQuoted(std::string& text, std::string_view value, char quote)
{
    text.push_back(quote);
    for (std::size_t end = value.find(quote); end != std::string_view::npos; end = value.find(quote))
    {
        text.append(value.substr(0, end + 1)).push_back(quote);
        value.remove_prefix(end + 1);
    }
    text.append(value).push_back(quote);
}

bool needsCsvQuotes(std::string_view value)
{
    return value.empty() || value.front() == ' ' || value.back() == ' ' ||
           std::any_of(value.begin(), value.end(),
                       [](char c) { return c == ',' || c == '"' || c == '\n' || c == '\r'; });
}

bool isPlainText(std::string_view value)
{
    return escape(value).size() == value.size();
}

} // namespace

void appendCsv(std::string& text, RowCursor const& row, std::size_t cell)
{
    switch (row.type(cell))
    {
    case RowCursor::CELL_NULL:
        return;
    case RowCursor::CELL_INTEGER:
        appendInteger(text, row.integer(cell));
        return;
    case RowCursor::CELL_REAL:
        appendReal(text, row.real(cell));
        return;
    case RowCursor::CELL_BLOB:
        text += hexadecimal(row.bytes(cell));
        return;
    default:
        break;
    }
    std::string_view const value = row.bytes(cell);
    if (needsCsvQuotes(value))
    {
        appendQuoted(text, value, '"');
    }
    else
    {
        text.append(value);
    }
}

void appendSql(std::string& text, RowCursor const& row, std::size_t cell)
{
    switch (row.type(cell))
    {
    case RowCursor::CELL_NULL:
        text += "NULL";
        return;
    case RowCursor::CELL_INTEGER:
        appendInteger(text, row.integer(cell));
        return;
    case RowCursor::CELL_REAL:
        if (std::isinf(row.real(cell)))
        {
            text += row.real(cell) < 0 ? "-9e999" : "9e999";
        }
        else
        {
            appendReal(text, row.real(cell));
        }
        return;
    case RowCursor::CELL_BLOB:
        text += "X'";
        text += hexadecimal(row.bytes(cell));
        text.push_back('\'');
        return;
    default:
        break;
    }
    std::string_view const value = row.bytes(cell);
    if (isPlainText(value))
    {
        appendQuoted(text, value, '\'');
        return;
    }
    text += "CAST(X'";
    text += hexadecimal(value);
    text += "' AS TEXT)";
}

} // namespace tool
