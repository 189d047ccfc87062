#include <tool/pages/LogFrames.h>

#include <tool/pages/BigEndian.h>

#include <utility>

namespace tool
{

namespace
{

constexpr std::size_t kHeaderSize = 32;
constexpr std::size_t kFrameHeaderSize = 24;
/// The last bit says in which order the checksums read their numbers.
constexpr std::uint32_t kMagic = 0x377f0682;
constexpr std::uint32_t kVersion = 3007000;

/// Offsets in the header of the log.
constexpr std::size_t kVersionField = 4;
constexpr std::size_t kPageSizeField = 8;
constexpr std::size_t kSaltsField = 16;
constexpr std::size_t kChecksumField = 24;

/// Offsets in the header of a frame.
constexpr std::size_t kFramePage = 0;
constexpr std::size_t kFrameCommit = 4;
constexpr std::size_t kFrameSalts = 8;
constexpr std::size_t kFrameChecksum = 16;

constexpr std::size_t kSaltsSize = 8;

std::uint32_t littleEndian(std::string_view bytes, std::size_t offset)
{
    std::uint32_t const swapped = bigEndian32(bytes, offset);
    return swapped << 24 | (swapped & 0xff00u) << 8 | (swapped >> 8 & 0xff00u) | swapped >> 24;
}

bool isPageSize(std::uint32_t size)
{
    return size >= FileHeader::kSmallestPage && size <= FileHeader::kLargestPage && (size & (size - 1)) == 0;
}

} // namespace

void LogFrames::Checksum::add(std::string const& bytes, std::size_t offset, std::size_t size, bool isBigEndian)
{
    auto const read = isBigEndian ? bigEndian32 : littleEndian;
    for (std::size_t end = offset + size; offset < end; offset += 8)
    {
        first += read(bytes, offset) + second;
        second += read(bytes, offset + 4) + first;
    }
}

LogFrames::LogFrames(ByteSource const& log)
{
    std::string header(kHeaderSize, '\0');
    if (readHeader(log, header))
    {
        readFrames(log, header);
    }
}

bool LogFrames::readHeader(ByteSource const& log, std::string& header)
{
    if (!log.read(0, header.data(), header.size()))
    {
        return false;
    }
    std::uint32_t const magic = bigEndian32(header, 0);
    m_isBigEndian = (magic & 1) != 0;
    m_checksum.add(header, 0, kChecksumField, m_isBigEndian);
    bool const isValid = (magic & ~1u) == kMagic && bigEndian32(header, kVersionField) == kVersion &&
                         isPageSize(bigEndian32(header, kPageSizeField)) &&
                         m_checksum.first == bigEndian32(header, kChecksumField) &&
                         m_checksum.second == bigEndian32(header, kChecksumField + 4);
    m_pageSize = isValid ? bigEndian32(header, kPageSizeField) : 0;
    return isValid;
}

void LogFrames::readFrames(ByteSource const& log, std::string const& header)
{
    std::map<PageNumber, std::uint64_t> pending; // Of the transaction that is being read.
    std::string frame(kFrameHeaderSize + m_pageSize, '\0');
    for (std::uint64_t offset = kHeaderSize; log.read(offset, frame.data(), frame.size()); offset += frame.size())
    {
        m_checksum.add(frame, 0, kFrameSalts, m_isBigEndian);
        m_checksum.add(frame, kFrameHeaderSize, m_pageSize, m_isBigEndian);
        bool const isOfThisLog = frame.compare(kFrameSalts, kSaltsSize, header, kSaltsField, kSaltsSize) == 0;
        PageNumber const page = bigEndian32(frame, kFramePage);
        if (!isOfThisLog || page == 0 || m_checksum.first != bigEndian32(frame, kFrameChecksum) ||
            m_checksum.second != bigEndian32(frame, kFrameChecksum + 4))
        {
            return;
        }
        pending[page] = offset + kFrameHeaderSize;
        if (PageNumber const pageCount = bigEndian32(frame, kFrameCommit); pageCount != 0)
        {
            m_pageCount = pageCount;
            for (auto const& [committedPage, content] : std::exchange(pending, {}))
            {
                m_offsets[committedPage] = content;
            }
        }
    }
}

std::optional<std::uint64_t> LogFrames::offsetOf(PageNumber page) const
{
    auto const found = m_offsets.find(page);
    return found == m_offsets.end() ? std::nullopt : std::optional(found->second);
}

} // namespace tool
