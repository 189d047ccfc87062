#include "StandardStreams.h"

#include <tool/terminal/Output.h>
#include <tool/terminal/Progress.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>

#include <unistd.h>

using namespace tool;

namespace
{

constexpr char kBegin[] = "\r\x1b[K";

class ProgressTest : public testing::Test
{
protected:
    ProgressTest() { useTestEnvironment(); }

    /// The text that `work` writes to standard error, a terminal with `columns` columns; 0: no terminal.
    template <class Work>
    static std::string shown(int columns, Work const& work)
    {
        return writtenTo(STDERR_FILENO, columns, work);
    }

    /// The same text for a bar that shows `share` once.
    static std::string shownShare(int columns, double share, std::string const& what = "reading")
    {
        return shown(columns, [&] { Progress(what).show(share); });
    }

    static std::string bar(std::size_t filled, std::size_t width)
    {
        return "[" + std::string(filled, '#') + std::string(width - filled, '.') + "]";
    }
};

} // namespace

TEST_F(ProgressTest, FillsABarByTheShareAndErasesItAtTheEnd)
{
    EXPECT_EQ(shownShare(80, 0.0), std::string(kBegin) + "reading " + bar(0, 30) + " 0 %" + kBegin);
    EXPECT_EQ(shownShare(80, 0.5), std::string(kBegin) + "reading " + bar(15, 30) + " 50 %" + kBegin);
    EXPECT_EQ(shownShare(80, 0.999), std::string(kBegin) + "reading " + bar(29, 30) + " 99 %" + kBegin);
    EXPECT_EQ(shownShare(80, 1.0), std::string(kBegin) + "reading " + bar(30, 30) + " 100 %" + kBegin);
}

TEST_F(ProgressTest, LimitsTheShareToTheRange)
{
    EXPECT_EQ(shownShare(80, -0.1), shownShare(80, 0.0));
    EXPECT_EQ(shownShare(80, 1.1), shownShare(80, 1.0));
}

TEST_F(ProgressTest, ShowsAnAmountWhenTheTotalIsUnknown)
{
    EXPECT_EQ(shown(80, [] { Progress("recording").show(std::string("12 lines")); }),
              std::string(kBegin) + "recording 12 lines" + kBegin);
}

TEST_F(ProgressTest, WritesNothingWithoutATerminal)
{
    auto const work = []
    {
        Progress progress("reading");
        EXPECT_FALSE(progress.isVisible());
        progress.show(0.5);
        progress.show(std::string("12 lines"));
        progress.clear();
        Progress::clearShown();
    };
    EXPECT_EQ(shown(0, work), "");
}

TEST_F(ProgressTest, WritesNothingToATerminalWithoutDecoration)
{
    for (auto const& [name, value] : {std::pair{"NO_COLOR", "1"}, {"TERM", "dumb"}})
    {
        useTestEnvironment({{name, value}});
        EXPECT_EQ(shownShare(80, 0.5), "") << name;
    }
}

TEST_F(ProgressTest, WritesNothingWhereResultsGoToATerminal)
{
    auto const work = []
    {
        Terminal results;
        results.isTerminal = true;
        Progress progress("reading", results);
        EXPECT_FALSE(progress.isVisible());
        progress.show(0.5);
    };
    EXPECT_EQ(shown(80, work), "");
}

TEST_F(ProgressTest, LeavesTheLastColumnFreeAtEveryWidth)
{
    for (std::size_t const length : {1U, 7U, 12U, 40U})
    {
        for (int columns = 20; columns <= 60; ++columns)
        {
            std::string const text = shownShare(columns, 1.0, std::string(length, 'w'));
            std::size_t const brackets = 2 * (sizeof kBegin - 1);
            ASSERT_GT(text.size(), brackets) << columns;
            EXPECT_LT(text.size() - brackets, static_cast<std::size_t>(columns)) << length;
        }
    }
}

TEST_F(ProgressTest, IsDrawnAtMostTenTimesASecond)
{
    auto const begin = std::chrono::steady_clock::now();
    std::string const text = shown(80,
                                   []
                                   {
                                       Progress progress("reading");
                                       for (int i = 0; i < 1000; ++i)
                                       {
                                           progress.show(i / 1000.0);
                                       }
                                   });
    auto const tenths = (std::chrono::steady_clock::now() - begin) / std::chrono::milliseconds(100);
    EXPECT_LE(std::count(text.begin(), text.end(), '%'), 1 + tenths);
    EXPECT_EQ(text.substr(0, text.find('%')), std::string(kBegin) + "reading " + bar(0, 30) + " 0 ");
}

TEST_F(ProgressTest, IsErasedOnce)
{
    auto const work = []
    {
        Progress progress("reading");
        progress.clear();
        progress.show(std::string("1"));
        Progress::clearShown();
        Progress::clearShown();
        progress.clear();
    };
    EXPECT_EQ(shown(80, work), std::string(kBegin) + "reading 1" + kBegin);
}

TEST_F(ProgressTest, IsNotErasedByOneThatIsNotShown)
{
    auto const work = []
    {
        Progress progress("reading");
        progress.show(std::string("1"));
        Progress("writing").clear();
        write(STDERR_FILENO, "|", 1);
    };
    EXPECT_EQ(shown(80, work), std::string(kBegin) + "reading 1|" + kBegin);
}

TEST_F(ProgressTest, IsErasedForAMessage)
{
    auto const work = []
    {
        Progress progress("reading");
        progress.show(std::string("1"));
        printMessage("a row is damaged");
    };
    EXPECT_EQ(shown(80, work), std::string(kBegin) + "reading 1" + kBegin + "firaim: a row is damaged\r\n");
}
