#include <tool/pages/OverflowChain.h>

#include <tool/pages/BigEndian.h>

#include <algorithm>

namespace tool
{

namespace
{

/// The number of the next page, at the start of each overflow page.
constexpr std::size_t kNextSize = 4;

/// SQLite writes no longer record unless it was built to do so.
constexpr std::uint64_t kLongestRecord = 1000000000;

PageNumber nextPage(std::string const& page)
{
    return bigEndian32(page, 0);
}

} // namespace

bool OverflowChain::fail(char const* problem)
{
    m_problem = problem;
    return false;
}

std::size_t OverflowChain::contentSize() const
{
    return m_file.usableSize() - kNextSize;
}

/// Whether there can be such a record, and the file has as many pages as it needs.
bool OverflowChain::isPossible(TablePage::Cell const& cell) const
{
    return cell.payloadSize <= kLongestRecord &&
           (cell.payloadSize - cell.local.size()) / contentSize() < m_file.pageCount();
}

void OverflowChain::claim(TablePage::Cell const& cell)
{
    if (!isPossible(cell))
    {
        return;
    }
    std::uint64_t left = cell.payloadSize - cell.local.size();
    for (PageNumber page = cell.overflow; left > 0 && m_use.isInside(page); page = nextPage(m_page))
    {
        if (m_use.of(page) != PageUse::UNUSED)
        {
            m_use.set(page, m_use.of(page) == PageUse::OVERFLOW_CHAIN ? PageUse::SHARED : m_use.of(page));
            return;
        }
        m_use.set(page, PageUse::OVERFLOW_CHAIN);
        if (!m_file.read(page, m_page))
        {
            return;
        }
        left -= std::min<std::uint64_t>(left, contentSize());
    }
}

/// Reads a page that only this chain has.
bool OverflowChain::readPage(PageNumber page)
{
    if (!m_use.isInside(page))
    {
        return fail(page == 0 ? "the chain of its overflow pages ends too early"
                              : "one of its overflow pages is missing in the file");
    }
    if (m_use.of(page) != PageUse::OVERFLOW_CHAIN)
    {
        return fail("one of its overflow pages is in use by something else");
    }
    return m_file.read(page, m_page) || fail("one of its overflow pages cannot be read");
}

bool OverflowChain::read(TablePage::Cell const& cell)
{
    m_payload.assign(cell.local);
    m_lastPage = {};
    if (!isPossible(cell))
    {
        return fail("it is longer than the file");
    }
    std::uint64_t left = cell.payloadSize - cell.local.size();
    PageNumber page = cell.overflow;
    while (left > 0)
    {
        if (!readPage(page))
        {
            return false;
        }
        auto const count = static_cast<std::size_t>(std::min<std::uint64_t>(left, contentSize()));
        m_payload.append(m_page, kNextSize, count);
        left -= count;
        page = nextPage(m_page);
    }
    m_lastPage = std::string_view(m_page).substr(0, m_file.usableSize());
    return page == 0 || fail("the chain of its overflow pages does not end with the row");
}

} // namespace tool
