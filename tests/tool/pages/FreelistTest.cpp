// The list of free pages: sound ones, and each way in which it lies.

#include "pages/PageSupport.h"

#include <tool/pages/Freelist.h>

#include <gmock/gmock.h>

namespace
{

using testing::ElementsAre;
using tool::PageFile;
using tool::PageNumber;

std::string trunkPage(PageNumber next, std::vector<PageNumber> const& entries)
{
    std::string page = bigEndianBytes(next, 4) + bigEndianBytes(entries.size(), 4);
    for (PageNumber const entry : entries)
    {
        page += bigEndianBytes(entry, 4);
    }
    page.resize(kPageSize);
    return page;
}

/// The free pages of a file with these pages behind page 1, and whether the list is whole.
std::pair<std::vector<PageNumber>, bool> freePages(std::vector<std::string> const& pages, std::uint32_t stated)
{
    std::string all = firstPage(static_cast<PageNumber>(pages.size() + 1), 2, stated);
    for (std::string const& page : pages)
    {
        all += page;
    }
    MemoryBytes const bytes(all);
    tool::Freelist const list{PageFile(bytes)};
    return {list.pages(), list.isWhole()};
}

} // namespace

TEST(FreelistTest, HasTrunkPagesAndTheirEntries)
{
    std::string const other(kPageSize, 'x');
    auto const [pages, isWhole] = freePages({trunkPage(4, {5}), other, trunkPage(0, {3}), other}, 4);
    EXPECT_THAT(pages, ElementsAre(2, 5, 4, 3));
    EXPECT_TRUE(isWhole);
}

TEST(FreelistTest, IsNotWholeWhenItLies)
{
    std::string const other(kPageSize, 'x');
    std::vector<std::pair<std::string, std::string>> const lists = {
        {"another count", trunkPage(0, {3})},
        {"a loop", trunkPage(2, {3})},
        {"a trunk outside of the file", trunkPage(99, {3})},
        {"an entry outside of the file", trunkPage(0, {3, 99})},
        {"page 1", trunkPage(0, {1, 3})},
        {"an entry twice", trunkPage(0, {3, 3})},
        {"more entries than a page has", bigEndianBytes(0, 4) + std::string(kPageSize - 4, '\x7f')},
    };
    for (auto const& [reason, trunk] : lists)
    {
        EXPECT_FALSE(freePages({trunk, other, other}, 3).second) << reason;
    }
}
