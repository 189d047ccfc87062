#include "TablePages.h"

#include <stdexcept>

namespace
{

constexpr unsigned int kInteriorTablePage = 5;
constexpr unsigned int kLeafTablePage = 13;
constexpr std::size_t kFileHeaderSize = 100;
constexpr std::size_t kInteriorHeaderSize = 12;
constexpr std::size_t kLeafHeaderSize = 8;

class Walk
{
public:
    explicit Walk(std::string const& file)
        : m_file(file), m_pageSize(pageSizeOf(file)),
          m_usableSize(m_pageSize - static_cast<std::size_t>(numberAt(file, 20, 1)))
    {
    }

    void visit(PageNumber page)
    {
        std::size_t const header = pageHeader(m_file, page);
        switch (numberAt(m_file, header, 1))
        {
        case kInteriorTablePage:
            pages.interior.insert(page);
            for (std::size_t i = 0; i < cellCount(m_file, page); ++i)
            {
                visit(static_cast<PageNumber>(numberAt(m_file, cellOffset(m_file, page, i), 4)));
            }
            visit(static_cast<PageNumber>(numberAt(m_file, header + 8, 4)));
            break;
        case kLeafTablePage:
            pages.leaves.insert(page);
            for (std::size_t i = 0; i < cellCount(m_file, page); ++i)
            {
                addRow(page, cellOffset(m_file, page, i));
            }
            break;
        default:
            throw std::runtime_error("page " + std::to_string(page) + " belongs to no table");
        }
    }

    TablePages pages;

private:
    void addRow(PageNumber leaf, std::size_t cell)
    {
        Varint const payload = varintAt(m_file, cell);
        Varint const key = varintAt(m_file, cell + payload.size);
        std::set<PageNumber>& used = pages.rows[static_cast<long long>(key.value)];
        used.insert(leaf);
        std::size_t const local = localSize(payload.value);
        if (local == payload.value)
        {
            return;
        }
        std::size_t next = cell + payload.size + key.size + local;
        while (auto const page = static_cast<PageNumber>(numberAt(m_file, next, 4)))
        {
            used.insert(page);
            next = (page - 1) * m_pageSize;
        }
    }

    /// Bytes of a payload that the leaf page holds; the format of the file fixes the formula.
    std::size_t localSize(std::uint64_t payload) const
    {
        std::size_t const most = m_usableSize - 35;
        std::size_t const least = (m_usableSize - 12) * 32 / 255 - 23;
        if (payload <= most)
        {
            return static_cast<std::size_t>(payload);
        }
        auto const size = static_cast<std::size_t>(least + (payload - least) % (m_usableSize - 4));
        return size <= most ? size : least;
    }

    std::string const& m_file;
    std::size_t m_pageSize;
    std::size_t m_usableSize;
};

} // namespace

std::set<PageNumber> TablePages::all() const
{
    std::set<PageNumber> result = interior;
    result.insert(leaves.begin(), leaves.end());
    for (auto const& [key, used] : rows)
    {
        result.insert(used.begin(), used.end());
    }
    return result;
}

TablePages tablePages(std::string const& file, PageNumber root)
{
    Walk walk(file);
    walk.visit(root);
    return walk.pages;
}

std::uint64_t numberAt(std::string const& file, std::size_t offset, std::size_t size)
{
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < size; ++i)
    {
        number = number << 8 | static_cast<unsigned char>(file.at(offset + i));
    }
    return number;
}

Varint varintAt(std::string const& file, std::size_t offset)
{
    constexpr std::size_t kLongest = 9;
    std::uint64_t value = 0;
    for (std::size_t i = 0; i + 1 < kLongest; ++i)
    {
        std::uint64_t const byte = numberAt(file, offset + i, 1);
        value = value << 7 | (byte & 0x7f);
        if (byte < 0x80)
        {
            return {value, i + 1};
        }
    }
    return {value << 8 | numberAt(file, offset + kLongest - 1, 1), kLongest};
}

std::size_t pageSizeOf(std::string const& file)
{
    constexpr std::size_t kLargest = 65536; // The header says 1, as the number does not fit.
    auto const size = static_cast<std::size_t>(numberAt(file, 16, 2));
    return size == 1 ? kLargest : size;
}

std::size_t pageHeader(std::string const& file, PageNumber page)
{
    return page == 1 ? kFileHeaderSize : (page - 1) * pageSizeOf(file);
}

std::size_t cellCount(std::string const& file, PageNumber page)
{
    return static_cast<std::size_t>(numberAt(file, pageHeader(file, page) + 3, 2));
}

std::size_t cellPointer(std::string const& file, PageNumber page, std::size_t index)
{
    std::size_t const header = pageHeader(file, page);
    bool const isLeaf = numberAt(file, header, 1) == kLeafTablePage;
    return header + (isLeaf ? kLeafHeaderSize : kInteriorHeaderSize) + 2 * index;
}

std::size_t cellOffset(std::string const& file, PageNumber page, std::size_t index)
{
    return (page - 1) * pageSizeOf(file) + static_cast<std::size_t>(numberAt(file, cellPointer(file, page, index), 2));
}
