#include <history/internal/RowBatch.h>

#include <cstring>

namespace firaim
{

namespace
{

/// What a batch keeps for the next one. A batch with a larger row gives its memory back.
constexpr std::size_t kKeptBytes = 2 << 20;

class Fnv1a
{
public:
    void add(std::string_view bytes)
    {
        for (char const byte : bytes)
        {
            m_hash = (m_hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
        }
    }

    void add(std::uint64_t number)
    {
        for (unsigned int shift = 0; shift < 64; shift += 8)
        {
            m_hash = (m_hash ^ (number >> shift & 0xffU)) * 0x100000001b3;
        }
    }

    std::uint64_t value() const { return m_hash; }

private:
    std::uint64_t m_hash = 0xcbf29ce484222325;
};

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
        cell_t& cell = m_cells.emplace_back();
        // The type first: taking a cell as a text converts it.
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
            // In a file whose texts are UTF-16, this is another text.
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

std::uint64_t hashOf(rowView_t const& row)
{
    Fnv1a hash;
    for (std::size_t id = 0; id < row.count; ++id)
    {
        cell_t const& cell = row.cells[id];
        hash.add(static_cast<std::uint64_t>(cell.type));
        if (cell.type == RowCursor::CELL_REAL)
        {
            std::uint64_t bits = 0;
            std::memcpy(&bits, &cell.real, sizeof bits);
            hash.add(bits);
        }
        else if (cell.type == RowCursor::CELL_INTEGER)
        {
            hash.add(static_cast<std::uint64_t>(cell.number));
        }
        else if (cell.type != RowCursor::CELL_NULL)
        {
            hash.add(std::uint64_t{cell.size});
            hash.add(row.bytesOf(cell));
        }
    }
    return hash.value();
}

} // namespace firaim
