#pragma once

#include <tool/pages/PageFile.h>

#include <vector>

namespace tool
{

/// The free pages of a file: trunk pages, which name each other and the remaining free pages.
class Freelist
{
public:
    /// Reads the list as far as it makes sense.
    explicit Freelist(PageFile const& file);

    /// The pages that were found, trunk pages among them, each once.
    std::vector<PageNumber> const& pages() const { return m_pages; }
    /// Whether it has as many pages as the header says.
    bool isWhole() const { return m_isWhole; }

private:
    bool readTrunk(PageFile const& file, PageNumber& trunk);
    bool add(PageNumber page);

    std::vector<PageNumber> m_pages;
    std::vector<bool> m_isFree; ///< by page number
    bool m_isWhole = false;
};

} // namespace tool
