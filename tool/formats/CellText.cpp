#include <tool/formats/CellText.h>

#include <tool/formats/CellValue.h>
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

/// With enough digits for the exact value.
void appendReal(std::string& text, double number)
{
    std::array<char, 40> digits;
    auto const size = std::snprintf(digits.data(), digits.size(), "%.17g", number);
    text.append(digits.data(), static_cast<std::size_t>(size));
    std::string_view const written(digits.data(), static_cast<std::size_t>(size));
    if (written.find_first_not_of("-0123456789") == std::string_view::npos)
    {
        text += ".0"; // Without a point it would be read as an integer.
    }
}

/// Appends `value` in quotes; `quote` characters inside are doubled.
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

bool isPrintableText(std::string_view value)
{
    return escape(value).size() == value.size();
}

/// Appends the value of a cell for CSV.
struct CsvAppender
{
    std::string& text;

    void operator()(std::nullptr_t) const {}
    void operator()(std::int64_t number) const { appendInteger(text, number); }
    void operator()(double number) const { appendReal(text, number); }
    void operator()(Blob const& blob) const { text += hexadecimal(blob.bytes); }
    void operator()(std::string_view value) const
    {
        if (needsCsvQuotes(value))
        {
            appendQuoted(text, value, '"');
        }
        else
        {
            text.append(value);
        }
    }
};

/// Appends the value of a cell as a literal of SQLite.
struct SqlAppender
{
    std::string& text;

    void operator()(std::nullptr_t) const { text += "NULL"; }
    void operator()(std::int64_t number) const { appendInteger(text, number); }
    void operator()(double number) const
    {
        if (std::isinf(number))
        {
            text += number < 0 ? "-9e999" : "9e999";
        }
        else
        {
            appendReal(text, number);
        }
    }
    void operator()(Blob const& blob) const { text.append("X'").append(hexadecimal(blob.bytes)).append("'"); }
    void operator()(std::string_view value) const
    {
        if (isPrintableText(value))
        {
            appendQuoted(text, value, '\'');
        }
        else
        {
            text.append("CAST(X'").append(hexadecimal(value)).append("' AS TEXT)");
        }
    }
};

} // namespace

void appendCsv(std::string& text, RowCursor const& row, std::size_t cell)
{
    std::visit(CsvAppender{text}, cellValue(row, cell));
}

void appendSql(std::string& text, RowCursor const& row, std::size_t cell)
{
    std::visit(SqlAppender{text}, cellValue(row, cell));
}

} // namespace tool
