#pragma once

#include <tool/pages/ByteSource.h>
#include <tool/pages/FileHeader.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace tool
{

/// The committed frames of a write-ahead log, as SQLite would take them: those with the salts of the log's header and
/// with right checksums, up to the last one that ends a transaction.
class LogFrames
{
public:
    explicit LogFrames(ByteSource const& log);

    /// The size of the pages; 0 if the log has no valid header.
    std::uint32_t pageSize() const { return m_pageSize; }
    /// The number of pages of the database after the last transaction; 0 if there is none.
    PageNumber pageCount() const { return m_pageCount; }
    /// The largest number of a page in the log; 0 if there is none.
    PageNumber lastPage() const { return m_offsets.empty() ? 0 : m_offsets.rbegin()->first; }
    /// Where in the log the newest content of a page begins; none if the log does not have the page.
    std::optional<std::uint64_t> offsetOf(PageNumber page) const;

private:
    /// The running checksum of the log.
    struct Checksum
    {
        std::uint32_t first = 0;
        std::uint32_t second = 0;

        void add(std::string const& bytes, std::size_t offset, std::size_t size, bool isBigEndian);
    };

    bool readHeader(ByteSource const& log, std::string& header);
    void readFrames(ByteSource const& log, std::string const& header);

    std::uint32_t m_pageSize = 0;
    PageNumber m_pageCount = 0;
    bool m_isBigEndian = false; ///< the checksums read numbers in that order
    Checksum m_checksum;
    std::map<PageNumber, std::uint64_t> m_offsets;
};

} // namespace tool
