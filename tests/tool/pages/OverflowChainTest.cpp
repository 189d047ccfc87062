// Chains of overflow pages, and each way in which they are wrong.

#include "pages/PageSupport.h"

#include <tool/pages/OverflowChain.h>
#include <tool/pages/PageFile.h>

#include <gmock/gmock.h>

namespace
{

using tool::OverflowChain;
using tool::PageFile;
using tool::PageNumber;
using tool::PageUse;
using tool::TablePage;

constexpr std::size_t kContent = kPageSize - 4;

std::string overflowPage(PageNumber next, char content)
{
    return bigEndianBytes(next, 4) + std::string(kContent, content);
}

/// A file whose pages 3, 4 and 5 are a chain.
class OverflowChainTest : public testing::Test
{
protected:
    /// Claims the chain of these rows, then reads that of the first one.
    bool read(std::vector<TablePage::Cell> const& cells)
    {
        std::string all;
        for (std::string const& page : pages)
        {
            all += page;
        }
        MemoryBytes const bytes(all);
        PageFile const file(bytes);
        PageUse use(file.pageCount());
        use.set(2, PageUse::TREE);
        OverflowChain chain(file, use);
        for (TablePage::Cell const& cell : cells)
        {
            chain.claim(cell);
        }
        bool const isRead = chain.read(cells[0]);
        payload = chain.payload();
        problem = chain.problem();
        lastPage = chain.lastPage();
        return isRead;
    }

    static TablePage::Cell row(PageNumber first, std::size_t overflowing)
    {
        return {1, 4 + overflowing, "head", first};
    }

    std::vector<std::string> pages = {firstPage(6),         leafWith({1}),        overflowPage(4, 'a'),
                                      overflowPage(5, 'b'), overflowPage(0, 'c'), overflowPage(4, 'd')};
    std::string payload;
    std::string problem;
    std::string lastPage;
};

} // namespace

TEST_F(OverflowChainTest, JoinsThePages)
{
    ASSERT_TRUE(read({row(3, 2 * kContent + 2)}));
    EXPECT_EQ(payload, "head" + std::string(kContent, 'a') + std::string(kContent, 'b') + "cc");
    EXPECT_EQ(lastPage, pages[4]);
}

TEST_F(OverflowChainTest, RefusesAChainThatEndsTooEarly)
{
    EXPECT_FALSE(read({row(4, 2 * kContent + 1)}));
    EXPECT_EQ(problem, "the chain of its overflow pages ends too early");
    EXPECT_EQ(payload.size(), 4 + 2 * kContent) << "the part that is there";
}

TEST_F(OverflowChainTest, RefusesAChainThatGoesOn)
{
    EXPECT_FALSE(read({row(3, 2 * kContent)}));
    EXPECT_EQ(problem, "the chain of its overflow pages does not end with the row");
}

TEST_F(OverflowChainTest, RefusesAPageOutsideOfTheFile)
{
    pages[3] = overflowPage(7, 'b');
    EXPECT_FALSE(read({row(3, 2 * kContent + 1)}));
    EXPECT_EQ(problem, "one of its overflow pages is missing in the file");
}

TEST_F(OverflowChainTest, RefusesAPageOfATree)
{
    pages[3] = overflowPage(2, 'b');
    EXPECT_FALSE(read({row(3, 2 * kContent + 1)}));
    EXPECT_EQ(problem, "one of its overflow pages is in use by something else");
}

TEST_F(OverflowChainTest, RefusesALoop)
{
    pages[4] = overflowPage(3, 'c');
    EXPECT_FALSE(read({row(3, 3 * kContent + 1)}));
    EXPECT_EQ(problem, "one of its overflow pages is in use by something else");
}

TEST_F(OverflowChainTest, RefusesAPageThatTwoRowsShareForBoth)
{
    TablePage::Cell const first = row(3, 2 * kContent + 1);
    TablePage::Cell const second = row(6, 2 * kContent + 1);
    ASSERT_TRUE(read({first}));
    EXPECT_FALSE(read({first, second}));
    EXPECT_FALSE(read({second, first}));
}

TEST_F(OverflowChainTest, RefusesARowThatIsLongerThanTheFile)
{
    EXPECT_FALSE(read({{1, std::uint64_t{1} << 60, "head", 3}}));
    EXPECT_EQ(problem, "it is longer than the file");
}
