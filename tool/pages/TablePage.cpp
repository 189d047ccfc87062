#include <tool/pages/TablePage.h>

#include <tool/pages/BigEndian.h>

#include <algorithm>
#include <limits>

namespace tool
{

namespace
{

constexpr unsigned char kLeafType = 13;
constexpr unsigned char kInteriorType = 5;
constexpr std::size_t kLeafHeader = 8;
constexpr std::size_t kInteriorHeader = 12;
constexpr std::size_t kPageNumberSize = 4;
constexpr std::size_t kFreeblockSize = 4;

/// Offsets in the page header.
constexpr std::size_t kFirstFreeblock = 1;
constexpr std::size_t kCellCount = 3;
constexpr std::size_t kContentStart = 5;
constexpr std::size_t kLastChild = 8;

} // namespace

std::size_t localSize(std::uint64_t payloadSize, std::size_t usable)
{
    // The two limits and the remainder are those of the file format.
    std::uint64_t const most = usable - 35;
    if (payloadSize <= most)
    {
        return static_cast<std::size_t>(payloadSize);
    }
    std::uint64_t const least = (usable - 12) * 32 / 255 - 23;
    std::uint64_t const fitting = least + (payloadSize - least) % (usable - kPageNumberSize);
    return static_cast<std::size_t>(fitting <= most ? fitting : least);
}

bool TablePage::fail(char const* problem)
{
    m_problem = problem;
    return false;
}

bool TablePage::parse(std::string_view bytes, PageNumber number, std::uint32_t reserved)
{
    m_cells.clear();
    m_children.clear();
    m_extents.clear();
    m_bytes = bytes.substr(0, bytes.size() - reserved);
    return parseHeader(number) && parsePointers() && areExtentsSeparate();
}

bool TablePage::parseHeader(PageNumber number)
{
    m_header = number == 1 ? FileHeader::kSize : 0;
    auto const type = static_cast<unsigned char>(m_bytes[m_header]);
    if (type != kLeafType && type != kInteriorType)
    {
        return fail("is no page of a table");
    }
    m_isLeaf = type == kLeafType;
    m_pointers = m_header + (m_isLeaf ? kLeafHeader : kInteriorHeader);
    m_count = static_cast<std::size_t>(bigEndian(m_bytes, m_header + kCellCount, 2));
    auto const content = static_cast<std::size_t>(bigEndian(m_bytes, m_header + kContentStart, 2));
    m_content = content == 0 ? FileHeader::kLargestPage : content;
    if (m_content > m_bytes.size() || m_pointers + 2 * m_count > m_content)
    {
        return fail("has more cells than room for them");
    }
    auto const freeblock = static_cast<std::size_t>(bigEndian(m_bytes, m_header + kFirstFreeblock, 2));
    if (freeblock != 0 && (freeblock < m_content || freeblock > m_bytes.size() - kFreeblockSize))
    {
        return fail("has its free space outside of the room for cells");
    }
    // SQLite leaves an interior page with a single child only at page 1, which has less room than that child.
    bool const mayLackCells = m_isLeaf || number == 1;
    return m_count > 0 || mayLackCells || fail("names one page only");
}

bool TablePage::parsePointers()
{
    for (std::size_t index = 0; index < m_count; ++index)
    {
        auto const offset = static_cast<std::size_t>(bigEndian(m_bytes, m_pointers + 2 * index, 2));
        if (offset < m_content || offset >= m_bytes.size())
        {
            return fail("has a cell outside of the room for cells");
        }
        if (!(m_isLeaf ? parseLeafCell(offset) : parseInteriorCell(offset)))
        {
            return false;
        }
    }
    if (!m_isLeaf)
    {
        auto const last = bigEndian32(m_bytes, m_header + kLastChild);
        m_children.push_back({last, std::numeric_limits<std::int64_t>::max()});
    }
    return true;
}

bool TablePage::parseLeafCell(std::size_t offset)
{
    auto const size = readVarint(m_bytes, offset);
    auto const key = size ? readVarint(m_bytes, offset + size->size) : std::nullopt;
    if (!key)
    {
        return fail("ends inside of a cell");
    }
    std::size_t const start = offset + size->size + key->size;
    std::size_t const local = localSize(size->value, m_bytes.size());
    bool const overflows = local < size->value;
    std::size_t const end = start + local + (overflows ? kPageNumberSize : 0);
    if (!addExtent(offset, end))
    {
        return false;
    }
    auto const rowKey = static_cast<std::int64_t>(key->value);
    if (!m_cells.empty() && rowKey <= m_cells.back().key)
    {
        return fail("has keys that do not ascend");
    }
    auto const overflow = overflows ? bigEndian32(m_bytes, start + local) : PageNumber{0};
    m_cells.push_back({rowKey, size->value, m_bytes.substr(start, local), overflow});
    return true;
}

bool TablePage::parseInteriorCell(std::size_t offset)
{
    auto const key = readVarint(m_bytes, offset + kPageNumberSize);
    if (!key)
    {
        return fail("ends inside of a cell");
    }
    if (!addExtent(offset, offset + kPageNumberSize + key->size))
    {
        return false;
    }
    auto const lastKey = static_cast<std::int64_t>(key->value);
    if (!m_children.empty() && lastKey <= m_children.back().lastKey)
    {
        return fail("has keys that do not ascend");
    }
    m_children.push_back({bigEndian32(m_bytes, offset), lastKey});
    return true;
}

bool TablePage::addExtent(std::size_t offset, std::size_t end)
{
    m_extents.emplace_back(offset, end);
    return end <= m_bytes.size() || fail("has a cell that is longer than the page");
}

bool TablePage::areExtentsSeparate()
{
    std::sort(m_extents.begin(), m_extents.end());
    auto const overlap =
        std::adjacent_find(m_extents.begin(), m_extents.end(),
                           [](auto const& left, auto const& right) { return right.first < left.second; });
    return overlap == m_extents.end() || fail("has cells that overlap");
}

} // namespace tool
