#include <tool/files/ByteCopy.h>

#include <tool/files/LockedBytes.h>
#include <tool/process/Interrupt.h>

#include <db/internal/Folder.h>

#include <algorithm>
#include <string_view>

#include <sys/stat.h>

namespace tool
{

namespace
{

/// The header of a database file.
constexpr std::size_t kHeaderSize = 100;
constexpr std::string_view kMagic("SQLite format 3\0", 16);
constexpr std::size_t kPageSizeOffset = 16;
constexpr std::size_t kVersionsOffset = 18; ///< the versions needed to write and to read the file
constexpr char kWithLog = 2;
constexpr std::size_t kChangeCounterOffset = 24;
constexpr std::size_t kPageCountOffset = 28;
constexpr std::size_t kCountValidForOffset = 92; ///< value of the change counter when the page count was written

constexpr std::size_t kBytesAtOnce = 1 << 16;

std::uint32_t number(std::string const& bytes, std::size_t offset, std::size_t width)
{
    std::uint32_t value = 0;
    for (std::size_t index = 0; index < width; ++index)
    {
        value = value << 8 | static_cast<unsigned char>(bytes[offset + index]);
    }
    return value;
}

std::string bytesOf(std::uint32_t value)
{
    return {static_cast<char>(value >> 24), static_cast<char>(value >> 16), static_cast<char>(value >> 8),
            static_cast<char>(value)};
}

std::uint32_t pageSizeOf(std::string const& header)
{
    if (header.size() < kHeaderSize || header.compare(0, kMagic.size(), kMagic) != 0)
    {
        return 0;
    }
    std::uint32_t const stored = number(header, kPageSizeOffset, 2);
    std::uint32_t const size = stored == 1 ? 65536 : stored;
    return size >= 512 && (size & (size - 1)) == 0 ? size : 0;
}

PageCounts countPages(std::string const& header, std::uint64_t size)
{
    PageCounts pages;
    pages.size = size;
    pages.pageSize = pageSizeOf(header);
    if (pages.pageSize != 0)
    {
        bool const isCountValid = number(header, kChangeCounterOffset, 4) == number(header, kCountValidForOffset, 4);
        pages.expected = isCountValid ? number(header, kPageCountOffset, 4) : 0;
        pages.whole = size / pages.pageSize;
        pages.isInWalMode = header[kVersionsOffset + 1] == kWithLog;
    }
    return pages;
}

/// Copies the bytes from `offset` on; where the medium fails, page by page.
void copyPart(LockedBytes const& file, TemporaryFile const& copy, std::uint64_t offset, std::string& bytes,
              ByteCopy& result)
{
    if (file.tryRead(offset, bytes.data(), bytes.size()) != SQLITE_OK)
    {
        std::size_t const pageSize = result.pages.pageSize;
        for (std::size_t begin = 0; begin < bytes.size(); begin += pageSize)
        {
            if (file.tryRead(offset + begin, &bytes[begin], pageSize) != SQLITE_OK)
            {
                std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(begin), pageSize, '\0');
                result.unreadable.push_back((offset + begin) / pageSize + 1);
            }
        }
    }
    copy.write(offset, bytes.data(), bytes.size());
}

void writePageCount(TemporaryFile const& copy, std::string const& header, std::uint64_t count)
{
    std::string const bytes = bytesOf(static_cast<std::uint32_t>(count));
    copy.write(kPageCountOffset, bytes.data(), bytes.size());
    copy.write(kCountValidForOffset, &header[kChangeCounterOffset], bytes.size());
}

} // namespace

PageCounts countPages(std::string const& path)
{
    struct stat log = {};
    bool const hasLog = stat((folder::withoutLinks(path) + "-wal").c_str(), &log) == 0 && log.st_size > 0;
    LockedBytes const file(path);
    std::string header(kHeaderSize, '\0');
    // Where the header cannot be read, it tells nothing.
    static_cast<void>(file.tryRead(0, header.data(), header.size()));
    PageCounts pages = countPages(header, file.size());
    pages.hasLog = hasLog;
    pages.expected = pages.isInWalMode && hasLog ? 0 : pages.expected;
    return pages;
}

ByteCopy copyBytes(std::string const& path, TemporaryFile const& copy,
                   std::function<void(double share)> const& showShare)
{
    LockedBytes const file(path);
    std::string header(kHeaderSize, '\0');
    int const code = file.tryRead(0, header.data(), header.size());
    if (code != SQLITE_OK)
    {
        throw sqlite::Error(nullptr, code);
    }
    ByteCopy result;
    result.pages = countPages(header, file.size());
    if (result.pages.pageSize == 0)
    {
        throw sqlite::Error(nullptr, SQLITE_NOTADB);
    }
    std::uint64_t const end = result.pages.whole * result.pages.pageSize;
    std::string bytes;
    for (std::uint64_t offset = 0; offset < end; offset += bytes.size())
    {
        interrupt::throwIfPending();
        bytes.resize(static_cast<std::size_t>(std::min<std::uint64_t>(kBytesAtOnce, end - offset)));
        copyPart(file, copy, offset, bytes, result);
        showShare(static_cast<double>(offset) / static_cast<double>(end));
    }
    bool const isLonger = result.pages.expected != 0 && result.pages.expected < result.pages.whole;
    writePageCount(copy, header, isLonger ? result.pages.expected : result.pages.whole);
    leaveWalMode(copy);
    return result;
}

void leaveWalMode(TemporaryFile const& copy)
{
    constexpr char kWithoutLog[] = {1, 1};
    copy.write(kVersionsOffset, kWithoutLog, sizeof kWithoutLog);
}

} // namespace tool
