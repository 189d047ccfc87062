#include <tool/rescue/RowReader.h>

#include <algorithm>

namespace tool
{

namespace
{

/// FNV-1a, continued from `hash`.
std::uint64_t hashOf(std::string_view bytes, std::uint64_t hash = 14695981039346656037u)
{
    for (char const byte : bytes)
    {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 1099511628211u;
    }
    return hash;
}

bool overflows(TablePage::Cell const& cell)
{
    return cell.payloadSize > cell.local.size();
}

} // namespace

bool RowReader::readPage(PageNumber page)
{
    return m_file.read(page, m_bytes) && m_page.parse(m_bytes, page, m_file.header().reserved);
}

void RowReader::prepare(std::vector<SurveyedLeaf> const& leaves)
{
    for (SurveyedLeaf const& leaf : leaves)
    {
        if (!readPage(leaf.page) || std::none_of(m_page.cells().begin(), m_page.cells().end(), overflows))
        {
            continue;
        }
        m_leavesWithOverflow.push_back(leaf.page);
        for (TablePage::Cell const& cell : m_page.cells())
        {
            if (overflows(cell))
            {
                m_chain.claim(cell);
            }
        }
    }
}

/// Finds the last overflow pages that rows with different texts have in common: then one of them may be a copy that has
/// overwritten the page of the other row. Such a page of the middle of a chain is found through its next page.
void RowReader::comparePreparedRows()
{
    std::vector<OverflowHash> hashes;
    for (PageNumber const page : m_leavesWithOverflow)
    {
        if (!readPage(page))
        {
            continue;
        }
        for (TablePage::Cell const& cell : m_page.cells())
        {
            if (overflows(cell) && m_chain.read(cell) && m_record.decode(m_chain.payload()))
            {
                hashes.push_back({hashOf(m_chain.lastPage()), hashOfOverflowingTexts(cell.local.size())});
            }
        }
    }
    std::sort(hashes.begin(), hashes.end());
    for (std::size_t index = 1; index < hashes.size(); ++index)
    {
        bool const isSamePage = hashes[index].lastPage == hashes[index - 1].lastPage;
        if (isSamePage && hashes[index].texts != hashes[index - 1].texts)
        {
            m_sharedLastPages.push_back(hashes[index].lastPage);
        }
    }
    m_leavesWithOverflow = {};
}

std::uint64_t RowReader::hashOfOverflowingTexts(std::size_t localSize) const
{
    std::uint64_t hash = hashOf({});
    char const* const localEnd = m_chain.payload().data() + localSize;
    for (RecordCell const& cell : m_record.cells())
    {
        if (!cell.bytes.empty() && cell.bytes.data() + cell.bytes.size() > localEnd)
        {
            hash = hashOf(cell.bytes, hash);
        }
    }
    return hash;
}

/// A page of zeros is the end of a chain, and its content could be taken for numbers.
bool RowReader::isLastPageEmpty() const
{
    return m_chain.lastPage().find_first_not_of('\0') == std::string_view::npos;
}

bool RowReader::isLastPageShared() const
{
    return !m_sharedLastPages.empty() &&
           std::binary_search(m_sharedLastPages.begin(), m_sharedLastPages.end(), hashOf(m_chain.lastPage()));
}

bool RowReader::read(SurveyedLeaf const& leaf, std::function<void(FoundRow const&)> const& take)
{
    if (!readPage(leaf.page))
    {
        return false;
    }
    for (TablePage::Cell const& cell : m_page.cells())
    {
        readRow(leaf, cell, take);
    }
    return true;
}

void RowReader::readRow(SurveyedLeaf const& leaf, TablePage::Cell const& cell,
                        std::function<void(FoundRow const&)> const& take)
{
    char const* doubt = nullptr;
    if (overflows(cell))
    {
        doubt = readLongRow(cell);
    }
    else if (!m_record.decode(cell.local))
    {
        doubt = "its record is damaged";
    }
    take({cell.key, leaf.page, m_record.cells(), leaf.doubt != nullptr ? leaf.doubt : doubt});
}

/// Decodes a row with overflow pages. Returns why it may be wrong.
char const* RowReader::readLongRow(TablePage::Cell const& cell)
{
    bool const isWhole = m_chain.read(cell);
    bool const isDecoded = m_record.decodeBeginning(m_chain.payload(), cell.payloadSize);
    if (!isWhole)
    {
        return m_chain.problem();
    }
    if (!isDecoded)
    {
        return "its record is damaged";
    }
    if (isLastPageEmpty())
    {
        return "its last overflow page is empty";
    }
    return isLastPageShared() ? "its last overflow page is the same as that of a row with another text" : nullptr;
}

} // namespace tool
