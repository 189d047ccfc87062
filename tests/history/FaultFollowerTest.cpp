// The faults and statistics that a follower reads, and how it waits for them.

#include "FollowerFixture.h"

#include "Fixtures.h"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <limits>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

using namespace firaim;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using FaultFollowerTest = FollowerTest;

} // namespace

TEST_F(FaultFollowerTest, GivesWhatComesAfterThePosition)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    EXPECT_THAT(take(follower), IsEmpty());
    addFaults(2);
    EXPECT_THAT(take(follower), ElementsAre("4", "5"));
    EXPECT_THAT(take(follower), IsEmpty());
}

TEST_F(FaultFollowerTest, BeginsWithTheFirstFaultWithoutAPosition)
{
    addFaults(2);
    FaultFollower follower = reader.follow({});
    EXPECT_THAT(take(follower), ElementsAre("1", "2"));
}

TEST_F(FaultFollowerTest, HashWithoutAKeyIsBeforeTheFirstFault)
{
    addFaults(2);
    FollowPosition position;
    position.rowHash = 5;
    FaultFollower follower = reader.follow(position);
    EXPECT_THAT(take(follower), ElementsAre("1", "2"));
}

TEST_F(FaultFollowerTest, GivesManyFaultsOnceAndInOrder)
{
    FaultFollower follower = reader.follow(newest());
    addFaults(3000);
    std::vector<std::string> expected;
    for (int key = 1; key <= 3000; ++key)
    {
        expected.push_back(std::to_string(key));
    }
    EXPECT_EQ(take(follower), expected);
}

TEST_F(FaultFollowerTest, ContinuesExactlyAtAStoredPositionWithAFilter)
{
    addFaults(50);
    FaultQuery query;
    query.codes = {1001};
    FollowPosition position;
    std::vector<std::string> results;
    std::vector<std::string> expected;
    for (int key = 1; key <= 100; ++key)
    {
        if (key % 50 % 3 == 1)
        {
            expected.push_back(std::to_string(key));
        }
    }
    addFaults(50);
    // Each round reads one fault with a new follower, made from the text of the position.
    for (;;)
    {
        ASSERT_TRUE(FollowPosition::fromText(position.toText(), position));
        FaultFollower follower = reader.follow(position, query);
        Fault fault;
        if (follower.next(fault, 0ms) != HISTORY_OK)
        {
            position = follower.position();
            break;
        }
        results.push_back(std::to_string(fault.EntryId));
        position = follower.position();
    }
    EXPECT_EQ(results, expected);
    EXPECT_EQ(position.key, 100) << "a row that does not match also advances the position";
}

TEST_F(FaultFollowerTest, ContinuesFromThePositionOfACursor)
{
    addFaults(5);
    FaultQuery query;
    query.limit = 3;
    FaultCursor cursor = reader.faults(query);
    Fault fault;
    FollowPosition position;
    while (cursor.next(fault) == HISTORY_OK)
    {
        position = cursor.followPosition();
    }
    FaultFollower follower = reader.follow(position);
    EXPECT_THAT(take(follower), ElementsAre("4", "5"));
}

TEST_F(FaultFollowerTest, ReportsAFailureOnce)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    std::string const crashed = makeHotJournal();
    ASSERT_EQ(std::rename((crashed + "-journal").c_str(), (path + "-journal").c_str()), 0);
    ASSERT_EQ(std::rename(crashed.c_str(), path.c_str()), 0);
    EXPECT_THAT(take(follower), ElementsAre("HOT_JOURNAL"));
    EXPECT_THAT(take(follower), IsEmpty());
}

TEST_F(FaultFollowerTest, ReportsThatAWriterKeepsTheFileLocked)
{
    FaultFollower follower = reader.follow(newest());
    LockingProcess const other(path);
    Fault fault;
    EXPECT_EQ(follower.next(fault, 1ms), HISTORY_BUSY);
    EXPECT_EQ(follower.next(fault, 1ms), HISTORY_BUSY);
}

TEST_F(FaultFollowerTest, IsWokenByAnotherThreadsFault)
{
    for (std::string const mode : {"DELETE", "PERSIST", "WAL"})
    {
        RawDb writer(path);
        writer.exec("PRAGMA journal_mode=" + mode);
        FaultFollower follower = reader.follow(newest());
        Fault fault;
        ASSERT_EQ(follower.next(fault, 0ms), HISTORY_END) << mode;
        std::thread other([&] { writer.exec("INSERT INTO FdbFaultTbl(Description) VALUES('late')"); });
        EXPECT_EQ(follower.next(fault, kLong), HISTORY_OK) << mode;
        EXPECT_EQ(fault.Description, "late") << mode;
        other.join();
    }
}

TEST_F(FaultFollowerTest, WaitingEndsWhenItIsCancelled)
{
    ReaderOptions options;
    options.isCancelled = []
    {
        static int calls = 0;
        return ++calls > 20;
    };
    FaultReader cancelled;
    ASSERT_EQ(cancelled.open(path, options), HISTORY_OK);
    FaultFollower follower = cancelled.follow(newest());
    Fault fault;
    EXPECT_EQ(follower.next(fault, kLong), HISTORY_CANCELLED);
    EXPECT_EQ(follower.wait(kLong), HISTORY_CANCELLED);
}

TEST_F(FaultFollowerTest, WaitReturnsWhetherThereMayBeAChange)
{
    FaultFollower follower = reader.follow(newest());
    EXPECT_EQ(follower.wait(0ms), HISTORY_OK) << "the follower has not polled yet";
    EXPECT_THAT(take(follower), IsEmpty());
    EXPECT_EQ(follower.wait(1ms), HISTORY_END);
    addFaults(1);
    EXPECT_EQ(follower.wait(kLong), HISTORY_OK);
    EXPECT_THAT(take(follower), ElementsAre("1"));
}

TEST_F(FaultFollowerTest, GivesStatisticsThatHaveChanged)
{
    exec("INSERT INTO FdbFaultStatisticTbl(FaultCode, OccurenceCnt) VALUES(1, 1), (2, 2)");
    FaultFollower follower = reader.follow(newest());
    EXPECT_THAT(takeCounts(follower), IsEmpty());
    exec("UPDATE FdbFaultStatisticTbl SET OccurenceCnt = 5 WHERE FaultCode = 2");
    exec("INSERT INTO FdbFaultStatisticTbl(FaultCode, OccurenceCnt) VALUES(3, 7)");
    EXPECT_THAT(takeCounts(follower), ElementsAre(5, 7));
    exec("UPDATE FdbFaultStatisticTbl SET OccurenceCnt = OccurenceCnt");
    EXPECT_THAT(takeCounts(follower), IsEmpty());
}

TEST_F(FaultFollowerTest, DoesNotWaitForANegativeTimeThatOverflowsTheClock)
{
    static int polls;
    ReaderOptions options;
    options.isCancelled = [] { return ++polls > 1; };
    polls = std::numeric_limits<int>::min();
    FaultReader cancellable;
    ASSERT_EQ(cancellable.open(path, options), HISTORY_OK);
    FaultFollower follower = cancellable.follow(newest());
    // Converted to nanoseconds, this negative time overflows 64 bits to one hour.
    auto const wait = -std::chrono::milliseconds(18446744073709) + 1h;
    Fault fault;
    polls = 0;
    EXPECT_EQ(follower.next(fault, wait), HISTORY_END);
    EXPECT_EQ(follower.next(fault, 0ms), HISTORY_CANCELLED);
}

TEST_F(FaultFollowerTest, ForkedChildDestroysItAndItsReaderWithoutEffectOnTheParent)
{
    for (std::string const mode : {"DELETE", "WAL"})
    {
        SCOPED_TRACE(mode);
        RawDb(path).exec("PRAGMA journal_mode=" + mode);
        addFaults(1);
        FaultFollower follower = reader.follow(newest());
        EXPECT_THAT(take(follower), IsEmpty());
        int const child = fork();
        if (child == 0)
        {
            {
                FaultFollower const destroyed = std::move(follower);
            }
            reader.~FaultReader();
            _exit(0);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        std::thread other([&] { addFaults(1); });
        Fault fault;
        EXPECT_EQ(follower.next(fault, kLong), HISTORY_OK) << follower.lastProblem();
        EXPECT_EQ(fault.EntryId, newest().key);
        other.join();
    }
}

TEST_F(FaultFollowerTest, OpensAnImmutableFileAgainOnlyWhenAllOfItWasRead)
{
    addFaults(1000);
    exec("PRAGMA journal_mode=WAL");
    ReadOnlyMedium const medium(dir.path());
    WithoutRoot const nobody;
    FaultReader immutable;
    ASSERT_EQ(immutable.open(path), HISTORY_OK) << immutable.lastProblem();
    ASSERT_TRUE(immutable.isImmutable());
    FaultFollower follower = immutable.follow({});
    static int opened;
    opened = 0;
    auto const count = reinterpret_cast<void (*)()>(+[]() -> int { return ++opened, SQLITE_OK; });
    ASSERT_EQ(sqlite3_auto_extension(count), SQLITE_OK);
    EXPECT_EQ(take(follower).size(), 1000U);
    EXPECT_EQ(sqlite3_cancel_auto_extension(count), 1);
    // The first poll and the last each open the file twice: once normally, once as immutable.
    EXPECT_EQ(opened, 4);
}
