#include <db/LogUtil.h>

#include "TestSupport.h"

#include <gmock/gmock.h>

#include <iomanip>
#include <ios>
#include <iostream>
#include <locale>
#include <stdexcept>
#include <streambuf>
#include <thread>
#include <type_traits>

namespace
{

/// Replaces the buffer of std::cout, and restores everything about std::cout that a test may change.
class ConsoleBuffer
{
public:
    explicit ConsoleBuffer(std::streambuf& buffer) : m_previousBuffer(std::cout.rdbuf(&buffer))
    {
        m_previousState.copyfmt(std::cout);
    }

    ~ConsoleBuffer()
    {
        std::cout.exceptions(std::ios_base::goodbit);
        std::cout.rdbuf(m_previousBuffer); // Also clears the state bits.
        std::cout.copyfmt(m_previousState);
    }

private:
    std::streambuf* m_previousBuffer;
    std::ios m_previousState{nullptr};
};

bool isLockFree()
{
    bool const isFree = pthread_mutex_trylock(&LogUtil::mutex.m_mutex) == 0;
    if (isFree)
    {
        LogUtil::mutex.unlock();
    }
    return isFree;
}

/// A console whose device is full.
class RefusingBuffer : public std::streambuf
{
    int_type overflow(int_type) override { return traits_type::eof(); }
};

/// A console whose device throws.
class ThrowingBuffer : public std::streambuf
{
    int_type overflow(int_type) override { throw std::runtime_error("device lost"); }
};

/// Records whether the lock is held at each character and each flush.
class LockProbe : public std::streambuf
{
public:
    bool wasEverFree = false;
    int writes = 0;
    int flushes = 0;

private:
    int_type overflow(int_type character) override
    {
        ++writes;
        wasEverFree = wasEverFree || isLockFree();
        return traits_type::not_eof(character);
    }

    int sync() override
    {
        ++flushes;
        wasEverFree = wasEverFree || isLockFree();
        return 0;
    }
};

/// Writes one character at a time and yields to other threads between them, so that lines of unlocked writers mix.
class SlowBuffer : public std::streambuf
{
public:
    std::string text;

private:
    int_type overflow(int_type character) override
    {
        text += traits_type::to_char_type(character);
        std::this_thread::yield();
        return character;
    }
};

/// Writes a log line from the constructor of a static object, before main.
struct EarlyLogger
{
    EarlyLogger()
    {
        Console console;
        LogUtil::write(LogUtil::SEVERITY_INFO, "FDB", "early", "before main");
        isLockFreeAfterwards = isLockFree();
        text = console.take();
    }

    std::string text;
    bool isLockFreeAfterwards = false;
};

EarlyLogger const earlyLogger;

class LogLine : public testing::Test
{
protected:
    static void writeNumber() { LogUtil::write(LogUtil::SEVERITY_INFO, "FDB", "getTbl", "Rows: ", 1234567, "."); }
    static constexpr char kNumberLine[] = "[INFO] FDB::getTbl() Rows: 1234567.\n";

    Console console;
};

/// std::cout with exceptions enabled, on a broken device.
template <class Device>
class BrokenConsole : public testing::Test
{
protected:
    BrokenConsole() { std::cout.exceptions(std::ios_base::badbit | std::ios_base::failbit); }

    static void write() { LogUtil::write(LogUtil::SEVERITY_ERROR, "FDB", "openDb", "lost"); }

    Device device;
    ConsoleBuffer buffer{device};
};

using RefusingConsole = BrokenConsole<RefusingBuffer>;
using ThrowingConsole = BrokenConsole<ThrowingBuffer>;

} // namespace

// constexpr: the lock can be used before any constructor and after all destructors.
[[maybe_unused]] constexpr LogUtil::Mutex kConstructedByTheCompiler;
static_assert(std::is_trivially_destructible_v<LogUtil::Mutex>);

TEST_F(LogLine, BeginsWithItsSeverity)
{
    struct
    {
        LogUtil::Severity severity;
        char const* line;
    } const cases[] = {
        {LogUtil::SEVERITY_DEBUG, "[DEBUG] FDB::createDb() Create RDB File: /data/f.db\n"},
        {LogUtil::SEVERITY_INFO, "[INFO] FDB::createDb() Create RDB File: /data/f.db\n"},
        {LogUtil::SEVERITY_WARNING, "[WARNING] FDB::createDb() Create RDB File: /data/f.db\n"},
        {LogUtil::SEVERITY_ERROR, "[ERROR] FDB::createDb() Create RDB File: /data/f.db\n"},
    };
    for (auto const& [severity, line] : cases)
    {
        LogUtil::write(severity, "FDB", "createDb", "Create RDB File: ", "/data/f.db");
        EXPECT_EQ(console.take(), line);
    }
}

TEST_F(LogLine, ShowsTheTagOfItsLayer)
{
    LogUtil::write(LogUtil::SEVERITY_ERROR, "SQL3", "getTbl", "x");
    EXPECT_EQ(console.take(), "[ERROR] SQL3::getTbl() x\n");
}

TEST_F(LogLine, PiecesFollowEachOtherWithoutSeparators)
{
    short const handle = -1;
    LogUtil::write(LogUtil::SEVERITY_DEBUG, "FDB", "f", "a", std::string("b c"), 1U, handle, 18446744073709551615ULL);
    EXPECT_EQ(console.take(), "[DEBUG] FDB::f() ab c1-118446744073709551615\n");
}

TEST_F(LogLine, WithoutAMessageEndsWithABlank)
{
    LogUtil::write(LogUtil::SEVERITY_INFO, "FDB", "f");
    EXPECT_EQ(console.take(), "[INFO] FDB::f() \n");
}

TEST_F(LogLine, GlobalLocaleDoesNotGroupDigits)
{
    GlobalGroupingLocale const grouping;
    writeNumber();
    EXPECT_EQ(console.take(), kNumberLine);
}

TEST_F(LogLine, LocaleOfTheConsoleDoesNotGroupDigits)
{
    std::locale const previous = std::cout.imbue(std::locale(std::locale::classic(), new GroupedDigits));
    writeNumber();
    std::cout.imbue(previous);
    EXPECT_EQ(console.take(), kNumberLine);
}

TEST_F(LogLine, FlagsLeftOnTheConsoleDoNotChangeIt)
{
    std::ostringstream text;
    ConsoleBuffer const buffer(*text.rdbuf());
    std::cout << std::hex << std::showbase << std::showpos << std::uppercase;
    writeNumber();
    EXPECT_EQ(text.str(), kNumberLine);
}

TEST_F(LogLine, FieldWidthLeftOnTheConsoleDoesNotPadIt)
{
    std::ostringstream text;
    ConsoleBuffer const buffer(*text.rdbuf());
    std::cout << std::setfill('*') << std::setw(80);
    writeNumber();
    EXPECT_EQ(text.str(), kNumberLine);
}

TEST_F(LogLine, WrittenByAStaticObjectBeforeMainIsTheSame)
{
    EXPECT_EQ(earlyLogger.text, "[INFO] FDB::early() before main\n");
}

TEST(LogLock, IsFreeAfterAStaticObjectLoggedBeforeMain)
{
    EXPECT_TRUE(earlyLogger.isLockFreeAfterwards);
}

TEST(LogLock, IsHeldForEveryCharacterAndTheFlush)
{
    LockProbe probe;
    {
        ConsoleBuffer const buffer(probe);
        LogUtil::write(LogUtil::SEVERITY_INFO, "FDB", "f", "x");
    }
    EXPECT_EQ(probe.writes, 18);
    EXPECT_FALSE(probe.wasEverFree);
}

TEST(LogLock, IsFreeAfterALine)
{
    Console const console;
    LogUtil::writeLine("x");
    EXPECT_TRUE(isLockFree());
}

TEST(LogLock, KeepsLinesOfSeveralThreadsWhole)
{
    constexpr int kLinesPerThread = 100;
    SlowBuffer slow;
    {
        ConsoleBuffer const buffer(slow);
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 4; ++thread)
        {
            threads.emplace_back(
                [thread]
                {
                    for (int line = 0; line < kLinesPerThread; ++line)
                    {
                        LogUtil::write(LogUtil::SEVERITY_INFO, "FDB", "f", "thread ", thread, " line ", line);
                    }
                });
        }
        for (std::thread& thread : threads)
        {
            thread.join();
        }
    }

    std::vector<std::string> expected;
    for (int thread = 0; thread < 4; ++thread)
    {
        for (int line = 0; line < kLinesPerThread; ++line)
        {
            expected.push_back("[INFO] FDB::f() thread " + std::to_string(thread) + " line " + std::to_string(line));
        }
    }
    std::vector<std::string> lines;
    std::istringstream text(slow.text);
    for (std::string line; std::getline(text, line);)
    {
        lines.push_back(line);
    }
    EXPECT_THAT(lines, testing::UnorderedElementsAreArray(expected));
}

TEST(LogLineFlush, HappensOnceALine)
{
    LockProbe probe;
    {
        ConsoleBuffer const buffer(probe);
        LogUtil::writeLine("x");
    }
    EXPECT_EQ(probe.flushes, 1);
}

TEST_F(RefusingConsole, ExceptionOfTheStreamIsPassedOn)
{
    EXPECT_THROW(write(), std::ios_base::failure);
}

TEST_F(RefusingConsole, LockIsFreeAfterALineThrew)
{
    EXPECT_ANY_THROW(write());
    EXPECT_TRUE(isLockFree());
}

TEST_F(RefusingConsole, LockIsFreeAfterAReportThrew)
{
    EXPECT_ANY_THROW(SqlTblUtil::printError("[ERROR] Casting value", "abc"));
    EXPECT_TRUE(isLockFree());
}

TEST_F(RefusingConsole, LosesTheLineSilentlyUnlessSetToThrow)
{
    std::cout.exceptions(std::ios_base::goodbit);
    EXPECT_NO_THROW(write());
}

TEST_F(ThrowingConsole, ExceptionOfTheDeviceIsPassedOn)
{
    EXPECT_THROW(write(), std::runtime_error);
}

TEST_F(ThrowingConsole, LockIsFreeAfterALineThrew)
{
    EXPECT_ANY_THROW(write());
    EXPECT_TRUE(isLockFree());
}

TEST(PrintError, IsMessageBlankDetailInOneLine)
{
    Console console;
    SqlTblUtil::printError("[ERROR] Casting value", "abc");
    EXPECT_EQ(console.take(), "[ERROR] Casting value abc\n");
}

TEST(PrintError, EmptyDetailLeavesTheBlank)
{
    Console console;
    SqlTblUtil::printError("[ERROR] Casting value", "");
    EXPECT_EQ(console.take(), "[ERROR] Casting value \n");
}

TEST(PrintError, DetailIsWrittenWholeWithItsZeroBytes)
{
    using namespace std::string_literals;
    Console console;
    SqlTblUtil::printError("[ERROR] Casting value", "a\0b"s);
    EXPECT_EQ(console.take(), "[ERROR] Casting value a\0b\n"s);
}

TEST(PrintError, HoldsTheLockForTheWholeLine)
{
    LockProbe probe;
    {
        ConsoleBuffer const buffer(probe);
        SqlTblUtil::printError("m", "d");
    }
    EXPECT_EQ(probe.writes, 4);
    EXPECT_FALSE(probe.wasEverFree);
}
