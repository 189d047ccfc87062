#pragma once

#include <tool/pages/ByteSource.h>

#include <cstdint>

namespace tool
{

/// How the bytes of a file are divided into pages.
struct PageLayout
{
    std::uint32_t pageSize = 0; ///< in bytes; 0 if it is not known
    std::uint32_t reserved = 0; ///< bytes at the end of each page that hold no content

    bool operator==(PageLayout const& other) const { return pageSize == other.pageSize && reserved == other.reserved; }
    bool operator!=(PageLayout const& other) const { return !(*this == other); }
};

/// The layout under which the file has the most rows; `stated`, the one that its header tells, unless another one has
/// more. A wrong size finds fewer rows: a smaller one cuts pages, and a larger one sees only some of them.
PageLayout findPageLayout(ByteSource const& file, PageLayout const& stated);

} // namespace tool
