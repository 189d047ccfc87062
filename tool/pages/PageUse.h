#pragma once

#include <tool/pages/FileHeader.h>

#include <cstdint>
#include <vector>

namespace tool
{

/// The use of each page of a file, one byte for a page.
class PageUse
{
public:
    enum Use : std::uint8_t
    {
        UNUSED, ///< nothing known names the page
        TREE,
        FREE,
        OVERFLOW_CHAIN,
        SHARED ///< overflow chains of several rows, or something else and a chain, have the page
    };

    explicit PageUse(PageNumber pageCount) : m_uses(std::size_t{pageCount} + 1, UNUSED) {}

    bool isInside(PageNumber page) const { return page != 0 && page < m_uses.size(); }
    /// The use of a page inside of the file.
    Use of(PageNumber page) const { return m_uses[page]; }
    /// Notes the use of a page. Ignores pages outside of the file.
    void set(PageNumber page, Use use)
    {
        if (isInside(page))
        {
            m_uses[page] = use;
        }
    }

private:
    std::vector<Use> m_uses; ///< by page number
};

} // namespace tool
