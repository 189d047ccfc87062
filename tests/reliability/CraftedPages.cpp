#include "DamagedSet.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace
{

std::string bigEndian(std::uint64_t number, std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t i = size; i-- > 0; number >>= 8)
    {
        bytes[i] = static_cast<char>(number & 0xff);
    }
    return bytes;
}

/// A sound file that is changed byte by byte.
class Draft
{
public:
    explicit Draft(SoundFile const& sound) : m_sound(sound), m_bytes(sound.bytes) {}

    Draft& set(std::size_t offset, std::string const& content)
    {
        m_bytes.replace(offset, content.size(), content);
        return *this;
    }

    Draft& setChild(PageNumber parent, std::size_t index, std::uint64_t child)
    {
        return set(cellOffset(m_sound.bytes, parent, index), bigEndian(child, 4));
    }

    Draft& setPointer(PageNumber page, std::size_t index, std::uint64_t offset)
    {
        return set(cellPointer(m_sound.bytes, page, index), bigEndian(offset, 2));
    }

    DamagedFile named(std::string const& what, std::string const& damage) const
    {
        return changedFile(m_sound, what, damage, m_bytes);
    }

    /// As `named`, for a change after which all rows can still be read.
    DamagedFile readable(std::string const& what, std::string const& damage) const
    {
        DamagedFile file = named(what, damage);
        file.mayBeComplete = true;
        return file;
    }

    /// As `named`, where rows of sound pages may be doubtful, too.
    DamagedFile ambiguous(std::string const& what, std::string const& damage) const
    {
        DamagedFile file = named(what, damage);
        file.isAmbiguous = true;
        return file;
    }

private:
    SoundFile const& m_sound;
    std::string m_bytes;
};

PageNumber childOf(SoundFile const& sound, PageNumber parent, std::size_t index)
{
    return static_cast<PageNumber>(numberAt(sound.bytes, cellOffset(sound.bytes, parent, index), 4));
}

DamagedSet lyingParents()
{
    SoundFile const& plain = SoundFile::plain();
    SoundFile const& deep = SoundFile::threeLevels();
    PageNumber const root = plain.rootOf("FdbFaultTbl");
    PageNumber const deepRoot = deep.rootOf("FdbFaultTbl");
    PageNumber const middle = childOf(deep, deepRoot, 0);
    return {
        Draft(plain).setChild(root, 3, root).named("loop-of-root", "a child of the root is the root"),
        Draft(deep).setChild(middle, 5, deepRoot).named("loop-to-root", "a child of an interior page is the root"),
        Draft(deep).setChild(middle, 5, middle).named("loop-of-interior", "an interior page is a child of its own"),
        Draft(plain).setChild(root, 5, childOf(plain, root, 6)).ambiguous("child-twice", "two children are one page"),
        Draft(deep)
            .setChild(deepRoot, 0, childOf(deep, middle, 4))
            .ambiguous("child-leaf", "a child is a leaf below it"),
        Draft(plain).setChild(root, 3, 0).named("child-0", "a child is page 0"),
        Draft(plain).setChild(root, 3, 1).named("child-1", "a child is the first page"),
        Draft(plain).setChild(root, 3, 5000).named("child-beyond", "a child lies behind the file"),
        Draft(plain).setChild(root, 3, 0xffffffff).named("child-largest", "a child has the largest number"),
        Draft(plain)
            .setChild(root, 3, plain.rootOf("FdbFaultStatisticTbl"))
            .named("child-of-statistics", "a child is the table of statistics"),
        Draft(plain)
            .set(pageHeader(plain.bytes, root) + 3, "\xff\xff")
            .named("root-cell-count", "the root says that it has 65535 cells"),
    };
}

DamagedSet lyingCells()
{
    SoundFile const& plain = SoundFile::plain();
    PageNumber const leaf = *std::next(plain.faultPages.leaves.begin(), 20);
    std::size_t const header = pageHeader(plain.bytes, leaf);
    std::size_t const cell = cellOffset(plain.bytes, leaf, 4);
    auto const inPage = static_cast<std::size_t>(cell - header);
    std::size_t const payload = varintAt(plain.bytes, cell).size;
    std::size_t const record = cell + payload + varintAt(plain.bytes, cell + payload).size;
    std::string const huge(9, '\xff');
    return {
        Draft(plain).setPointer(leaf, 3, inPage).named("cell-twice", "two pointers lead to one cell"),
        Draft(plain).setPointer(leaf, 3, inPage + 7).named("cells-overlap", "a cell begins within another"),
        Draft(plain).setPointer(leaf, 3, 0xffff).named("cell-beyond", "a cell lies behind the page"),
        Draft(plain).setPointer(leaf, 3, plain.pageSize - 1).named("cell-at-end", "a cell begins with the last byte"),
        Draft(plain).setPointer(leaf, 3, 4).named("cell-in-header", "a cell lies in the header of the page"),
        Draft(plain).set(header + 3, "\xff\xff").named("cell-count", "a leaf says that it has 65535 cells"),
        Draft(plain).set(cell, huge).named("payload-huge", "a cell is longer than any file"),
        Draft(plain).set(cell, std::string("\xa0\x00", 2)).named("payload-beyond", "a cell is longer than the page"),
        Draft(plain).set(cell, std::string("\x82\x80\x80\x80\x00", 5)).named("payload-512-mib", "a cell of 512 MiB"),
        Draft(plain).set(cell + payload, huge).named("key-huge", "a key has nine bytes of ones"),
        Draft(plain).set(record, huge).named("record-header-huge", "a record's header is longer than the record"),
        Draft(plain).set(record, std::string(1, '\0')).named("record-header-0", "a record's header has no length"),
        Draft(plain).set(record + 2, huge).named("type-huge", "a cell of a record has a huge length"),
        Draft(plain).set(record + 3, "\x0a\x0b").named("type-reserved", "cells of a record have reserved types"),
        Draft(plain).set(header + 1, bigEndian(inPage, 2)).readable("free-block", "a free block lies within a cell"),
        Draft(plain).set(header, "\x0a").named("leaf-of-index", "a leaf is one of an index"),
        Draft(plain).set(header, "\x05").named("leaf-is-interior", "a leaf says that it is an interior page"),
        Draft(plain).set(header, std::string(1, '\0')).named("leaf-of-no-kind", "a leaf is of no kind"),
    };
}

/// Two pages with the same keys and different texts: nobody knows which is right.
DamagedFile conflictingCopy()
{
    SoundFile const& plain = SoundFile::plain();
    auto const leaf = std::next(plain.faultPages.leaves.begin(), 30);
    std::string copy = plain.page(*leaf);
    copy.replace(copy.find("parameter "), 9, "PARAMETER");
    return Draft(plain)
        .set((*std::next(leaf) - 1) * plain.pageSize, copy)
        .ambiguous("conflicting-copy", "a leaf holds an older version of another leaf");
}

/// Offset of the pointer to `first`, the first overflow page of a row.
std::size_t overflowPointer(SoundFile const& sound, PageNumber first)
{
    std::string const number = bigEndian(first, 4);
    for (PageNumber const leaf : sound.faultPages.leaves)
    {
        std::size_t const found = sound.page(leaf).find(number);
        if (found != std::string::npos)
        {
            return (leaf - 1) * sound.pageSize + found;
        }
    }
    throw std::runtime_error("no row has the overflow page " + std::to_string(first));
}

/// The first pages of chains of at least two overflow pages.
std::vector<PageNumber> overflowChains(SoundFile const& sound)
{
    std::set<PageNumber> followers;
    std::set<PageNumber> firsts;
    for (PageNumber const page : sound.faultPages.all())
    {
        bool const isOverflow = sound.faultPages.leaves.count(page) == 0 && sound.faultPages.interior.count(page) == 0;
        auto const next = static_cast<PageNumber>(numberAt(sound.bytes, (page - 1) * sound.pageSize, 4));
        if (isOverflow && next != 0)
        {
            followers.insert(next);
            firsts.insert(page);
        }
    }
    std::vector<PageNumber> chains;
    std::set_difference(firsts.begin(), firsts.end(), followers.begin(), followers.end(), std::back_inserter(chains));
    return chains;
}

DamagedSet lyingOverflow()
{
    SoundFile const& sound = SoundFile::longTexts();
    std::vector<PageNumber> const chains = overflowChains(sound);
    PageNumber const page = chains.at(3);
    PageNumber const other = chains.at(5);
    std::size_t const offset = (page - 1) * sound.pageSize;
    std::size_t const pointer = overflowPointer(sound, page);
    PageNumber const leaf = *sound.faultPages.leaves.begin();
    return {
        Draft(sound).set(offset, bigEndian(page, 4)).named("overflow-loop", "an overflow page follows itself"),
        Draft(sound).set(offset, bigEndian(1, 4)).named("overflow-to-1", "an overflow page leads to the first page"),
        Draft(sound).set(offset, bigEndian(leaf, 4)).named("overflow-to-leaf", "an overflow page leads to a leaf"),
        Draft(sound).set(offset, bigEndian(5000, 4)).named("overflow-beyond", "an overflow page leads out of the file"),
        Draft(sound).set(offset, bigEndian(other, 4)).named("overflow-crossed", "two chains of overflow pages meet"),
        Draft(sound).set(offset, bigEndian(0, 4)).named("overflow-short", "a chain of overflow pages ends early"),
        Draft(sound).set(pointer, bigEndian(other, 4)).named("overflow-shared", "two rows share one overflow page"),
        Draft(sound).set(pointer, bigEndian(0, 4)).named("overflow-none", "a long row has no overflow page"),
    };
}

} // namespace

DamagedSet craftedPages()
{
    DamagedSet all;
    for (DamagedSet const& files : {lyingParents(), lyingCells(), DamagedSet{conflictingCopy()}, lyingOverflow()})
    {
        all.insert(all.end(), files.begin(), files.end());
    }
    return all;
}
