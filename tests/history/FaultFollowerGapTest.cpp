// Rows that are removed before a follower has read them.

#include "FollowerFixture.h"

#include <gmock/gmock.h>
#include <history/FaultRecorder.h>

#include <algorithm>

using namespace firaim;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace
{

using FaultFollowerGapTest = FollowerTest;

} // namespace

TEST_F(FaultFollowerGapTest, IgnoresRowsThatWereTrimmedBeforeItsPosition)
{
    addFaults(10);
    FaultFollower follower = reader.follow(newest());
    exec("DELETE FROM FdbFaultTbl WHERE EntryId < 10");
    addFaults(1);
    EXPECT_THAT(take(follower), ElementsAre("11"));
}

TEST_F(FaultFollowerGapTest, ReportsOnceThatRowsWereRemoved)
{
    addFaults(10);
    FaultFollower follower = reader.follow(newest());
    EXPECT_THAT(take(follower), IsEmpty());
    addFaults(5);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId < 13");
    EXPECT_THAT(take(follower), ElementsAre("ROWS_REMOVED", "13", "14", "15"));
    EXPECT_THAT(follower.lastProblem(), HasSubstr(path));
    exec("DELETE FROM FdbFaultTbl");
    EXPECT_THAT(take(follower), ElementsAre("ROWS_REMOVED"));
    EXPECT_THAT(take(follower), IsEmpty());
    addFaults(1);
    EXPECT_THAT(take(follower), ElementsAre("16"));
}

TEST_F(FaultFollowerGapTest, ReportsRowsThatWereRemovedBehindTheLastReadRow)
{
    addFaults(2000);
    FaultFollower follower = reader.follow({});
    Fault fault;
    ASSERT_EQ(follower.next(fault, 0ms), HISTORY_OK);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId < 1990");
    std::vector<std::string> const results = take(follower);
    EXPECT_EQ(std::count(results.begin(), results.end(), "ROWS_REMOVED"), 1);
    EXPECT_EQ(results.back(), "2000");
}

TEST_F(FaultFollowerGapTest, ReportsOnceThatRowsWereRemovedSinceAStoredPosition)
{
    addFaults(10);
    FollowPosition const position = newest();
    exec("DELETE FROM FdbFaultTbl");
    FaultFollower follower = reader.follow(position);
    EXPECT_THAT(take(follower), ElementsAre("ROWS_REMOVED"));
    FaultFollower next = reader.follow(follower.position());
    EXPECT_THAT(take(next), IsEmpty());
}

TEST_F(FaultFollowerGapTest, ReportsRowsThatWereRemovedBehindAnExistingRow)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    addFaults(5);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId BETWEEN 4 AND 6");
    Fault fault;
    EXPECT_EQ(follower.next(fault, 0ms), HISTORY_ROWS_REMOVED);
    EXPECT_EQ(follower.lastProblem(), path + ": rows 4 to 6 were removed before they were read");
    EXPECT_THAT(take(follower), ElementsAre("7", "8"));
    EXPECT_THAT(take(follower), IsEmpty());
}

TEST_F(FaultFollowerGapTest, ReportsEachGapBetweenTheRowsThatItReads)
{
    FaultFollower follower = reader.follow({});
    addFaults(9);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId IN (1, 4, 7, 8)");
    EXPECT_THAT(take(follower), ElementsAre("2", "3", "ROWS_REMOVED", "5", "6", "ROWS_REMOVED", "9"))
        << "before the first row of a history there is no gap";
}

TEST_F(FaultFollowerGapTest, ReportsOnceRowsThatWereRemovedBehindTheLastRow)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    addFaults(5);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId > 5");
    Fault fault;
    EXPECT_EQ(follower.next(fault, 0ms), HISTORY_OK);
    EXPECT_EQ(follower.next(fault, 0ms), HISTORY_OK);
    EXPECT_EQ(fault.EntryId, 5U);
    EXPECT_EQ(follower.wait(0ms), HISTORY_OK) << "the gap has not been reported yet";
    EXPECT_THAT(take(follower), ElementsAre("ROWS_REMOVED"));
    EXPECT_THAT(follower.lastProblem(), HasSubstr("rows 6 to 8 were removed"));
    EXPECT_THAT(take(follower), IsEmpty());
    addFaults(1);
    EXPECT_THAT(take(follower), ElementsAre("9"));
}

TEST_F(FaultFollowerGapTest, ReportsOnceThatAllRowsBehindItsPositionWereRemoved)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    addFaults(1);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId > 3");
    EXPECT_THAT(take(follower), ElementsAre("ROWS_REMOVED"));
    EXPECT_THAT(follower.lastProblem(), HasSubstr("row 4 was removed"));
    EXPECT_THAT(take(follower), IsEmpty());
}

TEST_F(FaultFollowerGapTest, ReportsRowsThatWereRemovedSinceTheTableWasEmpty)
{
    FaultFollower kept = reader.follow(newest());
    FaultFollower follower = reader.follow({});
    EXPECT_THAT(take(follower), IsEmpty());
    addFaults(5);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId < 5");
    EXPECT_THAT(take(kept), ElementsAre("ROWS_REMOVED", "5"));
    EXPECT_THAT(take(follower), ElementsAre("ROWS_REMOVED", "5"));
}

TEST_F(FaultFollowerGapTest, ReportsARemovedRowAndTheGapBehindItTogether)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    addFaults(5);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId BETWEEN 3 AND 6");
    EXPECT_THAT(take(follower), ElementsAre("ROWS_REMOVED", "7", "8"));
}

TEST_F(FaultFollowerGapTest, ReportsEachGapOnceToFollowersThatContinueFromItsPosition)
{
    addFaults(3);
    FollowPosition position = newest();
    addFaults(7);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId IN (4, 5, 8, 10)");
    std::vector<std::string> results;
    for (int calls = 0; calls < 10; ++calls)
    {
        ASSERT_TRUE(FollowPosition::fromText(position.toText(), position));
        FaultFollower follower = reader.follow(position);
        Fault fault;
        int const result = follower.next(fault, 0ms);
        results.push_back(result == HISTORY_OK ? std::to_string(fault.EntryId) : historyResultName(result));
        position = follower.position();
    }
    EXPECT_THAT(results,
                ElementsAre("ROWS_REMOVED", "6", "7", "ROWS_REMOVED", "9", "ROWS_REMOVED", "END", "END", "END", "END"));
}

TEST_F(FaultFollowerGapTest, ReportsRemovedRowsWhateverTheQuery)
{
    addFaults(3);
    FaultQuery query;
    query.codes = {1001};
    FaultFollower follower = reader.follow(newest(), query);
    addFaults(100);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId BETWEEN 50 AND 60");
    std::vector<std::string> expected;
    for (int number = 1; number <= 100; ++number)
    {
        int const key = number + 3;
        if (key == 61)
        {
            expected.push_back("ROWS_REMOVED");
        }
        if (number % 3 == 1 && (key < 50 || key > 60))
        {
            expected.push_back(std::to_string(key));
        }
    }
    EXPECT_EQ(take(follower), expected) << "rows that do not match the query are not a gap";
}

TEST_F(FaultFollowerGapTest, ReportsAGapThatArisesBetweenTwoPolls)
{
    addFaults(2000);
    FaultFollower follower = reader.follow({});
    Fault fault;
    ASSERT_EQ(follower.next(fault, 0ms), HISTORY_OK);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId BETWEEN 17 AND 1899");
    std::vector<std::string> const results = take(follower);
    ASSERT_EQ(results.size(), 117U);
    EXPECT_EQ(results[15], "ROWS_REMOVED");
    EXPECT_EQ(results[16], "1900");
    EXPECT_EQ(std::count(results.begin(), results.end(), "ROWS_REMOVED"), 1);
}

TEST_F(FaultFollowerGapTest, RowsThatWereRolledBackAreNoGap)
{
    addFaults(1);
    FaultFollower follower = reader.follow(newest());
    exec("BEGIN; INSERT INTO FdbFaultTbl(Description) VALUES('never'), ('stored'); ROLLBACK");
    EXPECT_THAT(take(follower), IsEmpty());
    addFaults(1);
    EXPECT_THAT(take(follower), ElementsAre("2"));
}

TEST_F(FaultFollowerGapTest, ReportsRowsThatARecorderPrunesBehindTheFaultOfAnActiveTriple)
{
    RecorderOptions options;
    options.keepNewest = 5;
    FaultRecorder recorder;
    ASSERT_EQ(recorder.open(path, options), HISTORY_OK) << recorder.lastProblem();
    FaultEvent event;
    event.code = 1;
    ASSERT_EQ(recorder.raise(event).result, HISTORY_OK);
    FaultFollower follower = reader.follow(newest());
    event.code = 2;
    event.status = FAULT_INACTIVE;
    for (int i = 0; i < 40; ++i)
    {
        ASSERT_EQ(recorder.record(event).result, HISTORY_OK);
    }
    EXPECT_THAT(take(follower), ElementsAre("ROWS_REMOVED", "37", "38", "39", "40", "41"));
}

TEST_F(FaultFollowerGapTest, ReportsOnceThatTheRowOfItsPositionWasRemoved)
{
    addFaults(4);
    FollowPosition position;
    ASSERT_TRUE(positionOf(3, position));
    exec("DELETE FROM FdbFaultTbl WHERE EntryId = 3");
    FaultFollower follower = reader.follow(position);
    EXPECT_THAT(take(follower), ElementsAre("ROWS_REMOVED", "4"));
    EXPECT_THAT(follower.lastProblem(), HasSubstr(path + ": row 3, behind which it was followed, is gone"));
    EXPECT_THAT(take(follower), IsEmpty());
}
