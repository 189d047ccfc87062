#include <history/internal/RowDecoder.h>

#include <fdb/records/Fault.h>
#include <fdb/records/FaultStatistic.h>
#include <fdb/records/FdbVersion.h>

#include <array>
#include <cstring>
#include <limits>

namespace firaim
{

namespace
{

/// The number of columns of the widest table.
constexpr std::size_t kMaxColumns = 16;

/// Sets the number from an integer cell within its width; returns false for any other cell.
template <class Integer>
bool setNumber(Cell const& cell, void* value)
{
    // A NULL is read as 0, without a report.
    if (cell.type != RowCursor::CELL_INTEGER && cell.type != RowCursor::CELL_NULL)
    {
        return false;
    }
    if (cell.number < 0 || static_cast<std::uint64_t>(cell.number) > std::uint64_t{std::numeric_limits<Integer>::max()})
    {
        return false;
    }
    // The object may be an enumeration of this width.
    auto const number = static_cast<Integer>(cell.number);
    std::memcpy(value, &number, sizeof number);
    return true;
}

bool setText(RowView const& row, Cell const& cell, std::string& text)
{
    if (cell.type != RowCursor::CELL_TEXT)
    {
        return false;
    }
    text = row.bytes + cell.offset; // Up to the first zero byte.
    return true;
}

/// Decodes a cell that is as the library writes it, without converting it to text; returns false for any other cell.
template <class T>
bool decodeSoundCell(SqlTbl<T> const& tbl, typename SqlTbl<T>::column_t const& column, RowView const& row)
{
    Cell const& cell = row.cells[column.id];
    switch (column.type)
    {
    case SqlTbl<T>::COLUMN_TYPE_UINT64:
        return setNumber<unsigned long long>(cell, column.value);
    case SqlTbl<T>::COLUMN_TYPE_UINT32:
        return setNumber<unsigned int>(cell, column.value);
    case SqlTbl<T>::COLUMN_TYPE_UINT16:
        return setNumber<unsigned short>(cell, column.value);
    case SqlTbl<T>::COLUMN_TYPE_STRING:
        return setText(row, cell, *static_cast<std::string*>(column.value));
    default:
        if (cell.type != RowCursor::CELL_TEXT)
        {
            return false;
        }
        tbl.convertValueFromStr(column.type, row.bytes + cell.offset, column.value);
        return true;
    }
}

/// All cells as SQLite converts them to text.
class CellTexts
{
public:
    explicit CellTexts(RowView const& row)
    {
        for (std::size_t id = 0; id < row.count; ++id)
        {
            // setDatafromSqlResult takes non-const cells, but does not change them.
            m_cells[id] = const_cast<char*>(textOf(row, row.cells[id], m_digits[id]));
        }
    }

    char** cells() { return m_cells.data(); }

private:
    static char const* textOf(RowView const& row, Cell const& cell, std::string& digits)
    {
        switch (cell.type)
        {
        case RowCursor::CELL_NULL:
            return nullptr;
        case RowCursor::CELL_INTEGER:
            digits = std::to_string(cell.number);
            return digits.c_str();
        case RowCursor::CELL_BLOB:
            return row.bytes + cell.number;
        default:
            return row.bytes + cell.offset;
        }
    }

    std::array<std::string, kMaxColumns> m_digits;
    std::array<char*, kMaxColumns> m_cells = {};
};

} // namespace

template <class T>
T const& decodeRow(SqlTbl<T>& tbl, RowView const& row)
{
    for (auto const& [id, column] : tbl.m_columns)
    {
        if (!decodeSoundCell(tbl, column, row))
        {
            // For damaged cells, the library's own decoding is decisive.
            static_cast<void>(tbl.setDatafromSqlResult(CellTexts(row).cells()));
            break;
        }
    }
    return tbl.m_record;
}

template Fault const& decodeRow(SqlTbl<Fault>&, RowView const&);
template FaultStatistic const& decodeRow(SqlTbl<FaultStatistic>&, RowView const&);
template FdbVersion const& decodeRow(SqlTbl<FdbVersion>&, RowView const&);

} // namespace firaim
