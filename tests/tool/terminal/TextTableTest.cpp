#include "StandardStreams.h"

#include <tool/terminal/Output.h>
#include <tool/terminal/SafeText.h>
#include <tool/terminal/TextTable.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

using namespace tool;

namespace
{

using testing::ElementsAre;

using Lines = std::vector<std::string>;

constexpr int kPipe = 0;

/// A row with a number, two texts that may be shortened, and a number that may be left out.
Lines const kRow = {"7", "a module with a long name", "a description that is longer", "12345"};

class TextTableTest : public testing::Test
{
protected:
    TextTableTest() { useTestEnvironment({{"NO_COLOR", "1"}}); }

    /// The lines that `work` writes to standard output, a terminal with `columns` columns.
    template <class Work>
    static Lines shown(int columns, Work const& work)
    {
        std::istringstream text(writtenTo(STDOUT_FILENO, columns,
                                          [&]
                                          {
                                              Output output;
                                              work(output);
                                              output.flush();
                                          }));
        Lines lines;
        for (std::string line; std::getline(text, line);)
        {
            line.erase(std::remove(line.begin(), line.end(), '\r'), line.end());
            lines.push_back(line);
        }
        return lines;
    }

    /// A table with one row and two columns, the first of which may be shortened.
    static Lines shownPair(int columns, std::string const& first, std::string const& second)
    {
        return shown(columns,
                     [&](Output& output)
                     {
                         TextTable table(output, {{"First", false, true}, {"Second"}});
                         table.add({first, second});
                         table.end();
                     });
    }

    static Lines shownWide(int columns, bool wraps = false)
    {
        return shown(columns,
                     [&](Output& output)
                     {
                         TextTable table(output,
                                         {{"Key", true},
                                          {"Module", false, true},
                                          {"Description", false, true, 2},
                                          {"Up time", true, false, 1}},
                                         wraps);
                         table.add({kRow[0], kRow[1], kRow[2], kRow[3]});
                         table.end();
                     });
    }
};

} // namespace

TEST_F(TextTableTest, ShowsALastDigitAtTheEdgeOfTheTerminal)
{
    auto const work = [](Output& output)
    {
        TextTable table(output, {{"A name of ten", false, true}, {"Entry", true}});
        table.add({"a name", "1"});
        table.end();
    };
    EXPECT_THAT(shown(20, work), ElementsAre("A name of ten  Entry", "a name             1"));
}

TEST_F(TextTableTest, AlignsTextsLeftAndNumbersRight)
{
    auto const work = [](Output& output)
    {
        TextTable table(output, {{"Key", true}, {"Module"}, {"Count", true}});
        table.add({"1", "can0", "12"});
        table.add({"12345", "m", "1234567"});
        table.end();
    };
    EXPECT_THAT(shown(kPipe, work), ElementsAre("  Key  Module    Count", //
                                                "    1  can0         12", //
                                                "12345  m       1234567"));
}

TEST_F(TextTableTest, EndsNoLineWithBlanks)
{
    auto const work = [](Output& output)
    {
        TextTable table(output, {{"Key", true}, {"Module"}, {"Text"}});
        table.add({"1", "", ""});
        table.add({"2", "m", ""});
        table.add({"", "", "text"});
        table.add({"", "", ""});
        table.end();
    };
    for (int const columns : {kPipe, 80})
    {
        EXPECT_THAT(shown(columns, work), ElementsAre("Key  Module  Text", "  1", "  2  m", "             text", ""));
    }
}

TEST_F(TextTableTest, HasItsHeadingsWithoutARow)
{
    auto const work = [](Output& output) { TextTable(output, {{"Key", true}, {"Module"}}).end(); };
    EXPECT_THAT(shown(kPipe, work), ElementsAre("Key  Module"));
}

TEST_F(TextTableTest, ShortensAndLeavesOutNothingWithoutATerminal)
{
    std::string const longText(5000, 'x');
    EXPECT_THAT(shownPair(kPipe, longText, "second"),
                ElementsAre("First" + std::string(4997, ' ') + "Second", longText + "  second"));
}

TEST_F(TextTableTest, ShortensNothingThatFitsExactly)
{
    // The widths are 3, 25, 28 and 7, and there are three gaps of two.
    EXPECT_THAT(shownWide(69), ElementsAre("Key  Module                     Description                   Up time",
                                           "  7  a module with a long name  a description that is longer    12345"));
}

TEST_F(TextTableTest, ShortensTheWidestColumnThatMayBeShortened)
{
    EXPECT_THAT(shownWide(68),
                ElementsAre("Key  Module                     Description                  Up time",
                            "  7  a module with a long name  a description that is long\u2026    12345"));
    EXPECT_THAT(shownWide(50), ElementsAre("Key  Module             Description        Up time",
                                           "  7  a module with a \u2026  a description th\u2026    12345"));
}

TEST_F(TextTableTest, LeavesOutColumnsWhereShorteningIsNotEnough)
{
    EXPECT_THAT(shownWide(36), ElementsAre("Key  Module      Descripti\u2026  Up time",
                                           "  7  a module \u2026  a descrip\u2026    12345"));
    EXPECT_THAT(shownWide(35), ElementsAre("Key  Module          Description", //
                                           "  7  a module with\u2026  a description\u2026"));
    EXPECT_THAT(shownWide(26), ElementsAre("Key  Module", "  7  a module with a long\u2026"));
    EXPECT_THAT(shownWide(20), ElementsAre("Key  Module", "  7  a module with \u2026"));
}

TEST_F(TextTableTest, KeepsToTheTerminalAtEveryWidth)
{
    for (int columns = 20; columns <= 80; ++columns)
    {
        for (std::string const& line : shownWide(columns))
        {
            EXPECT_LE(displayWidth(line), static_cast<std::size_t>(columns)) << line;
        }
    }
}

TEST_F(TextTableTest, CutsALineThatCannotBeShortenedUnlessItWraps)
{
    std::string const text = "a text of forty columns without an end ..";
    for (bool const wraps : {false, true})
    {
        auto const work = [&](Output& output)
        {
            TextTable table(output, {{"Key", true}, {"Text"}}, wraps);
            table.add({"1", text});
            table.end();
        };
        EXPECT_THAT(shown(30, work),
                    ElementsAre("Key  Text", "  1  " + (wraps ? text : "a text of forty columns \u2026")));
    }
}

TEST_F(TextTableTest, ShortensNothingWhereItWraps)
{
    EXPECT_EQ(shownWide(30, true), shownWide(kPipe));
}

TEST_F(TextTableTest, KeepsTheColumnsBehindWideCharactersInTheirPlaceAtEveryWidth)
{
    // Characters of two terminal columns, combining characters of none, and others of one column with several bytes.
    std::string const texts[] = {
        "\u6e29\u5ea6\u8a08\u6e29\u5ea6\u8a08\u6e29\u5ea6\u8a08\u6e29\u5ea6\u8a08",
        "x\u6e29\u5ea6\u8a08\u6e29\u5ea6\u8a08\u6e29\u5ea6\u8a08\u6e29\u5ea6\u8a08",
        "e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301",
        "\u00e4\u00f6\u00fc\u00e4\u00f6\u00fc\u00e4\u00f6\u00fc\u00e4\u00f6\u00fc",
        "\U0001f600\U0001f600\U0001f600\U0001f600\U0001f600\U0001f600\U0001f600\U0001f600\U0001f600",
        "plain text of some length",
    };
    // Start at the least width that all columns fit into when the text is shortened as far as possible.
    for (int columns = 23; columns <= 45; ++columns)
    {
        auto const work = [&](Output& output)
        {
            TextTable table(output, {{"Text", false, true}, {"Number", true}, {"End"}});
            for (std::string const& text : texts)
            {
                table.add({text, "42", "end"});
            }
            table.end();
        };
        Lines const lines = shown(columns, work);
        ASSERT_EQ(lines.size(), 1 + std::size(texts)) << columns;
        for (std::string const& line : lines)
        {
            EXPECT_EQ(displayWidth(line), displayWidth(lines[0])) << columns << ": " << line;
            EXPECT_LE(displayWidth(line), static_cast<std::size_t>(columns)) << line;
            EXPECT_EQ(line.substr(line.size() - 2), "nd") << columns;
        }
    }
}

TEST_F(TextTableTest, DropsAWideCharacterThatDoesNotFit)
{
    // The text has 12 columns: five characters, the ellipsis and a blank.
    EXPECT_THAT(shownPair(20, "\u6e29\u5ea6\u8a08\u6e29\u5ea6\u8a08\u6e29\u5ea6", "second"),
                ElementsAre("First         Second", "\u6e29\u5ea6\u8a08\u6e29\u5ea6\u2026   second"));
}

TEST_F(TextTableTest, EscapesControlCharacters)
{
    EXPECT_THAT(shownPair(kPipe, std::string("a\0b", 3), "c\n\x1b[31m"),
                ElementsAre("First   Second", "a\\x00b  c\\n\\x1b[31m"));
}

TEST_F(TextTableTest, ShowsOnlyAsciiOnATerminalWithoutUtf8)
{
    useTestEnvironment({{"NO_COLOR", "1"}, {"LANG", "C"}});
    EXPECT_THAT(shownPair(40, "\u00e4", "second"), ElementsAre("First   Second", "\\u00e4  second"));
    EXPECT_THAT(shownPair(20, "a text that is long", "second"), ElementsAre("First         Second", //
                                                                            "a text that~  second"));
}

TEST_F(TextTableTest, HasTheSameLayoutInColours)
{
    Lines const plain = shownWide(50);
    useTestEnvironment();
    Lines coloured = shownWide(50);
    ASSERT_EQ(coloured.size(), plain.size());
    EXPECT_EQ(coloured[0], "\x1b[1mKey\x1b[0m  \x1b[1mModule\x1b[0m             \x1b[1mDescription\x1b[0m        "
                           "\x1b[1mUp time\x1b[0m");
    EXPECT_EQ(coloured[1], plain[1]);
}

TEST_F(TextTableTest, BuffersRowsToDetermineTheWidths)
{
    auto const work = [](Output& output)
    {
        TextTable table(output, {{"Key", true}, {"Text"}, {"|"}});
        for (int row = 1; row < 200; ++row)
        {
            table.add({std::to_string(row), "x", "|"});
        }
        EXPECT_EQ(output.pending(), 0u);
        table.add({"200", "longest", "|"});
        EXPECT_GT(output.pending(), 0u);
        table.add({"201", "longer than all before", "|"});
        table.add({"202", "x", "|"});
        table.end();
    };
    Lines const lines = shown(kPipe, work);
    ASSERT_EQ(lines.size(), 203u);
    EXPECT_EQ(lines[0], "Key  Text     |");
    EXPECT_EQ(lines[1], "  1  x        |");
    EXPECT_EQ(lines[201], "201  longer than all before  |");
    EXPECT_EQ(lines[202], "202  x        |");
}

TEST_F(TextTableTest, BuffersFewerLongRows)
{
    shown(kPipe,
          [](Output& output)
          {
              TextTable table(output, {{"Key", true}, {"Text"}});
              table.add({"1", std::string(30000, 'x')});
              table.add({"2", "x"});
              EXPECT_EQ(output.pending(), 0u);
              table.add({"3", std::string(36000, 'x')});
              EXPECT_GT(output.pending(), 66000u);
              // Write to /dev/null: this is too long for a pipe that nobody reads.
              StandardDescriptor const nowhere(STDOUT_FILENO, open("/dev/null", O_WRONLY | O_CLOEXEC));
              output.flush();
          });
}

TEST(BarText, ShowsAnythingAboveZero)
{
    Terminal terminal;
    EXPECT_EQ(barText(5, 10, 8, terminal), "") << "without decoration";
    terminal.isDecorated = true;
    EXPECT_EQ(barText(0, 10, 8, terminal), "");
    EXPECT_EQ(barText(0, 0, 8, terminal), "");
    EXPECT_EQ(barText(1, 1000000, 8, terminal), "#");
    EXPECT_EQ(barText(10, 10, 8, terminal), "########");
    terminal.isUtf8 = true;
    EXPECT_EQ(barText(1, 1000000, 8, terminal), "\u258f");
    EXPECT_EQ(barText(5, 16, 4, terminal), "\u2588\u258e");
    EXPECT_EQ(barText(10, 10, 4, terminal), "\u2588\u2588\u2588\u2588");
}
