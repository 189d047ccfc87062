#include <history/internal/RowHash.h>

#include <fdb/tables/FdbSqlFaultTbl.h>

#include <cstring>
#include <string_view>

namespace firaim
{

namespace
{

constexpr unsigned short kOccurrenceColumns[] = {FdbSqlFaultTbl::kFaultCodeColumn, FdbSqlFaultTbl::kModuleNameColumn,
                                                 FdbSqlFaultTbl::kParameterColumn, FdbSqlFaultTbl::kTimeStampUtcColumn,
                                                 FdbSqlFaultTbl::kSystemDateTimeColumn};

class Fnv1a
{
public:
    void add(RowView const& row, Cell const& cell)
    {
        add(static_cast<std::uint64_t>(cell.type));
        if (cell.type == RowCursor::CELL_REAL)
        {
            std::uint64_t bits = 0;
            std::memcpy(&bits, &cell.real, sizeof bits);
            add(bits);
        }
        else if (cell.type == RowCursor::CELL_INTEGER)
        {
            add(static_cast<std::uint64_t>(cell.number));
        }
        else if (cell.type != RowCursor::CELL_NULL)
        {
            add(std::uint64_t{cell.size});
            add(row.bytesOf(cell));
        }
    }

    std::uint64_t value() const { return m_hash; }

private:
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

    std::uint64_t m_hash = 0xcbf29ce484222325;
};

} // namespace

std::uint64_t hashOf(RowView const& row)
{
    Fnv1a hash;
    for (std::size_t id = 0; id < row.count; ++id)
    {
        hash.add(row, row.cells[id]);
    }
    return hash.value();
}

std::uint64_t occurrenceHashOf(RowView const& row)
{
    Fnv1a hash;
    for (unsigned short const id : kOccurrenceColumns)
    {
        hash.add(row, row.cells[id]);
    }
    return hash.value();
}

} // namespace firaim
