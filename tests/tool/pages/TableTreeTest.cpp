// Trees of pages: sound ones, and each kind of page that does not belong where a parent names it.

#include "pages/PageSupport.h"

#include <tool/pages/PageFile.h>
#include <tool/pages/TableTree.h>

#include <gmock/gmock.h>

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using tool::PageFile;
using tool::PageNumber;
using tool::TableTree;

constexpr std::size_t kColumns = 1;

std::string interiorWith(std::vector<std::pair<PageNumber, std::int64_t>> const& children, PageNumber last)
{
    PageBuilder page = PageBuilder::interior(last);
    for (auto const& [child, key] : children)
    {
        page.add(interiorCell(child, key));
    }
    return page.bytes();
}

/// A table with its root on page 2, above the leaves 3 to 5 with the keys up to 10, up to 20 and behind.
class TableTreeTest : public testing::Test
{
protected:
    TableTree read(PageNumber root = 2, std::size_t columns = kColumns)
    {
        std::string all;
        for (std::string const& page : pages)
        {
            all += page;
        }
        MemoryBytes bytes(all);
        if (broken != 0)
        {
            bytes.breakAt(broken * kPageSize - 1);
        }
        return TableTree(PageFile(bytes), root, columns);
    }

    static std::vector<PageNumber> leavesOf(TableTree const& tree)
    {
        std::vector<PageNumber> numbers;
        for (TableTree::Leaf const& leaf : tree.leaves())
        {
            numbers.push_back(leaf.page);
        }
        return numbers;
    }

    /// Expects that page 4 is lost for this reason, and its neighbours are not.
    void expectOnlyMiddleLost(std::string const& reason)
    {
        TableTree const tree = read();
        EXPECT_THAT(leavesOf(tree), ElementsAre(3, 5));
        ASSERT_THAT(tree.lost(), SizeIs(1));
        EXPECT_EQ(tree.lost()[0].reason, reason);
        EXPECT_EQ(tree.lost()[0].range.first, 11);
        EXPECT_EQ(tree.lost()[0].range.last, 20);
        EXPECT_FALSE(tree.lost()[0].isInterior);
    }

    std::vector<std::string> pages = {firstPage(5), interiorWith({{3, 10}, {4, 20}}, 5), leafWith({1, 5, 10}),
                                      leafWith({11, 20}), leafWith({21, 30})};
    PageNumber broken = 0;
};

} // namespace

TEST_F(TableTreeTest, GivesTheLeavesInTheOrderOfTheirKeys)
{
    pages[1] = interiorWith({{4, 10}, {3, 20}}, 5);
    std::swap(pages[2], pages[3]);
    TableTree const tree = read();
    EXPECT_THAT(leavesOf(tree), ElementsAre(4, 3, 5));
    EXPECT_THAT(tree.interiorPages(), ElementsAre(2));
    EXPECT_THAT(tree.lost(), IsEmpty());
    EXPECT_EQ(tree.leaves()[2].keys.last, 30);
}

TEST_F(TableTreeTest, ATableMayBeAnEmptyLeaf)
{
    pages[1] = leafWith({});
    EXPECT_TRUE(read().isAccepted());
    EXPECT_THAT(read().lost(), IsEmpty());
}

TEST_F(TableTreeTest, LosesALeafThatIsNone)
{
    pages[3] = std::string(kPageSize, '\0');
    expectOnlyMiddleLost("is no page of a table");
}

TEST_F(TableTreeTest, LosesALeafThatCannotBeRead)
{
    broken = 4;
    expectOnlyMiddleLost("cannot be read from the storage");
}

TEST_F(TableTreeTest, LosesAnEmptyLeaf)
{
    pages[3] = leafWith({});
    expectOnlyMiddleLost("is empty");
}

TEST_F(TableTreeTest, LosesALeafOfAnotherTable)
{
    pages[3] = PageBuilder::leaf().add(leafCell(12, recordOf({"a", "b"}))).bytes();
    expectOnlyMiddleLost("has rows of another table");
}

TEST_F(TableTreeTest, ACopyOfAnotherLeafIsMisplaced)
{
    for (std::size_t const other : {2U, 4U})
    {
        pages[3] = pages[other];
        expectOnlyMiddleLost("has keys of another page");
        EXPECT_TRUE(read().lost()[0].isMisplaced);
    }
}

TEST_F(TableTreeTest, LosesACopyOfTheRootInsteadOfALeaf)
{
    pages[3] = pages[1];
    expectOnlyMiddleLost("has keys of another page");
}

TEST_F(TableTreeTest, LosesAnInteriorPageAmongLeaves)
{
    pages[3] = interiorWith({{3, 12}}, 5);
    expectOnlyMiddleLost("is no leaf, unlike its neighbours");
}

TEST_F(TableTreeTest, LosesAPageOutsideOfTheFile)
{
    for (PageNumber const outside : {0u, 6u, 0xffffffffu})
    {
        pages[1] = interiorWith({{3, 10}, {outside, 20}}, 5);
        TableTree const tree = read();
        EXPECT_THAT(leavesOf(tree), ElementsAre(3, 5)) << outside;
        ASSERT_THAT(tree.lost(), SizeIs(1));
        EXPECT_EQ(tree.lost()[0].page, outside);
    }
}

TEST_F(TableTreeTest, VisitsAPageOnce)
{
    pages[1] = interiorWith({{3, 10}, {3, 20}}, 3);
    TableTree const tree = read();
    EXPECT_THAT(leavesOf(tree), ElementsAre(3));
    EXPECT_THAT(tree.lost(), SizeIs(2));
}

TEST_F(TableTreeTest, EndsInALoop)
{
    pages[1] = interiorWith({{2, 10}}, 2);
    TableTree const tree = read();
    EXPECT_FALSE(tree.isAccepted());
    EXPECT_THAT(tree.lost(), SizeIs(2));
}

TEST_F(TableTreeTest, ALostInteriorPageHasTheRangeOfItsChildren)
{
    pages = {firstPage(7),      interiorWith({{3, 20}}, 4), interiorWith({{5, 10}}, 6), std::string(kPageSize, 'x'),
             leafWith({1, 10}), leafWith({11, 20}),         leafWith({21, 30})};
    TableTree const tree = read();
    EXPECT_THAT(leavesOf(tree), ElementsAre(5, 6));
    ASSERT_THAT(tree.lost(), SizeIs(1));
    EXPECT_TRUE(tree.lost()[0].isInterior);
    EXPECT_EQ(tree.lost()[0].range.first, 21);
}

TEST_F(TableTreeTest, ALeafAmongInteriorPagesIsLostAsOneOfThem)
{
    pages = {firstPage(7),      interiorWith({{3, 20}}, 4), interiorWith({{5, 10}}, 6), leafWith({21, 30}),
             leafWith({1, 10}), leafWith({11, 20}),         leafWith({21, 30})};
    TableTree const tree = read();
    EXPECT_THAT(leavesOf(tree), ElementsAre(5, 6));
    ASSERT_THAT(tree.lost(), SizeIs(1));
    EXPECT_TRUE(tree.lost()[0].isInterior);
    EXPECT_TRUE(tree.lost()[0].isMisplaced);
}

TEST_F(TableTreeTest, ACopyOfAnInteriorPageIsNotFollowed)
{
    pages = {firstPage(7),      interiorWith({{3, 20}}, 4), interiorWith({{5, 10}}, 6), interiorWith({{5, 10}}, 6),
             leafWith({1, 10}), leafWith({11, 20}),         leafWith({21, 30})};
    TableTree const tree = read();
    EXPECT_THAT(leavesOf(tree), ElementsAre(5, 6));
    ASSERT_THAT(tree.lost(), SizeIs(1));
    EXPECT_STREQ(tree.lost()[0].reason, "has keys of another page");
}

TEST_F(TableTreeTest, ARootOfAnotherTableIsNotAccepted)
{
    EXPECT_FALSE(read(2, 16).isAccepted());
    EXPECT_FALSE(read(0).isAccepted());
    EXPECT_FALSE(read(99).isAccepted());
}
