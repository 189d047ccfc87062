#include <history/FollowPosition.h>

#include <gtest/gtest.h>

#include <limits>

using firaim::FollowPosition;

namespace
{

bool areSame(FollowPosition const& a, FollowPosition const& b)
{
    return a.device == b.device && a.inode == b.inode && a.key == b.key && a.rowHash == b.rowHash;
}

} // namespace

TEST(FollowPosition, IsReadBackFromItsText)
{
    FollowPosition const positions[] = {
        {},
        {1, 2, 3, 4},
        {1, 2, -3, std::nullopt},
        {1, 2, std::nullopt, std::nullopt},
        {std::numeric_limits<std::uint64_t>::max(), std::numeric_limits<std::uint64_t>::max(),
         std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::uint64_t>::max()}};
    for (FollowPosition const& position : positions)
    {
        FollowPosition read{9, 9, 9, 9};
        EXPECT_TRUE(FollowPosition::fromText(position.toText(), read)) << position.toText();
        EXPECT_TRUE(areSame(read, position)) << position.toText() << " became " << read.toText();
    }
}

TEST(FollowPosition, TextIsStableOverVersions)
{
    EXPECT_EQ((FollowPosition{1, 2, -3, 4}.toText()), "firaim1:1:2:-3:4");
    EXPECT_EQ(FollowPosition().toText(), "firaim1:0:0:-:-");
}

TEST(FollowPosition, IsUnchangedByAnInvalidText)
{
    for (std::string const text :
         {"", "firaim1", "firaim1:1:2:3", "firaim1:1:2:3:4:5", "firaim2:1:2:3:4", "firaim1:1:2:3:4 ", "firaim1::2:3:4",
          "firaim1:-1:2:3:4", "firaim1:1:2:3:18446744073709551616", "firaim1:1:2:x:4", "firaim1:1:2:3:--",
          "firaim1:01:2:3:4", "firaim1:1:2:-0:4", "firaim1:0:0:-:5"})
    {
        FollowPosition position{9, 8, 7, 6};
        EXPECT_FALSE(FollowPosition::fromText(text, position)) << text;
        EXPECT_EQ(position.toText(), "firaim1:9:8:7:6") << text;
    }
}
