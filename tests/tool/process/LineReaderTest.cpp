#include "StandardStreams.h"
#include "TestSupport.h"

#include <tool/process/LineReader.h>
#include <tool/process/Problem.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include <fcntl.h>
#include <unistd.h>

using namespace tool;

namespace
{

constexpr std::size_t kLongestLine = 8;

/// Takes a line and appends "!" if it was too long; none when there was no line.
std::optional<std::string> take(LineReader& reader)
{
    std::string line = "of the line before";
    bool isTooLong = false;
    if (!reader.take(line, isTooLong))
    {
        return std::nullopt;
    }
    return isTooLong ? line + "!" : line;
}

/// Standard input is a pipe. `sendChunk` writes data that the reader reads at once.
class LineReaderTest : public testing::Test
{
protected:
    ~LineReaderTest() override { end(); }

    void send(std::string const& bytes)
    {
        ASSERT_EQ(write(m_pipe.writeEnd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    void sendChunk(std::string const& bytes)
    {
        send(bytes);
        reader.fill();
    }

    void end()
    {
        if (m_isOpen)
        {
            close(m_pipe.writeEnd);
            m_isOpen = false;
        }
    }

    void endAndFill()
    {
        end();
        reader.fill();
    }

private:
    Stream const m_pipe = makeStream(0);
    StandardDescriptor const m_input{STDIN_FILENO, m_pipe.readEnd};
    bool m_isOpen = true;

protected:
    LineReader reader{kLongestLine};
};

/// Makes standard input a file with this content.
class InputFile
{
public:
    explicit InputFile(std::string const& content) : m_input(STDIN_FILENO, openNew(content)) {}

private:
    int openNew(std::string const& content)
    {
        writeFile(m_dir.file("input"), content);
        return open(m_dir.file("input").c_str(), O_RDONLY | O_CLOEXEC);
    }

    TempDir m_dir;
    StandardDescriptor m_input;
};

} // namespace

TEST_F(LineReaderTest, TakesTheLinesOfAChunkInTheirOrder)
{
    sendChunk("one\ntwo\n\nfour\n");
    EXPECT_EQ(take(reader), "one");
    EXPECT_EQ(take(reader), "two");
    EXPECT_EQ(take(reader), "");
    EXPECT_TRUE(reader.hasLine());
    EXPECT_EQ(take(reader), "four");
    EXPECT_FALSE(reader.hasLine());
    EXPECT_FALSE(reader.isAtEnd());
}

TEST_F(LineReaderTest, JoinsALineThatComesInSeveralChunks)
{
    sendChunk("one\nt");
    EXPECT_EQ(take(reader), "one");
    EXPECT_FALSE(reader.hasLine());
    sendChunk("w");
    EXPECT_FALSE(reader.hasLine());
    sendChunk("o\nthr");
    EXPECT_EQ(take(reader), "two");
    sendChunk("ee\n");
    EXPECT_EQ(take(reader), "three");
}

TEST_F(LineReaderTest, KeepsTheLinesThatWereNotTakenWhenMoreComes)
{
    sendChunk("one\ntwo\nth");
    EXPECT_EQ(take(reader), "one");
    sendChunk("ree\nfour\n");
    EXPECT_EQ(take(reader), "two");
    EXPECT_EQ(take(reader), "three");
    EXPECT_EQ(take(reader), "four");
}

TEST_F(LineReaderTest, TakesALastLineWithoutItsEnd)
{
    sendChunk("one\ntwo");
    EXPECT_EQ(take(reader), "one");
    EXPECT_FALSE(reader.hasLine());
    endAndFill();
    EXPECT_TRUE(reader.isAtEnd());
    EXPECT_TRUE(reader.hasLine());
    EXPECT_EQ(take(reader), "two");
    EXPECT_EQ(take(reader), std::nullopt);
}

TEST_F(LineReaderTest, HasNoLineBehindTheEndOfTheLastOne)
{
    sendChunk("one\n");
    endAndFill();
    EXPECT_EQ(take(reader), "one");
    EXPECT_EQ(take(reader), std::nullopt);
}

TEST_F(LineReaderTest, HasNoLineInEmptyInput)
{
    endAndFill();
    EXPECT_TRUE(reader.isAtEnd());
    EXPECT_FALSE(reader.hasMore());
    EXPECT_EQ(take(reader), std::nullopt);
}

TEST_F(LineReaderTest, KeepsZeroBytesAndCarriageReturns)
{
    sendChunk(std::string("a\0b\r\n\0\n", 7));
    EXPECT_EQ(take(reader), std::string("a\0b\r", 4));
    EXPECT_EQ(take(reader), std::string("\0", 1));
}

TEST_F(LineReaderTest, TakesALineOfExactlyTheLimit)
{
    sendChunk("12345678\n1234");
    EXPECT_EQ(take(reader), "12345678");
    sendChunk("5678");
    sendChunk("\n");
    EXPECT_EQ(take(reader), "12345678");
}

TEST_F(LineReaderTest, ReportsATooLongLineOfAChunk)
{
    sendChunk("123456789\nnext\n");
    EXPECT_EQ(take(reader), "123456789!");
    EXPECT_EQ(take(reader), "next");
}

TEST_F(LineReaderTest, DiscardsATooLongLineAcrossChunks)
{
    sendChunk("before\n12345");
    EXPECT_EQ(take(reader), "before");
    sendChunk("6789");
    EXPECT_FALSE(reader.hasLine());
    sendChunk("0123456789");
    EXPECT_FALSE(reader.hasLine());
    sendChunk("tail\nnext\n");
    EXPECT_EQ(take(reader), "tail!");
    EXPECT_EQ(take(reader), "next");
}

TEST_F(LineReaderTest, ReportsATooLongLineWithOnlyItsEndInTheNextChunk)
{
    sendChunk("123456789");
    sendChunk("\nnext\n");
    EXPECT_EQ(take(reader), "!");
    EXPECT_EQ(take(reader), "next");
}

TEST_F(LineReaderTest, ReportsATooLongLastLineWithoutItsEnd)
{
    sendChunk("123456789");
    EXPECT_TRUE(reader.hasMore());
    endAndFill();
    EXPECT_EQ(take(reader), "!");
    EXPECT_EQ(take(reader), std::nullopt);
}

TEST_F(LineReaderTest, TakesTheLinesBeforeOneThatIsTooLong)
{
    sendChunk("one\ntwo\n123456");
    sendChunk("789");
    EXPECT_EQ(take(reader), "one");
    EXPECT_EQ(take(reader), "two");
    sendChunk("0\nnext\n");
    EXPECT_EQ(take(reader), "1234567890!");
    EXPECT_EQ(take(reader), "next");
}

TEST_F(LineReaderTest, HasMoreOnceSomethingCanBeReadWithoutWaiting)
{
    EXPECT_FALSE(reader.hasMore());
    send("one\n");
    EXPECT_TRUE(reader.hasMore());
    EXPECT_EQ(take(reader), "one");
    EXPECT_FALSE(reader.hasMore());
    EXPECT_FALSE(reader.isAtEnd());
    end();
    EXPECT_FALSE(reader.hasMore());
    EXPECT_TRUE(reader.isAtEnd());
}

TEST_F(LineReaderTest, CountsTheBytesOfTakenAndOfDiscardedLines)
{
    sendChunk("one\ntwo\n");
    EXPECT_EQ(reader.takenBytes(), 0u);
    take(reader);
    EXPECT_EQ(reader.takenBytes(), 4u);
    take(reader);
    sendChunk("123456789");
    EXPECT_EQ(reader.takenBytes(), 17u);
    sendChunk("0\nend");
    take(reader);
    EXPECT_EQ(reader.takenBytes(), 19u);
    endAndFill();
    take(reader);
    EXPECT_EQ(reader.takenBytes(), 22u);
}

TEST_F(LineReaderTest, DoesNotKnowTheSizeOfAPipesContent)
{
    send("one\n");
    EXPECT_EQ(reader.totalBytes(), 0u);
}

TEST(LineReaderOfAFile, ReadsItToItsEndAndKnowsItsSize)
{
    // So long that it takes several reads, which end in the middle of lines.
    std::string content;
    for (int line = 0; line < 40000; ++line)
    {
        content += "line " + std::to_string(line) + "\n";
    }
    InputFile const input(content);
    LineReader reader(100);
    EXPECT_EQ(reader.totalBytes(), content.size());
    int lines = 0;
    while (reader.hasMore())
    {
        while (!reader.hasLine())
        {
            reader.fill();
        }
        ASSERT_EQ(take(reader), "line " + std::to_string(lines));
        ++lines;
    }
    EXPECT_EQ(lines, 40000);
    EXPECT_EQ(reader.takenBytes(), content.size());
}

TEST(LineReaderOfAFile, DiscardsALineOfSeveralReads)
{
    InputFile const input(std::string(1 << 20, 'x') + "\nnext\n");
    LineReader reader(100);
    while (!reader.hasLine())
    {
        reader.fill();
    }
    std::string line;
    bool isTooLong = false;
    EXPECT_TRUE(reader.take(line, isTooLong));
    EXPECT_TRUE(isTooLong);
    EXPECT_LT(line.size(), 1u << 17);
    while (!reader.hasLine())
    {
        reader.fill();
    }
    EXPECT_EQ(take(reader), "next");
}

TEST(LineReaderOfAFolder, ReportsThatItCannotBeRead)
{
    StandardDescriptor const input(STDIN_FILENO, open("/", O_RDONLY | O_CLOEXEC));
    LineReader reader(100);
    try
    {
        reader.fill();
        FAIL() << "a folder was read";
    }
    catch (Problem const& problem)
    {
        EXPECT_EQ(problem.status(), STATUS_BAD_FILE);
        EXPECT_STREQ(problem.what(), "cannot read standard input: Is a directory");
    }
}
