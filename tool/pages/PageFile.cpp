#include <tool/pages/PageFile.h>

#include <tool/pages/TablePage.h>

#include <algorithm>
#include <limits>

namespace tool
{

namespace
{

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
    m_header = FileHeader::parse(headerBytes());
    findLayout();
    m_isHeaderSound = m_header.isDatabase && isFirstPageSound();
    if (!m_isHeaderSound)
    {
        FileHeader layoutOnly;
        layoutOnly.pageSize = m_header.pageSize;
        layoutOnly.reserved = m_header.reserved;
        m_header = layoutOnly;
        countPages();
    }
}

std::string PageFile::headerBytes() const
{
    std::string bytes(FileHeader::kSize, '\0');
    auto const offset = m_frames ? m_frames->offsetOf(1) : std::nullopt;
    bool const isRead =
        offset ? m_log->read(*offset, bytes.data(), bytes.size()) : m_file.read(0, bytes.data(), bytes.size());
    return isRead ? bytes : std::string();
}

/// A log is right about the size, as its frames have checksums, and the file may lack most of its pages.
void PageFile::findLayout()
{
    PageLayout const stated = {m_header.pageSize, m_header.reserved};
    PageLayout layout = stated;
    if (!m_frames || m_frames->pageSize() == 0)
    {
        layout = findPageLayout(m_file, stated);
        m_isLayoutCorrected = stated.pageSize != 0 && layout != stated;
    }
    else if (stated.pageSize == 0)
    {
        layout.pageSize = m_frames->pageSize();
    }
    m_header.pageSize = m_pageSize = layout.pageSize;
    m_header.reserved = layout.reserved;
    countPages();
}

bool PageFile::isFirstPageSound() const
{
    std::string bytes;
    TablePage page;
    return read(1, bytes) && page.parse(bytes, 1, m_header.reserved);
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
