// The keys that are missing, from the lost pages and the sound ones around them.

#include <tool/rescue/MissingKeys.h>

#include <gtest/gtest.h>

#include <limits>

namespace
{

using tool::MissingKeys;
using tool::SurveyedTable;

constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();

void addLeaf(SurveyedTable& table, std::int64_t first, std::int64_t last)
{
    table.leaves.push_back({9, {first, last}, nullptr});
}

void lose(SurveyedTable& table, std::int64_t first, std::int64_t last, bool isInterior = false)
{
    table.lost.push_back({7, {first, last}, isInterior, false, ""});
}

/// "1-5 8-": the last key of the second range is not known.
std::string textOf(MissingKeys const& missing)
{
    std::string text;
    for (MissingKeys::Range const& range : missing.ranges)
    {
        text += (text.empty() ? "" : " ") + std::to_string(range.first) + "-" +
                (range.last ? std::to_string(*range.last) : "");
    }
    return text;
}

} // namespace

TEST(MissingKeysTest, ASoundTableMissesNothing)
{
    SurveyedTable table;
    addLeaf(table, 1, 10);
    addLeaf(table, 50, 60);
    EXPECT_EQ(textOf(tool::findMissingKeys(table, 100)), "");
    EXPECT_TRUE(tool::findMissingKeys(table, std::nullopt).isExact);
}

TEST(MissingKeysTest, ALostLeafMissesTheKeysThatItsParentsLeaveToIt)
{
    SurveyedTable table;
    addLeaf(table, 1, 10);
    lose(table, 11, 20);
    addLeaf(table, 25, 60);
    EXPECT_EQ(textOf(tool::findMissingKeys(table, 60)), "11-20");
    EXPECT_TRUE(tool::findMissingKeys(table, 60).isExact);
}

TEST(MissingKeysTest, NeighbouringLostLeavesAreOneRange)
{
    SurveyedTable table;
    lose(table, 21, 30);
    lose(table, 11, 20);
    lose(table, 41, 50);
    EXPECT_EQ(textOf(tool::findMissingKeys(table, 60)), "11-30 41-50");
}

TEST(MissingKeysTest, ALostParentMissesTheKeysThatItsLeavesDoNotHave)
{
    SurveyedTable table;
    addLeaf(table, 101, 110);
    addLeaf(table, 111, 120);
    addLeaf(table, 131, 140);
    lose(table, 101, 150, true);
    EXPECT_EQ(textOf(tool::findMissingKeys(table, 500)), "121-130 141-150");
    EXPECT_FALSE(tool::findMissingKeys(table, 500).isExact);
}

TEST(MissingKeysTest, TheFirstKeyIsTheSmallestThatTheLibraryUses)
{
    SurveyedTable table;
    lose(table, kLowest, 20);
    addLeaf(table, 21, 30);
    EXPECT_EQ(textOf(tool::findMissingKeys(table, 30)), "1-20");
    EXPECT_FALSE(tool::findMissingKeys(table, 30).isExact) << "the first keys may have been removed long before";
}

TEST(MissingKeysTest, TheEndIsTheLastKeyOrUnknown)
{
    SurveyedTable table;
    addLeaf(table, 1, 10);
    lose(table, 11, kHighest);
    EXPECT_EQ(textOf(tool::findMissingKeys(table, 35)), "11-35");
    EXPECT_EQ(textOf(tool::findMissingKeys(table, 10)), "") << "nothing was behind the leaf";
    EXPECT_EQ(textOf(tool::findMissingKeys(table, std::nullopt)), "11-");
}

TEST(MissingKeysTest, LeavesOfALostRootMayOverlap)
{
    SurveyedTable table;
    addLeaf(table, 1, 10);
    addLeaf(table, 5, 8);
    addLeaf(table, 9, kHighest);
    lose(table, kLowest, kHighest, true);
    EXPECT_EQ(textOf(tool::findMissingKeys(table, std::nullopt)), "");
}
