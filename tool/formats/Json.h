#pragma once

#include <tool/store/TableSchema.h>
#include <tool/terminal/Output.h>
#include <tool/values/Times.h>

#include <history/RowCursor.h>

#include <nlohmann/json.hpp>

#include <string>

namespace tool
{

/// Keeps the order of its fields.
using Json = nlohmann::ordered_json;

/// On one line; bytes that are no UTF-8 become U+FFFD. When it goes to a terminal, nothing in it acts on that.
std::string jsonText(Json const& value, Terminal const& terminal);

/// A row as an object: the columns of `schema` by name, as the file holds them, and its times once more as ISO 8601
/// texts. A blob is a text of hexadecimal digits.
Json jsonRow(firaim::RowCursor const& row, TableSchema const& schema, TimeStyle const& style);

/// The ISO 8601 text of a stamp, null when it was not set.
Json jsonTime(unsigned long long stamp, TimeStyle const& style);

/// Writes a list of values, one on each line.
class JsonArray
{
public:
    explicit JsonArray(Output& output);

    void add(Json const& value);
    /// Ends the list, not its last line: it may be a part of something larger.
    void end();
    /// Ends the list and its last line.
    void endLine();

private:
    Output& m_output;
    bool m_isEmpty = true;
};

} // namespace tool
