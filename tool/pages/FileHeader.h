#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tool
{

/// The number of a page; the first page of a file is 1.
using PageNumber = std::uint32_t;

/// The first 100 bytes of a database file. A field that cannot be right is 0.
struct FileHeader
{
    static constexpr std::size_t kSize = 100;
    static constexpr std::uint32_t kSmallestPage = 512;
    static constexpr std::uint32_t kLargestPage = 65536;
    static constexpr std::uint32_t kSmallestUsable = 480; ///< SQLite refuses pages with less room for content.

    bool isDatabase = false;     ///< begins with SQLite's text, and its page size and reserved bytes can be right
    std::uint32_t pageSize = 0;  ///< in bytes
    std::uint32_t reserved = 0;  ///< bytes at the end of each page that hold no content
    PageNumber pageCount = 0;    ///< 0 also if the last writer did not maintain the field
    PageNumber firstTrunk = 0;   ///< of the freelist; 0: no free pages
    std::uint32_t freePages = 0; ///< trunk pages included
    bool isAutoVacuum = false;   ///< some pages are pointer maps

    /// Reads the header from the start of `bytes`, which may be shorter.
    static FileHeader parse(std::string_view bytes);
};

} // namespace tool
