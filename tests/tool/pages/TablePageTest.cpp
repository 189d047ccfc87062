// Pages of tables: those that SQLite writes, and each kind of page that it never writes.

#include "pages/PageSupport.h"

#include <tool/pages/TablePage.h>

#include <gmock/gmock.h>

#include <limits>

namespace
{

using tool::TablePage;

constexpr std::int64_t kLargestKey = std::numeric_limits<std::int64_t>::max();

class TablePageTest : public testing::Test
{
protected:
    bool parse(std::string const& bytes, tool::PageNumber number = 2)
    {
        m_bytes = bytes;
        return page.parse(m_bytes, number, 0);
    }
    void expectRefused(PageBuilder const& builder, std::string const& problem)
    {
        EXPECT_FALSE(parse(builder.bytes()));
        EXPECT_EQ(page.problem(), problem);
    }

    TablePage page;

private:
    std::string m_bytes;
};

} // namespace

TEST_F(TablePageTest, GivesTheRowsOfALeaf)
{
    ASSERT_TRUE(parse(PageBuilder::leaf().add(leafCell(-3, "abc")).add(leafCell(kLargestKey, "de")).bytes()));
    EXPECT_TRUE(page.isLeaf());
    ASSERT_EQ(page.cells().size(), 2u);
    EXPECT_EQ(page.cells()[0].key, -3);
    EXPECT_EQ(page.cells()[0].local, "abc");
    EXPECT_EQ(page.cells()[1].key, kLargestKey);
    EXPECT_EQ(page.cells()[1].payloadSize, 2u);
    EXPECT_EQ(page.cells()[1].overflow, 0u);
}

TEST_F(TablePageTest, GivesTheChildrenOfAnInteriorPage)
{
    ASSERT_TRUE(parse(PageBuilder::interior(9).add(interiorCell(7, 100)).add(interiorCell(8, 200)).bytes()));
    EXPECT_FALSE(page.isLeaf());
    ASSERT_EQ(page.children().size(), 3u);
    EXPECT_EQ(page.children()[1].page, 8u);
    EXPECT_EQ(page.children()[1].lastKey, 200);
    EXPECT_EQ(page.children()[2].page, 9u);
    EXPECT_EQ(page.children()[2].lastKey, kLargestKey);
}

TEST_F(TablePageTest, KeepsThePartOfALongRowThatIsOnThePage)
{
    std::size_t const local = tool::localSize(2000, kPageSize);
    std::string const bytes = std::string(local, 'x') + bigEndianBytes(77, 4);
    ASSERT_TRUE(parse(PageBuilder::leaf().add(leafCell(1, 2000, bytes)).bytes()));
    EXPECT_EQ(page.cells()[0].local, std::string(local, 'x'));
    EXPECT_EQ(page.cells()[0].overflow, 77u);
}

TEST_F(TablePageTest, SplitsLongRowsAsTheFileFormatSays)
{
    // Computed by hand for pages of 512 bytes: at most 477 bytes on the leaf, at least 39.
    EXPECT_EQ(tool::localSize(477, 512), 477u);
    EXPECT_EQ(tool::localSize(478, 512), 39u);
    EXPECT_EQ(tool::localSize(39 + 508 + 438, 512), 477u);
    EXPECT_EQ(tool::localSize(39 + 508 + 439, 512), 39u);
}

TEST_F(TablePageTest, ReadsPage1BehindTheHeaderOfTheFile)
{
    EXPECT_TRUE(parse(firstPage(1), 1));
    EXPECT_TRUE(page.cells().empty());
    EXPECT_FALSE(parse(firstPage(1), 2));
}

TEST_F(TablePageTest, RefusesOtherPages)
{
    for (std::string const& bytes : {std::string(kPageSize, '\0'), std::string(kPageSize, '\xff'),
                                     std::string(kPageSize, '\x0a'), std::string(kPageSize, '\x02')})
    {
        EXPECT_FALSE(parse(bytes));
        EXPECT_STREQ(page.problem(), "is no page of a table");
    }
}

TEST_F(TablePageTest, RefusesMoreCellsThanHaveRoom)
{
    expectRefused(PageBuilder::leaf().put(3, bigEndianBytes(253, 2)), "has more cells than room for them");
    expectRefused(PageBuilder::leaf().put(3, "\xff\xff"), "has more cells than room for them");
    expectRefused(PageBuilder::leaf().put(5, bigEndianBytes(kPageSize + 1, 2)), "has more cells than room for them");
    expectRefused(PageBuilder::leaf().put(5, std::string(2, '\0')), "has more cells than room for them");
}

TEST_F(TablePageTest, RefusesFreeSpaceOutsideOfTheRoomForCells)
{
    expectRefused(PageBuilder::leaf().add(leafCell(1, "abc")).put(1, bigEndianBytes(9, 2)),
                  "has its free space outside of the room for cells");
    expectRefused(PageBuilder::leaf().add(leafCell(1, "abc")).put(1, bigEndianBytes(kPageSize - 3, 2)),
                  "has its free space outside of the room for cells");
}

TEST_F(TablePageTest, RefusesACellOutsideOfTheRoomForCells)
{
    expectRefused(PageBuilder::leaf().add(leafCell(1, "abc")).point(8), "has a cell outside of the room for cells");
    expectRefused(PageBuilder::leaf().add(leafCell(1, "abc")).point(kPageSize),
                  "has a cell outside of the room for cells");
    expectRefused(PageBuilder::leaf().add(leafCell(1, "abc")).point(0xffff),
                  "has a cell outside of the room for cells");
}

TEST_F(TablePageTest, RefusesACellThatIsLongerThanThePage)
{
    expectRefused(PageBuilder::leaf().add(leafCell(1, 100, "abc")), "has a cell that is longer than the page");
    expectRefused(PageBuilder::leaf().add(leafCell(1, std::uint64_t{1} << 62, "abc")),
                  "has a cell that is longer than the page");
    expectRefused(PageBuilder::leaf().add(leafCell(1, ~std::uint64_t{0}, "abc")),
                  "has a cell that is longer than the page");
}

TEST_F(TablePageTest, RefusesAPageThatEndsInsideOfANumber)
{
    expectRefused(PageBuilder::leaf().add("\xff"), "ends inside of a cell");
    expectRefused(PageBuilder::leaf().add(std::string("\x01\xff\xff")), "ends inside of a cell");
    expectRefused(PageBuilder::interior(3).add("\xff"), "ends inside of a cell");
    expectRefused(PageBuilder::interior(3).add(std::string("\0\0\0\x02\xff", 5)), "ends inside of a cell");
}

TEST_F(TablePageTest, RefusesCellsThatOverlap)
{
    PageBuilder inside = PageBuilder::leaf();
    inside.add(leafCell(1, "..." + leafCell(2, "a") + "..."));
    expectRefused(inside.point(inside.lastCell() + 5), "has cells that overlap");
}

TEST_F(TablePageTest, RefusesKeysThatDoNotAscend)
{
    expectRefused(PageBuilder::leaf().add(leafCell(2, "a")).add(leafCell(1, "b")), "has keys that do not ascend");
    expectRefused(PageBuilder::leaf().add(leafCell(2, "a")).add(leafCell(2, "b")), "has keys that do not ascend");
    expectRefused(PageBuilder::leaf().add(leafCell(2, "a")).add(leafCell(-1, "b")), "has keys that do not ascend");
    expectRefused(PageBuilder::interior(3).add(interiorCell(4, 2)).add(interiorCell(5, 2)),
                  "has keys that do not ascend");
}

TEST_F(TablePageTest, RefusesAnInteriorPageThatNamesOnePageExceptAtPage1)
{
    expectRefused(PageBuilder::interior(3), "names one page only");
    std::string first = firstPage(3);
    first[100] = 5;
    first.replace(108, 4, bigEndianBytes(3, 4));
    EXPECT_TRUE(parse(first, 1));
    EXPECT_EQ(page.children()[0].page, 3u);
}

TEST_F(TablePageTest, KeepsNothingOfThePageBefore)
{
    ASSERT_TRUE(parse(leafWith({1, 2})));
    EXPECT_FALSE(parse(std::string(kPageSize, '\0')));
    EXPECT_TRUE(page.cells().empty());
}

TEST_F(TablePageTest, UsesNoReservedBytes)
{
    std::string const bytes = leafWith({1});
    EXPECT_FALSE(page.parse(bytes, 2, 20));
}
