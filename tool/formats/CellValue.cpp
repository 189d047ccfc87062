#include <tool/formats/CellValue.h>

namespace tool
{

using firaim::RowCursor;

CellValue cellValue(RowCursor const& row, std::size_t cell)
{
    switch (row.type(cell))
    {
    case RowCursor::CELL_NULL:
        return nullptr;
    case RowCursor::CELL_INTEGER:
        return row.integer(cell);
    case RowCursor::CELL_REAL:
        return row.real(cell);
    case RowCursor::CELL_BLOB:
        return Blob{row.bytes(cell)};
    default:
        return row.bytes(cell);
    }
}

} // namespace tool
