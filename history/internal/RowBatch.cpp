#include <history/internal/RowBatch.h>

namespace firaim
{

namespace
{

/// The memory that a batch keeps for the next one. A batch with a larger row frees its memory.
constexpr std::size_t kKeptBytes = 2 << 20;

} // namespace

void RowBatch::clear()
{
    m_cells.clear();
    m_keys.clear();
    m_bytes.clear();
    if (m_bytes.capacity() > kKeptBytes)
    {
        std::string().swap(m_bytes);
    }
}

std::size_t RowBatch::keep(std::string_view bytes)
{
    std::size_t const offset = m_bytes.size();
    m_bytes.append(bytes).push_back('\0');
    return offset;
}

void RowBatch::append(sqlite::Statement const& statement)
{
    for (std::size_t id = 0; id < m_columns; ++id)
    {
        auto const column = static_cast<int>(id);
        Cell& cell = m_cells.emplace_back();
        // Get the type first: reading a cell as text converts it.
        switch (statement.type(column))
        {
        case SQLITE_INTEGER:
            cell.type = RowCursor::CELL_INTEGER;
            cell.number = statement.integer(column);
            continue;
        case SQLITE_FLOAT:
            cell.type = RowCursor::CELL_REAL;
            cell.real = statement.real(column);
            break;
        case SQLITE_TEXT:
            cell.type = RowCursor::CELL_TEXT;
            break;
        case SQLITE_BLOB:
        {
            cell.type = RowCursor::CELL_BLOB;
            std::string_view const blob = statement.blob(column);
            cell.size = static_cast<std::uint32_t>(blob.size());
            cell.offset = keep(blob);
            // Where the file's texts are UTF-16, the text differs from the bytes.
            cell.number = static_cast<std::int64_t>(keep(statement.text(column)));
            continue;
        }
        default:
            continue;
        }
        std::string_view const text = statement.text(column);
        cell.size = static_cast<std::uint32_t>(text.size());
        cell.offset = keep(text);
    }
    m_keys.push_back(statement.integer(static_cast<int>(m_columns)));
}

} // namespace firaim
