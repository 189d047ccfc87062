#pragma once

#include <tool/pages/ByteSource.h>
#include <tool/pages/FileHeader.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// Bytes in memory, some of which cannot be read.
class MemoryBytes : public tool::ByteSource
{
public:
    explicit MemoryBytes(std::string bytes) : m_bytes(std::move(bytes)) {}

    std::uint64_t size() const override { return m_bytes.size(); }
    bool read(std::uint64_t offset, char* bytes, std::size_t count) const override;

    /// Makes reading fail for each range that has this byte.
    void breakAt(std::uint64_t offset) { m_broken.push_back(offset); }

private:
    std::string m_bytes;
    std::vector<std::uint64_t> m_broken;
};

/// `value` as `width` bytes, the highest first.
std::string bigEndianBytes(std::uint64_t value, std::size_t width);
/// As SQLite's integer of variable length.
std::string varint(std::uint64_t value);
/// A record of texts.
std::string recordOf(std::vector<std::string> const& texts);
/// A cell of a leaf whose record is on the page.
std::string leafCell(std::int64_t key, std::string const& record);
/// A cell of a leaf with any payload size, and the bytes behind its key.
std::string leafCell(std::int64_t key, std::uint64_t payloadSize, std::string const& bytes);
std::string interiorCell(tool::PageNumber child, std::int64_t key);

/// The size of the pages of these tests: the smallest one.
constexpr std::size_t kPageSize = 512;

/// A page of a table, to which cells are added from its end on.
class PageBuilder
{
public:
    static PageBuilder leaf() { return PageBuilder(13); }
    static PageBuilder interior(tool::PageNumber lastChild);

    PageBuilder& add(std::string const& cell);
    /// Adds a pointer without a cell.
    PageBuilder& point(std::size_t offset);
    /// Replaces bytes.
    PageBuilder& put(std::size_t offset, std::string const& bytes);
    std::string const& bytes() const { return m_bytes; }
    /// Where the cell that was added last begins.
    std::size_t lastCell() const { return m_content; }

private:
    explicit PageBuilder(char type);

    std::string m_bytes;
    std::size_t m_header;
    std::size_t m_content = kPageSize;
    std::size_t m_count = 0;
};

/// A leaf with rows of one short text for these keys.
std::string leafWith(std::vector<std::int64_t> const& keys);
/// Page 1: a sound header that states `pageCount` pages, and an empty leaf.
std::string firstPage(tool::PageNumber pageCount, tool::PageNumber firstTrunk = 0, std::uint32_t freePages = 0);
