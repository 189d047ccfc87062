#pragma once

#include <tool/pages/FileHeader.h>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

namespace tool
{

/// The page of a table's b-tree: a leaf, which holds rows, or an interior page, which names other pages. It is strict:
/// nothing of a page is used unless all of its cells are as SQLite writes them, as random bytes hardly ever are. Only
/// the free space between the cells is not examined.
class TablePage
{
public:
    /// A row of a leaf.
    struct Cell
    {
        std::int64_t key;
        std::uint64_t payloadSize; ///< of the whole record, in bytes
        std::string_view local;    ///< the part of the record that is on this page
        PageNumber overflow;       ///< first page with the rest; 0 if there is none
    };
    /// A page that an interior page names. The page has the keys up to `lastKey` which its predecessors do not have.
    struct Child
    {
        PageNumber page;
        std::int64_t lastKey; ///< the largest number for the last child
    };

    /// Reads page `number`, whose `bytes` must stay until the next call; the last `reserved` bytes hold no content.
    /// Returns whether it is a page of a table.
    bool parse(std::string_view bytes, PageNumber number, std::uint32_t reserved);

    /// Why `parse` returned false.
    char const* problem() const { return m_problem; }

    bool isLeaf() const { return m_isLeaf; }
    /// The rows of a leaf, keys ascending.
    std::vector<Cell> const& cells() const { return m_cells; }
    /// The pages that an interior page names, at least one; keys ascending.
    std::vector<Child> const& children() const { return m_children; }

private:
    bool parseHeader(PageNumber number);
    bool parsePointers();
    bool parseLeafCell(std::size_t offset);
    bool parseInteriorCell(std::size_t offset);
    bool addExtent(std::size_t offset, std::size_t end);
    bool areExtentsSeparate();
    bool fail(char const* problem);

    std::string_view m_bytes; ///< without the reserved ones
    std::size_t m_header = 0; ///< offset of the page header
    std::size_t m_pointers = 0;
    std::size_t m_count = 0;
    std::size_t m_content = 0; ///< offset of the first byte that cells may use
    bool m_isLeaf = false;
    char const* m_problem = "";
    std::vector<Cell> m_cells;
    std::vector<Child> m_children;
    std::vector<std::pair<std::size_t, std::size_t>> m_extents; ///< offset and end of each cell
};

/// How many bytes of a record of `payloadSize` bytes are on its leaf, for pages with `usable` bytes for content.
std::size_t localSize(std::uint64_t payloadSize, std::size_t usable);

} // namespace tool
