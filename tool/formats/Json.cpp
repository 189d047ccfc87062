#include <tool/formats/Json.h>

#include <tool/formats/CellValue.h>
#include <tool/terminal/SafeText.h>
#include <tool/values/Text.h>

namespace tool
{

using firaim::RowCursor;

namespace
{

/// Converts the value of a cell to JSON.
struct JsonOfCell
{
    Json operator()(std::nullptr_t) const { return nullptr; }
    Json operator()(std::int64_t number) const { return number; }
    Json operator()(double number) const { return number; }
    Json operator()(Blob const& blob) const { return hexadecimal(blob.bytes); }
    Json operator()(std::string_view text) const { return std::string(text); }
};

Json jsonTimeCell(RowCursor const& row, std::size_t cell, TimeStyle const& style)
{
    std::int64_t const stamp = row.type(cell) == RowCursor::CELL_INTEGER ? row.integer(cell) : 0;
    return jsonTime(stamp > 0 ? static_cast<unsigned long long>(stamp) : 0, style);
}

/// `value` on one line.
std::string jsonText(Json const& value, Terminal const& terminal)
{
    std::string text = value.dump(-1, ' ', terminal.isAsciiOnly(), Json::error_handler_t::replace);
    return terminal.isTerminal ? escapeJson(text) : text;
}

} // namespace

void printJson(Json const& value, Output& output)
{
    output.writeLine(jsonText(value, output.terminal()));
}

Json jsonTime(unsigned long long stamp, TimeStyle const& style)
{
    std::optional<std::int64_t> const time = firaim::timeOf(stamp, style.unit);
    return time ? Json(isoText(*time, style)) : Json(nullptr);
}

Json jsonRow(RowCursor const& row, TableSchema const& schema, TimeStyle const& style)
{
    // The names are unique, so append each without looking for it among the others.
    Json::object_t fields;
    fields.reserve(schema.columns.size() + 2);
    for (std::size_t column = 0; column < schema.columns.size(); ++column)
    {
        fields.emplace_back(schema.columns[column].name, std::visit(JsonOfCell(), cellValue(row, column)));
    }
    if (&schema == &faultSchema())
    {
        fields.emplace_back("Time", jsonTimeCell(row, faultColumn::TIME_STAMP, style));
    }
    else if (&schema == &statisticSchema())
    {
        fields.emplace_back("TimeFirstOccurred", jsonTimeCell(row, statisticColumn::TIME_FIRST, style));
        fields.emplace_back("TimeLastOccurred", jsonTimeCell(row, statisticColumn::TIME_LAST, style));
    }
    return fields;
}

JsonArray::JsonArray(Output& output) : m_output(output)
{
    m_output.write("[");
}

void JsonArray::add(Json const& value)
{
    m_output.write(m_isEmpty ? "\n" : ",\n");
    m_output.write(jsonText(value, m_output.terminal()));
    m_isEmpty = false;
}

void JsonArray::end()
{
    m_output.write(m_isEmpty ? "]" : "\n]");
}

void JsonArray::endLine()
{
    end();
    m_output.writeLine("");
}

} // namespace tool
