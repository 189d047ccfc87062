#include <history/internal/FaultPages.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

namespace firaim
{

namespace
{

constexpr std::size_t kSmallestPage = 512;
constexpr std::size_t kLargestPage = 65536;
constexpr unsigned char kTableLeaf = 13;
constexpr std::size_t kLeafHeader = 8;
constexpr std::size_t kFaultColumns = 16;

/// A part of the file; bytes beyond the end of the file read as 0.
class Bytes
{
public:
    Bytes(PageFile const& file, std::int64_t offset) : m_bytes(kLargestPage)
    {
        m_bytes.resize(file.read(offset, m_bytes.data(), m_bytes.size()));
    }

    unsigned char at(std::size_t index) const
    {
        return index < m_bytes.size() ? static_cast<unsigned char>(m_bytes[index]) : static_cast<unsigned char>(0);
    }
    std::size_t number16(std::size_t index) const { return at(index) * std::size_t(256) + at(index + 1); }

    /// Reads an integer of SQLite's variable-length format and moves `index` behind it.
    std::uint64_t number(std::size_t& index) const
    {
        std::uint64_t value = 0;
        for (int count = 0; count < 8; ++count)
        {
            unsigned char const byte = at(index++);
            value = value << 7U | (byte & 0x7fU);
            if (byte < 0x80U)
            {
                return value;
            }
        }
        return value << 8U | at(index++);
    }

private:
    std::vector<char> m_bytes;
};

/// Whether the cell at `index` is a row with the number of columns of a fault and with its key first.
bool isFault(Bytes const& page, std::size_t index)
{
    static_cast<void>(page.number(index)); // Size of the record.
    static_cast<void>(page.number(index)); // Key.
    std::size_t const begin = index;
    std::uint64_t const headerSize = page.number(index);
    std::size_t const end = begin + static_cast<std::size_t>(std::min<std::uint64_t>(headerSize, kLargestPage));
    std::size_t columns = 0;
    bool isKeyNull = false;
    while (index < end)
    {
        std::uint64_t const type = page.number(index);
        isKeyNull = isKeyNull || (columns == 0 && type == 0);
        ++columns;
    }
    return index == end && columns == kFaultColumns && isKeyNull;
}

bool isFaultLeaf(Bytes const& page)
{
    std::size_t const cells = page.number16(3);
    if (page.at(0) != kTableLeaf || cells == 0)
    {
        return false;
    }
    std::size_t const first = page.number16(kLeafHeader);
    std::size_t const last = page.number16(kLeafHeader + 2 * (cells - 1));
    return first >= kLeafHeader && last >= kLeafHeader && isFault(page, first) && isFault(page, last);
}

} // namespace

PageFile::PageFile(sqlite::Connection const& connection)
{
    sqlite3_int64 size = 0;
    if (sqlite3_file_control(connection.get(), "main", SQLITE_FCNTL_FILE_POINTER, &m_file) != SQLITE_OK ||
        m_file == nullptr || m_file->pMethods == nullptr || m_file->pMethods->xFileSize(m_file, &size) != SQLITE_OK)
    {
        throw sqlite::Error(nullptr, SQLITE_IOERR_FSTAT); // With size 0, the copy would be empty.
    }
    m_size = size;
}

std::size_t PageFile::read(std::int64_t offset, char* bytes, std::size_t size) const
{
    auto const count =
        static_cast<std::size_t>(std::clamp<std::int64_t>(m_size - offset, 0, static_cast<std::int64_t>(size)));
    int const code = count == 0 ? SQLITE_OK : m_file->pMethods->xRead(m_file, bytes, static_cast<int>(count), offset);
    if (code == SQLITE_IOERR_SHORT_READ)
    {
        return 0; // The file has become shorter meanwhile.
    }
    if (code != SQLITE_OK)
    {
        throw sqlite::Error(nullptr, code);
    }
    return count;
}

bool hasDatabaseHeader(PageFile const& file)
{
    constexpr std::string_view kMagic("SQLite format 3\0", 16);
    std::array<char, kMagic.size()> bytes = {};
    return file.read(0, bytes.data(), bytes.size()) == kMagic.size() &&
           std::string_view(bytes.data(), bytes.size()) == kMagic;
}

bool holdsFaults(PageFile const& file)
{
    // Try every offset a page can have: only the first page, which may be damaged, holds the page size.
    for (std::int64_t offset = 0; offset < file.size(); offset += kSmallestPage)
    {
        char type = 0;
        if (file.read(offset, &type, 1) == 1 && type == kTableLeaf && isFaultLeaf(Bytes(file, offset)))
        {
            return true;
        }
    }
    return false;
}

} // namespace firaim
