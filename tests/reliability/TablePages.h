#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>

using PageNumber = std::uint32_t; ///< the first page of a file is page 1

/// The pages of one table of a sound file, found without SQLite by a walk through its tree.
///
/// The walk trusts the file: it is for files that a test has made, not for damaged ones.
struct TablePages
{
    std::set<PageNumber> interior; ///< the root is among them, unless it is a leaf
    std::set<PageNumber> leaves;
    std::map<long long, std::set<PageNumber>> rows; ///< by key: the leaf page of the row, and its overflow pages

    std::set<PageNumber> all() const; ///< interior pages, leaf pages and overflow pages
};

std::size_t pageSizeOf(std::string const& file);

TablePages tablePages(std::string const& file, PageNumber root);

/// Unsigned big-endian number in `size` bytes of the file.
std::uint64_t numberAt(std::string const& file, std::size_t offset, std::size_t size);

/// A variable-length integer: up to 8 bytes with 7 bits each, then one with 8 bits.
struct Varint
{
    std::uint64_t value;
    std::size_t size; ///< bytes in the file
};
Varint varintAt(std::string const& file, std::size_t offset);

/// Offset in the file of a page's header, which page 1 has behind the header of the file.
std::size_t pageHeader(std::string const& file, PageNumber page);

/// Offset in the file of cell `index` of a page.
std::size_t cellOffset(std::string const& file, PageNumber page, std::size_t index);

/// Offset in the file of the pointer to cell `index` of a page.
std::size_t cellPointer(std::string const& file, PageNumber page, std::size_t index);

std::size_t cellCount(std::string const& file, PageNumber page);
