#include <tool/pages/FileHeader.h>

#include <tool/pages/BigEndian.h>

namespace tool
{

namespace
{

constexpr std::string_view kMagic("SQLite format 3\0", 16);

/// Offsets of the fields.
constexpr std::size_t kPageSize = 16;
constexpr std::size_t kReserved = 20;
constexpr std::size_t kChangeCounter = 24;
constexpr std::size_t kPageCount = 28;
constexpr std::size_t kFirstTrunk = 32;
constexpr std::size_t kFreePages = 36;
constexpr std::size_t kLargestRoot = 52;
constexpr std::size_t kVersionValidFor = 92;

std::uint32_t pageSizeIn(std::string_view bytes)
{
    auto const field = static_cast<std::uint32_t>(bigEndian(bytes, kPageSize, 2));
    std::uint32_t const size = field == 1 ? FileHeader::kLargestPage : field;
    bool const isPowerOfTwo = (size & (size - 1)) == 0;
    return isPowerOfTwo && size >= FileHeader::kSmallestPage ? size : 0;
}

} // namespace

FileHeader FileHeader::parse(std::string_view bytes)
{
    FileHeader header;
    if (bytes.size() < kSize || bytes.substr(0, kMagic.size()) != kMagic)
    {
        return header;
    }
    header.pageSize = pageSizeIn(bytes);
    header.reserved = static_cast<unsigned char>(bytes[kReserved]);
    header.isDatabase = header.pageSize != 0 && header.pageSize - header.reserved >= FileHeader::kSmallestUsable;
    if (!header.isDatabase)
    {
        return FileHeader();
    }
    // Writers older than the field leave another number in one of the two counters.
    bool const isPageCountValid = bigEndian32(bytes, kChangeCounter) == bigEndian32(bytes, kVersionValidFor);
    header.pageCount = isPageCountValid ? bigEndian32(bytes, kPageCount) : 0;
    header.firstTrunk = bigEndian32(bytes, kFirstTrunk);
    header.freePages = bigEndian32(bytes, kFreePages);
    header.isAutoVacuum = bigEndian32(bytes, kLargestRoot) != 0;
    return header;
}

} // namespace tool
