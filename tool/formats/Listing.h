#pragma once

#include <tool/formats/Json.h>
#include <tool/terminal/TextTable.h>

#include <optional>
#include <vector>

namespace tool
{

/// Rows as a table for people, or as a list of JSON objects for other programs.
class Listing
{
public:
    /// The headings are those of the table.
    Listing(Output& output, bool isJson, std::vector<TextTable::Heading> headings);

    /// Adds a row. Calls only the function whose result is written: `makeCells` returns a TextTable::Row,
    /// `makeJson` a Json.
    template <class MakeCells, class MakeJson>
    void add(MakeCells const& makeCells, MakeJson const& makeJson)
    {
        m_array ? m_array->add(makeJson()) : m_table.add(makeCells());
    }

    /// Writes the buffered rows, or the end of the JSON list. No row can be added afterwards.
    void end();

private:
    TextTable m_table;
    std::optional<JsonArray> m_array; ///< instead of the table
};

} // namespace tool
