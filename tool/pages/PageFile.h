#pragma once

#include <tool/pages/ByteSource.h>
#include <tool/pages/FileHeader.h>
#include <tool/pages/LogFrames.h>
#include <tool/pages/PageLayout.h>

#include <cstdint>
#include <optional>
#include <string>

namespace tool
{

/// The pages of a database file, under those that its write-ahead log has committed. Nothing in the file is trusted:
/// the size of the pages that page 1 tells is taken only if no other size finds more rows.
class PageFile
{
public:
    /// Reads the header. `file` and `log`, which may be null, must outlive this object.
    explicit PageFile(ByteSource const& file, ByteSource const* log = nullptr);

    /// Whether page 1 has the header of a database and can be read as a page of the table of contents.
    bool isHeaderSound() const { return m_isHeaderSound; }
    /// The header, with the layout that was found. Nothing else has a value unless the header is sound.
    FileHeader const& header() const { return m_header; }
    /// Whether page 1 tells a layout, but the pages have another one.
    bool isLayoutCorrected() const { return m_isLayoutCorrected; }
    /// In bytes; 0 if neither page 1 nor any row tells the size.
    std::uint32_t pageSize() const { return m_pageSize; }
    /// The bytes of a page that hold content.
    std::uint32_t usableSize() const { return m_pageSize - m_header.reserved; }

    /// The number of pages that are there, the last one whole. Pages of the log are counted, too.
    PageNumber pageCount() const { return m_pageCount; }
    /// The number of pages that the header, or the log, says there are; at least `pageCount` if they do not say it. Not
    /// bounded by the size of the file.
    PageNumber statedPageCount() const { return m_statedPageCount; }

    /// Reads a page into `bytes`. Returns false when there is no such page or the storage cannot read it; `bytes` has
    /// then no meaning.
    bool read(PageNumber page, std::string& bytes) const;

private:
    std::string headerBytes() const;
    void findLayout();
    bool isFirstPageSound() const;
    void countPages();

    ByteSource const& m_file;
    std::optional<LogFrames> m_frames;
    ByteSource const* m_log;
    FileHeader m_header;
    bool m_isHeaderSound = false;
    bool m_isLayoutCorrected = false;
    std::uint32_t m_pageSize = 0;
    PageNumber m_pageCount = 0;
    PageNumber m_statedPageCount = 0;
};

} // namespace tool
