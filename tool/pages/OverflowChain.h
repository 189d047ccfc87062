#pragma once

#include <tool/pages/PageFile.h>
#include <tool/pages/PageUse.h>
#include <tool/pages/TablePage.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace tool
{

/// The overflow pages of rows, which hold what does not fit on the leaf. First `claim` the chains of all rows, so that
/// pages of several chains are known, then `read` the rows.
class OverflowChain
{
public:
    /// Both must outlive this object; `use` has the pages of trees and the free pages.
    OverflowChain(PageFile const& file, PageUse& use) : m_file(file), m_use(use) {}

    /// Follows the chain of a row and marks its pages, or as shared the first one that something else has. Each page is
    /// followed once, so that all calls together take no longer than the file has pages.
    void claim(TablePage::Cell const& cell);
    /// Reads the record of a row. Returns whether all of its pages are there, hold nothing else and end with the
    /// record. The record is in `payload` in any case, as far as it could be read.
    bool read(TablePage::Cell const& cell);

    /// The record that was read last.
    std::string const& payload() const { return m_payload; }
    /// The content of its last overflow page, with the bytes behind its end.
    std::string_view lastPage() const { return m_lastPage; }
    /// Why `read` returned false.
    char const* problem() const { return m_problem; }

private:
    bool isPossible(TablePage::Cell const& cell) const;
    bool readPage(PageNumber page);
    bool fail(char const* problem);
    std::size_t contentSize() const;

    PageFile const& m_file;
    PageUse& m_use;
    std::string m_page;
    std::string m_payload;
    std::string_view m_lastPage;
    char const* m_problem = "";
};

} // namespace tool
