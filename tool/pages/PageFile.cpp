#include <tool/pages/PageFile.h>

#include <tool/pages/TablePage.h>

#include <algorithm>
#include <limits>

namespace tool
{

namespace
{

/// So many pages of each size are tried to find the size of a file's pages.
constexpr PageNumber kPagesToTry = 4096;

PageNumber pagesIn(std::uint64_t size, std::uint32_t pageSize)
{
    constexpr std::uint64_t kMost = std::numeric_limits<PageNumber>::max() - 1;
    return static_cast<PageNumber>(std::min(kMost, size / pageSize));
}

} // namespace

PageFile::PageFile(ByteSource const& file, ByteSource const* log) : m_file(file), m_log(log)
{
    if (log != nullptr)
    {
        m_frames.emplace(*log);
    }
    readHeader();
    if (m_pageSize == 0)
    {
        m_pageSize = findPageSize();
    }
    countPages();
}

/// Takes the header if it and the rest of page 1 are sound.
void PageFile::readHeader()
{
    std::string bytes(FileHeader::kSize, '\0');
    auto const offset = m_frames ? m_frames->offsetOf(1) : std::nullopt;
    bool const isRead =
        offset ? m_log->read(*offset, bytes.data(), bytes.size()) : m_file.read(0, bytes.data(), bytes.size());
    FileHeader const header = FileHeader::parse(isRead ? bytes : std::string());
    if (header.isDatabase && isFirstPageSound(header))
    {
        m_header = header;
        m_isHeaderSound = true;
    }
}

/// Leaves the size of the pages set if it can be right.
bool PageFile::isFirstPageSound(FileHeader const& header)
{
    m_pageSize = header.pageSize;
    countPages();
    std::string bytes;
    TablePage page;
    bool const isSound = read(1, bytes) && page.parse(bytes, 1, header.reserved);
    m_pageSize = isSound ? m_pageSize : 0;
    return isSound;
}

/// The size with which the most bytes of the file are in pages of tables.
std::uint32_t PageFile::findPageSize()
{
    if (m_frames && m_frames->pageSize() != 0)
    {
        return m_frames->pageSize();
    }
    std::uint32_t best = 0;
    std::uint64_t mostBytes = 0;
    std::string bytes;
    TablePage page;
    for (std::uint32_t size = FileHeader::kSmallestPage; size <= FileHeader::kLargestPage; size *= 2)
    {
        bytes.resize(size);
        std::uint64_t bytesInTables = 0;
        // Page 1, which may have lost its header only, says nothing here.
        PageNumber const end = std::min(pagesIn(m_file.size(), size), kPagesToTry);
        for (PageNumber number = 2; number <= end; ++number)
        {
            bool const isPage =
                m_file.read(std::uint64_t{number - 1} * size, bytes.data(), size) && page.parse(bytes, number, 0);
            bool const hasContent = isPage && !(page.isLeaf() && page.cells().empty());
            bytesInTables += hasContent ? size : 0;
        }
        if (bytesInTables > mostBytes)
        {
            best = size;
            mostBytes = bytesInTables;
        }
    }
    return best;
}

void PageFile::countPages()
{
    if (m_pageSize == 0)
    {
        return;
    }
    m_pageCount = pagesIn(m_file.size(), m_pageSize);
    m_statedPageCount = m_header.pageCount != 0 ? m_header.pageCount : m_pageCount;
    if (m_frames && m_frames->pageCount() != 0)
    {
        // The file may lack pages that only the log has, and have pages that the log has cut off.
        m_statedPageCount = m_frames->pageCount();
        m_pageCount = std::min(m_statedPageCount, std::max(m_pageCount, m_frames->lastPage()));
    }
}

bool PageFile::read(PageNumber page, std::string& bytes) const
{
    if (page == 0 || page > m_pageCount)
    {
        return false;
    }
    bytes.resize(m_pageSize);
    if (auto const offset = m_frames && m_frames->pageSize() == m_pageSize ? m_frames->offsetOf(page) : std::nullopt)
    {
        return m_log->read(*offset, bytes.data(), bytes.size());
    }
    return m_file.read(std::uint64_t{page - 1} * m_pageSize, bytes.data(), bytes.size());
}

} // namespace tool
