#include <tool/pages/Freelist.h>

#include <tool/pages/BigEndian.h>

#include <string>

namespace tool
{

namespace
{

/// A trunk page has the number of the next one, the number of its entries, and the entries, each of this size.
constexpr std::size_t kNumberSize = 4;

} // namespace

Freelist::Freelist(PageFile const& file)
{
    if (!file.isHeaderSound())
    {
        return;
    }
    m_isFree.resize(std::size_t{file.pageCount()} + 1);
    bool isGood = true;
    for (PageNumber trunk = file.header().firstTrunk; isGood && trunk != 0;)
    {
        isGood = add(trunk) && readTrunk(file, trunk);
    }
    m_isWhole = isGood && m_pages.size() == file.header().freePages;
    m_isFree = {};
}

/// Takes the entries of a trunk page, and sets `trunk` to the next one.
bool Freelist::readTrunk(PageFile const& file, PageNumber& trunk)
{
    std::string page;
    if (!file.read(trunk, page))
    {
        return false;
    }
    std::uint64_t const count = bigEndian(page, kNumberSize, kNumberSize);
    if (count > file.usableSize() / kNumberSize - 2)
    {
        return false;
    }
    for (std::size_t index = 0; index < count; ++index)
    {
        if (!add(bigEndian32(page, (index + 2) * kNumberSize)))
        {
            return false;
        }
    }
    trunk = bigEndian32(page, 0);
    return true;
}

/// Page 1 is never free, and a page is free once: a list with such an entry is damaged.
bool Freelist::add(PageNumber page)
{
    if (page < 2 || page >= m_isFree.size() || m_isFree[page])
    {
        return false;
    }
    m_isFree[page] = true;
    m_pages.push_back(page);
    return true;
}

} // namespace tool
