#pragma once

#include <tool/schema/TableSchema.h>
#include <tool/terminal/Output.h>
#include <tool/values/Times.h>

#include <history/RowCursor.h>

#include <nlohmann/json.hpp>

namespace tool
{

/// Keeps the order of its fields.
using Json = nlohmann::ordered_json;

/// Prints `value` on a line of its own. Bytes that are not UTF-8 become U+FFFD. For a terminal, unprintable characters
/// are escaped.
void printJson(Json const& value, Output& output);

/// A row as an object: the columns of `schema` by name, as the file holds them, and its times also as ISO 8601 texts. A
/// blob is a text of hexadecimal digits.
Json jsonRow(firaim::RowCursor const& row, TableSchema const& schema, TimeStyle const& style);

/// The ISO 8601 text of a stamp, null when it was not set.
Json jsonTime(unsigned long long stamp, TimeStyle const& style);

/// Writes a list of values, each on a line of its own as `printJson` prints it.
class JsonArray
{
public:
    explicit JsonArray(Output& output);

    void add(Json const& value);
    /// Ends the list without a line feed: it may be a part of a larger value.
    void end();
    /// Ends the list and the line.
    void endLine();

private:
    Output& m_output;
    bool m_isEmpty = true;
};

} // namespace tool
