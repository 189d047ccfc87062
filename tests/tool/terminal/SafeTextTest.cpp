#include <tool/terminal/SafeText.h>

#include <gtest/gtest.h>

#include <utility>

using namespace tool;

TEST(Escape, EscapesControlCharacters)
{
    std::pair<std::string, std::string> const texts[] = {
        {"", ""},
        {"plain \\ text", "plain \\ text"},
        {"\u00e4\u6e29\U0001f600", "\u00e4\u6e29\U0001f600"},
        {"\n\r\t", "\\n\\r\\t"},
        {std::string("\0\x1b\x7f", 3), "\\x00\\x1b\\x7f"},
        {"\u0085\u009b", "\\u0085\\u009b"},
        {"\u202e\u2066\u200b\u2028\ufeff", "\\u202e\\u2066\\u200b\\u2028\\ufeff"},
        {"\U000e0001", "\\U000e0001"},
        {"a\xffz", "a\\xffz"},
        {"\xc0\xaf", "\\xc0\\xaf"},
        {"\xed\xa0\x80", "\\xed\\xa0\\x80"},
        {"\xe6\xb8", "\\xe6\\xb8"},
    };
    for (auto const& [text, shown] : texts)
    {
        EXPECT_EQ(escape(text), shown);
    }
}

TEST(Shortened, CutsBetweenCharactersAndKeepsToTheWidth)
{
    EXPECT_EQ(shortened("abcdef", 6, "~"), "abcdef");
    EXPECT_EQ(shortened("abcdef", 5, "~"), "abcd~");
    EXPECT_EQ(shortened("\u6e29\u5ea6\u8a08", 6, "~"), "\u6e29\u5ea6\u8a08");
    EXPECT_EQ(shortened("\u6e29\u5ea6\u8a08", 5, "~"), "\u6e29\u5ea6~");
    EXPECT_EQ(shortened("\u6e29\u5ea6\u8a08", 4, "~"), "\u6e29~");
    EXPECT_EQ(shortened("e\u0301e\u0301e\u0301", 2, "~"), "e\u0301~");
}
