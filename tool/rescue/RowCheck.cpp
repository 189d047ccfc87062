#include <tool/rescue/RowCheck.h>

#include <algorithm>

namespace tool
{

namespace
{

bool isNumberOf(RecordCell const& cell, unsigned int bits)
{
    return cell.type == RecordCell::INTEGER && cell.integer >= 0 && (bits >= 64 || cell.integer >> bits == 0);
}

bool isTextOf(RecordCell const& cell, std::vector<std::string> const& words)
{
    if (cell.type != RecordCell::TEXT || cell.isCut || cell.bytes.find('\0') != std::string_view::npos)
    {
        return false;
    }
    return words.empty() || std::find(words.begin(), words.end(), cell.bytes) != words.end();
}

bool isOf(RecordCell const& cell, Column const& column)
{
    switch (column.kind)
    {
    case ColumnKind::KEY:
        return cell.type == RecordCell::EMPTY;
    case ColumnKind::NUMBER:
        return isNumberOf(cell, column.bits);
    default:
        return isTextOf(cell, column.words);
    }
}

} // namespace

std::string rowProblem(std::int64_t key, std::vector<RecordCell> const& cells, TableSchema const& schema)
{
    if (cells.size() != schema.columns.size())
    {
        return "the row has " + std::to_string(cells.size()) + " cells instead of " +
               std::to_string(schema.columns.size());
    }
    if (key < 0)
    {
        return "the key is below 0";
    }
    for (std::size_t index = 0; index < cells.size(); ++index)
    {
        if (!isOf(cells[index], schema.columns[index]))
        {
            return schema.columns[index].name + " has no value that a row can have";
        }
    }
    return "";
}

} // namespace tool
