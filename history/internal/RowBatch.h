#pragma once

#include <db/internal/Sqlite.h>
#include <history/RowCursor.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace firaim
{

/// One cell of the file.
struct Cell
{
    RowCursor::CellType type = RowCursor::CELL_NULL;
    std::uint32_t size = 0;  ///< of a text or blob, or of the text of a real
    std::size_t offset = 0;  ///< of these bytes in the batch; a zero byte follows them
    std::int64_t number = 0; ///< value of an integer; for a blob, the offset of its text as SQLite converts it
    double real = 0;
};

/// One row of a batch; valid until the batch changes.
struct RowView
{
    Cell const* cells;
    std::size_t count;
    char const* bytes;

    std::string_view bytesOf(Cell const& cell) const { return {bytes + cell.offset, cell.size}; }
};

/// Rows in memory, so that the file is not locked while the caller works with them.
class RowBatch
{
public:
    /// `columns` is the number of cells in a row.
    explicit RowBatch(std::size_t columns) : m_columns(columns) {}

    void clear();
    /// Appends the present row of `statement`, whose last column is the key.
    void append(sqlite::Statement const& statement);

    std::size_t size() const { return m_keys.size(); }
    /// The approximate memory of the rows.
    std::size_t byteCount() const { return m_bytes.size() + m_cells.size() * sizeof(Cell); }
    std::int64_t key(std::size_t row) const { return m_keys[row]; }
    RowView row(std::size_t row) const { return {&m_cells[row * m_columns], m_columns, m_bytes.data()}; }

private:
    std::size_t keep(std::string_view bytes);

    std::size_t m_columns;
    std::vector<Cell> m_cells;
    std::vector<std::int64_t> m_keys;
    std::string m_bytes;
};

} // namespace firaim
