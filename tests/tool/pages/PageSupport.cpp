#include "pages/PageSupport.h"

#include <algorithm>

bool MemoryBytes::read(std::uint64_t offset, char* bytes, std::size_t count) const
{
    bool const isBroken =
        std::any_of(m_broken.begin(), m_broken.end(),
                    [&](std::uint64_t broken) { return offset <= broken && broken < offset + count; });
    if (isBroken || offset > m_bytes.size() || count > m_bytes.size() - offset)
    {
        return false;
    }
    std::copy_n(m_bytes.begin() + static_cast<std::ptrdiff_t>(offset), count, bytes);
    return true;
}

std::string bigEndianBytes(std::uint64_t value, std::size_t width)
{
    std::string bytes(width, '\0');
    for (std::size_t index = 0; index < width; ++index)
    {
        bytes[width - 1 - index] = static_cast<char>(value >> (8 * index));
    }
    return bytes;
}

std::string varint(std::uint64_t value)
{
    if (value >> 56 != 0)
    {
        std::string bytes = bigEndianBytes(value & 0xff, 1);
        for (value >>= 8; bytes.size() < 9; value >>= 7)
        {
            bytes.insert(bytes.begin(), static_cast<char>((value & 0x7f) | 0x80));
        }
        return bytes;
    }
    std::string bytes(1, static_cast<char>(value & 0x7f));
    while ((value >>= 7) != 0)
    {
        bytes.insert(bytes.begin(), static_cast<char>((value & 0x7f) | 0x80));
    }
    return bytes;
}

std::string recordOf(std::vector<std::string> const& texts)
{
    std::string types;
    std::string body;
    for (std::string const& text : texts)
    {
        types += varint(13 + 2 * text.size());
        body += text;
    }
    return varint(types.size() + 1) + types + body;
}

std::string leafCell(std::int64_t key, std::string const& record)
{
    return leafCell(key, record.size(), record);
}

std::string leafCell(std::int64_t key, std::uint64_t payloadSize, std::string const& bytes)
{
    return varint(payloadSize) + varint(static_cast<std::uint64_t>(key)) + bytes;
}

std::string interiorCell(tool::PageNumber child, std::int64_t key)
{
    return bigEndianBytes(child, 4) + varint(static_cast<std::uint64_t>(key));
}

PageBuilder::PageBuilder(char type) : m_bytes(kPageSize, '\0'), m_header(type == 13 ? 8 : 12)
{
    m_bytes[0] = type;
    put(5, bigEndianBytes(kPageSize, 2));
}

PageBuilder PageBuilder::interior(tool::PageNumber lastChild)
{
    PageBuilder page(5);
    page.put(8, bigEndianBytes(lastChild, 4));
    return page;
}

PageBuilder& PageBuilder::put(std::size_t offset, std::string const& bytes)
{
    m_bytes.replace(offset, bytes.size(), bytes);
    return *this;
}

PageBuilder& PageBuilder::point(std::size_t offset)
{
    put(m_header + 2 * m_count, bigEndianBytes(offset, 2));
    ++m_count;
    return put(3, bigEndianBytes(m_count, 2));
}

PageBuilder& PageBuilder::add(std::string const& cell)
{
    m_content -= cell.size();
    put(m_content, cell);
    put(5, bigEndianBytes(m_content, 2));
    return point(m_content);
}

std::string leafWith(std::vector<std::int64_t> const& keys)
{
    PageBuilder page = PageBuilder::leaf();
    for (std::int64_t const key : keys)
    {
        page.add(leafCell(key, recordOf({"row " + std::to_string(key)})));
    }
    return page.bytes();
}

std::string firstPage(tool::PageNumber pageCount, tool::PageNumber firstTrunk, std::uint32_t freePages)
{
    std::string page = std::string("SQLite format 3\0", 16) + bigEndianBytes(kPageSize, 2);
    page.resize(kPageSize);
    page.replace(28, 4, bigEndianBytes(pageCount, 4));
    page.replace(32, 4, bigEndianBytes(firstTrunk, 4));
    page.replace(36, 4, bigEndianBytes(freePages, 4));
    page[100] = 13;
    page.replace(105, 2, bigEndianBytes(kPageSize, 2));
    return page;
}
