#include <tool/values/Text.h>

#include <gtest/gtest.h>

using namespace tool;

TEST(ContainsIgnoringCase, ComparesAsciiLettersInEitherCase)
{
    EXPECT_TRUE(containsIgnoringCase("No Answer", "o aN"));
    EXPECT_TRUE(containsIgnoringCase("No Answer", ""));
    EXPECT_TRUE(containsIgnoringCase("", ""));
    EXPECT_FALSE(containsIgnoringCase("No Answer", "answers"));
    EXPECT_FALSE(containsIgnoringCase("\u00c4", "\u00e4"));
}

TEST(EqualIgnoringCase, WantsTheSameLength)
{
    EXPECT_TRUE(equalIgnoringCase("FC_Bus_Off", "fc_bUS_oFF"));
    EXPECT_TRUE(equalIgnoringCase("", ""));
    EXPECT_FALSE(equalIgnoringCase("FC_BUS_OFF", "FC_BUS_OF"));
    EXPECT_FALSE(equalIgnoringCase("@[", "`{"));
}

TEST(Hexadecimal, HasTwoDigitsForEachByte)
{
    EXPECT_EQ(hexadecimal(""), "");
    EXPECT_EQ(hexadecimal(std::string_view("\0\x0f\xff", 3)), "000fff");
}

TEST(Counted, HasThePluralUnlessItIsOne)
{
    EXPECT_EQ(counted(0, "row"), "0 rows");
    EXPECT_EQ(counted(1, "row"), "1 row");
    EXPECT_EQ(counted(1234, "row"), "1,234 rows");
}

TEST(Grouped, SeparatesThousands)
{
    EXPECT_EQ(grouped(0), "0");
    EXPECT_EQ(grouped(999), "999");
    EXPECT_EQ(grouped(1000), "1,000");
    EXPECT_EQ(grouped(1234567), "1,234,567");
}
