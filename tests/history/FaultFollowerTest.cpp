#include "HistorySupport.h"

#include "Fixtures.h"

#include <gmock/gmock.h>
#include <history/FaultRecorder.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

using namespace firaim;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace
{

/// Longer than any test may take.
constexpr auto kLong = std::chrono::minutes(2);

class FaultFollowerTest : public HistoryTest
{
protected:
    FaultFollowerTest() { EXPECT_EQ(reader.open(path), HISTORY_OK) << reader.lastProblem(); }

    FollowPosition newest()
    {
        FollowPosition position;
        EXPECT_EQ(reader.newestPosition(position), HISTORY_OK) << reader.lastProblem();
        return position;
    }

    /// All that a follower gives now: keys of faults, and names of results.
    static std::vector<std::string> take(FaultFollower& follower)
    {
        std::vector<std::string> told;
        for (int calls = 0; calls < 10000; ++calls)
        {
            Fault fault;
            int const result = follower.next(fault, 0ms);
            if (result == HISTORY_END)
            {
                return told;
            }
            told.push_back(result == HISTORY_OK ? std::to_string(fault.EntryId) : historyResultName(result));
        }
        ADD_FAILURE() << "there is no end to it";
        return told;
    }

    /// The position behind the fault with that key.
    bool positionOf(unsigned long long key, FollowPosition& position)
    {
        FaultCursor cursor = reader.faults();
        Fault fault;
        while (cursor.next(fault) == HISTORY_OK)
        {
            if (fault.EntryId == key)
            {
                position = cursor.followPosition();
                return true;
            }
        }
        return false;
    }

    /// As addFaults, a day later.
    void addLaterFaults(int count) const
    {
        addFaults(count);
        exec("UPDATE FdbFaultTbl SET TimeStampUTC = TimeStampUTC + 86400000 WHERE EntryId > (SELECT max(EntryId) FROM "
             "FdbFaultTbl) - " +
             std::to_string(count));
    }

    /// Another fault database with one fault, in a file of its own.
    std::string makeOther(std::string const& description) const
    {
        std::string other = dir.file("other.db");
        std::filesystem::copy(path, other);
        RawDb(other).exec("DELETE FROM FdbFaultTbl; DELETE FROM sqlite_sequence; INSERT INTO FdbFaultTbl(Description) "
                          "VALUES('" +
                          description + "')");
        return other;
    }
};

std::vector<unsigned short> takeCounts(FaultFollower& follower)
{
    std::vector<unsigned short> counts;
    FaultStatistic statistic;
    int result = HISTORY_OK;
    while ((result = follower.nextStatistic(statistic)) == HISTORY_OK)
    {
        counts.push_back(statistic.OccurenceCnt);
    }
    EXPECT_EQ(result, HISTORY_END) << follower.lastProblem();
    return counts;
}

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

TEST_F(FaultFollowerTest, GoesOnExactlyWhereAKeptPositionIsUnderAFilter)
{
    addFaults(50);
    FaultQuery query;
    query.codes = {1001};
    FollowPosition position;
    std::vector<std::string> told;
    std::vector<std::string> expected;
    for (int key = 1; key <= 100; ++key)
    {
        if (key % 50 % 3 == 1)
        {
            expected.push_back(std::to_string(key));
        }
    }
    addFaults(50);
    // Every piece is one fault of a follower that is made anew from the text.
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
        told.push_back(std::to_string(fault.EntryId));
        position = follower.position();
    }
    EXPECT_EQ(told, expected);
    EXPECT_EQ(position.key, 100) << "a refused row moves the position as well";
}

TEST_F(FaultFollowerTest, GoesOnFromThePositionOfACursor)
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

TEST_F(FaultFollowerTest, IgnoresRowsThatWereTrimmedBeforeItsPosition)
{
    addFaults(10);
    FaultFollower follower = reader.follow(newest());
    exec("DELETE FROM FdbFaultTbl WHERE EntryId < 10");
    addFaults(1);
    EXPECT_THAT(take(follower), ElementsAre("11"));
}

TEST_F(FaultFollowerTest, TellsOnceThatRowsWereRemoved)
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

TEST_F(FaultFollowerTest, TellsThatRowsWereRemovedBehindWhatWasReadAlready)
{
    addFaults(2000);
    FaultFollower follower = reader.follow({});
    Fault fault;
    ASSERT_EQ(follower.next(fault, 0ms), HISTORY_OK);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId < 1990");
    std::vector<std::string> const told = take(follower);
    EXPECT_EQ(std::count(told.begin(), told.end(), "ROWS_REMOVED"), 1);
    EXPECT_EQ(told.back(), "2000");
}

TEST_F(FaultFollowerTest, TellsOnceThatRowsWereRemovedSinceAKeptPosition)
{
    addFaults(10);
    FollowPosition const position = newest();
    exec("DELETE FROM FdbFaultTbl");
    FaultFollower follower = reader.follow(position);
    EXPECT_THAT(take(follower), ElementsAre("ROWS_REMOVED"));
    FaultFollower next = reader.follow(follower.position());
    EXPECT_THAT(take(next), IsEmpty());
}

TEST_F(FaultFollowerTest, GoesOnBehindARowWhoseStatusStartupNamesOrTextsWereRewritten)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    exec("UPDATE FdbFaultTbl SET DateTimeString = 'a', FaultCodeName = 'a', TimeZone = 'a', Status = 'ErrorInactive', "
         "Description = 'a', DiagSignalsDumpFileName = 'a', LoggerUpTime = 9, LoggerLifeTime = 9, CfgBackupFile = 'a', "
         "RdbStartupId = 9");
    addFaults(1);
    EXPECT_THAT(take(follower), ElementsAre("4"));
}

TEST_F(FaultFollowerTest, TakesARowThatTellsOfAnotherFaultForAnotherHistory)
{
    for (std::string const change : {"FaultCode = 9", "ModuleName = 'another'", "Parameter = 'another'",
                                     "TimeStampUTC = 9", "SystemDateTimeString = 'another'"})
    {
        exec("DELETE FROM FdbFaultTbl; DELETE FROM sqlite_sequence");
        addFaults(2);
        FaultFollower follower = reader.follow(newest());
        EXPECT_THAT(take(follower), IsEmpty());
        exec("UPDATE FdbFaultTbl SET " + change + " WHERE EntryId = 2");
        EXPECT_THAT(take(follower), ElementsAre("FILE_REPLACED", "1", "2")) << change;
    }
}

TEST_F(FaultFollowerTest, GoesOnFromAPositionThatVersion100HasGiven)
{
    addFaults(3);
    FollowPosition position;
    // Version 1.0.0 took the hash of all cells.
    ASSERT_TRUE(FollowPosition::fromText("firaim1:0:0:3:15578274124924830666", position));
    FaultFollower follower = reader.follow(position);
    addFaults(1);
    EXPECT_THAT(take(follower), ElementsAre("4"));
    EXPECT_EQ(follower.position().key, 4);
    follower = reader.follow(position);
    exec("UPDATE FdbFaultTbl SET ModuleName = 'another' WHERE EntryId = 3");
    EXPECT_THAT(take(follower), ElementsAre("FILE_REPLACED", "1", "2", "3", "4"));
}

TEST_F(FaultFollowerTest, TellsOfRowsThatWereRemovedBehindARowThatIsThere)
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

TEST_F(FaultFollowerTest, TellsOfEachGapBetweenTheRowsThatItGives)
{
    FaultFollower follower = reader.follow({});
    addFaults(9);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId IN (1, 4, 7, 8)");
    EXPECT_THAT(take(follower), ElementsAre("2", "3", "ROWS_REMOVED", "5", "6", "ROWS_REMOVED", "9"))
        << "before the first row of a history there is no gap";
}

TEST_F(FaultFollowerTest, TellsOnceOfRowsThatWereRemovedBehindTheLastRow)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    addFaults(5);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId > 5");
    Fault fault;
    EXPECT_EQ(follower.next(fault, 0ms), HISTORY_OK);
    EXPECT_EQ(follower.next(fault, 0ms), HISTORY_OK);
    EXPECT_EQ(fault.EntryId, 5U);
    EXPECT_EQ(follower.wait(0ms), HISTORY_OK) << "there is something to tell";
    EXPECT_THAT(take(follower), ElementsAre("ROWS_REMOVED"));
    EXPECT_THAT(follower.lastProblem(), HasSubstr("rows 6 to 8 were removed"));
    EXPECT_THAT(take(follower), IsEmpty());
    addFaults(1);
    EXPECT_THAT(take(follower), ElementsAre("9"));
}

TEST_F(FaultFollowerTest, TellsOnceThatEverythingBehindItsPositionWasRemoved)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    addFaults(1);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId > 3");
    EXPECT_THAT(take(follower), ElementsAre("ROWS_REMOVED"));
    EXPECT_THAT(follower.lastProblem(), HasSubstr("row 4 was removed"));
    EXPECT_THAT(take(follower), IsEmpty());
}

TEST_F(FaultFollowerTest, TellsOfRowsThatWereRemovedSinceThereWereNone)
{
    FaultFollower kept = reader.follow(newest());
    FaultFollower follower = reader.follow({});
    EXPECT_THAT(take(follower), IsEmpty());
    addFaults(5);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId < 5");
    EXPECT_THAT(take(kept), ElementsAre("ROWS_REMOVED", "5"));
    EXPECT_THAT(take(follower), ElementsAre("ROWS_REMOVED", "5"));
}

TEST_F(FaultFollowerTest, TellsOfARowThatIsGoneAndOfTheGapBehindItTogether)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    addFaults(5);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId BETWEEN 3 AND 6");
    EXPECT_THAT(take(follower), ElementsAre("ROWS_REMOVED", "7", "8"));
}

TEST_F(FaultFollowerTest, TellsOfEachGapOnceToThoseWhoGoOnFromItsPosition)
{
    addFaults(3);
    FollowPosition position = newest();
    addFaults(7);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId IN (4, 5, 8, 10)");
    std::vector<std::string> told;
    for (int calls = 0; calls < 10; ++calls)
    {
        ASSERT_TRUE(FollowPosition::fromText(position.toText(), position));
        FaultFollower follower = reader.follow(position);
        Fault fault;
        int const result = follower.next(fault, 0ms);
        told.push_back(result == HISTORY_OK ? std::to_string(fault.EntryId) : historyResultName(result));
        position = follower.position();
    }
    EXPECT_THAT(told,
                ElementsAre("ROWS_REMOVED", "6", "7", "ROWS_REMOVED", "9", "ROWS_REMOVED", "END", "END", "END", "END"));
}

TEST_F(FaultFollowerTest, TellsOfRemovedRowsWhateverTheQueryAsksFor)
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
    EXPECT_EQ(take(follower), expected) << "what the query refuses is no gap";
}

TEST_F(FaultFollowerTest, TellsOfAGapThatArisesBetweenTwoLooks)
{
    addFaults(2000);
    FaultFollower follower = reader.follow({});
    Fault fault;
    ASSERT_EQ(follower.next(fault, 0ms), HISTORY_OK);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId BETWEEN 17 AND 1899");
    std::vector<std::string> const told = take(follower);
    ASSERT_EQ(told.size(), 117U);
    EXPECT_EQ(told[15], "ROWS_REMOVED");
    EXPECT_EQ(told[16], "1900");
    EXPECT_EQ(std::count(told.begin(), told.end(), "ROWS_REMOVED"), 1);
}

TEST_F(FaultFollowerTest, RowsThatWereRolledBackAreNoGap)
{
    addFaults(1);
    FaultFollower follower = reader.follow(newest());
    exec("BEGIN; INSERT INTO FdbFaultTbl(Description) VALUES('never'), ('stored'); ROLLBACK");
    EXPECT_THAT(take(follower), IsEmpty());
    addFaults(1);
    EXPECT_THAT(take(follower), ElementsAre("2"));
}

TEST_F(FaultFollowerTest, TellsOfWhatARecorderPrunesBehindTheFaultOfAnActiveTriple)
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

TEST_F(FaultFollowerTest, FollowsAnotherFileOfTheNameFromItsBeginning)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    ASSERT_EQ(std::rename(makeOther("new").c_str(), path.c_str()), 0);
    EXPECT_THAT(take(follower), ElementsAre("FILE_REPLACED", "1"));
    EXPECT_THAT(follower.lastProblem(), HasSubstr("another file has got this name"));
    addFaults(1);
    EXPECT_THAT(take(follower), ElementsAre("2"));
}

TEST_F(FaultFollowerTest, TellsThatAKeptPositionIsOfAnotherFile)
{
    addFaults(3);
    FollowPosition const position = newest();
    ASSERT_EQ(std::rename(makeOther("new").c_str(), path.c_str()), 0);
    FaultFollower follower = reader.follow(position);
    EXPECT_THAT(take(follower), ElementsAre("FILE_REPLACED", "1"));
}

TEST_F(FaultFollowerTest, TakesACopyThatHoldsTheRowOfItsPositionForTheSameHistory)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    std::string const copy = dir.file("copy.db");
    std::filesystem::copy(path, copy);
    ASSERT_EQ(std::rename(copy.c_str(), path.c_str()), 0);
    addFaults(1);
    EXPECT_THAT(take(follower), ElementsAre("4"));
}

TEST_F(FaultFollowerTest, FollowsNewContentOfTheSameFileFromItsBeginning)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    exec("DELETE FROM FdbFaultTbl; DELETE FROM sqlite_sequence; INSERT INTO FdbFaultTbl(Description) VALUES('new')");
    EXPECT_THAT(take(follower), ElementsAre("FILE_REPLACED", "1"));
    EXPECT_THAT(follower.lastProblem(), HasSubstr("its content was replaced"));
}

TEST_F(FaultFollowerTest, TellsOnceThatTheRowOfItsPositionIsGone)
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

TEST_F(FaultFollowerTest, FollowsNewContentThatHasGrownBeyondItsPositionFromItsBeginning)
{
    addFaults(2);
    FaultFollower follower = reader.follow(newest());
    FollowPosition const kept = newest();
    EXPECT_THAT(take(follower), IsEmpty());
    exec("DELETE FROM FdbFaultTbl; DELETE FROM sqlite_sequence");
    addLaterFaults(4);
    EXPECT_THAT(take(follower), ElementsAre("FILE_REPLACED", "1", "2", "3", "4"));
    EXPECT_THAT(follower.lastProblem(), HasSubstr("its content was replaced"));
    follower = reader.follow(kept);
    EXPECT_THAT(take(follower), ElementsAre("FILE_REPLACED", "1", "2", "3", "4"));
}

TEST_F(FaultFollowerTest, FollowsNewContentFromItsBeginningWhereTheRowOfItsPositionWasGone)
{
    addFaults(2);
    FaultFollower follower = reader.follow(newest());
    exec("DELETE FROM FdbFaultTbl");
    EXPECT_THAT(take(follower), ElementsAre("ROWS_REMOVED"));
    exec("DELETE FROM sqlite_sequence");
    addLaterFaults(3);
    EXPECT_THAT(take(follower), ElementsAre("FILE_REPLACED", "1", "2", "3"));
}

TEST_F(FaultFollowerTest, FollowsADamagedFileThatWasSetAsideFromTheFirstNewFault)
{
    RecorderOptions options;
    options.setAsideCode = 77;
    addFaults(10);
    FaultFollower follower = reader.follow(newest());
    EXPECT_THAT(take(follower), IsEmpty());
    writeFile(path, std::string(4096, 'Z') + readFile(path).substr(4096));
    FaultRecorder recorder;
    ASSERT_EQ(recorder.open(path, options), HISTORY_OK) << recorder.lastProblem();
    std::vector<std::string> expected = {"FILE_REPLACED", "1"}; // The first fault tells of the damage.
    for (int key = 2; key <= 20; ++key)
    {
        FaultEvent event;
        event.code = 1;
        ASSERT_EQ(recorder.record(event).result, HISTORY_OK) << recorder.lastProblem();
        expected.push_back(std::to_string(key));
    }
    EXPECT_EQ(take(follower), expected);
    EXPECT_THAT(follower.lastProblem(), HasSubstr("its content was replaced"));
}

TEST_F(FaultFollowerTest, EndsInADamagedFileWhereAKeyIsInTwoPages)
{
    // The first look takes 16 rows, which fit into the first page. The next one finds key 16 in the second page.
    addFaults(60);
    std::string bytes = readFile(path);
    std::string const root = RawDb(path).value("SELECT rootpage FROM sqlite_master WHERE name = 'FdbFaultTbl'");
    std::size_t const interior = (std::stoul(root) - 1) * 4096;
    auto const number16 = [&](std::size_t at)
    { return static_cast<unsigned char>(bytes[at]) * std::size_t(256) + static_cast<unsigned char>(bytes[at + 1]); };
    ASSERT_EQ(bytes[interior], 5) << "the root has pages below it";
    std::size_t const divider = interior + number16(interior + 12) + 4;
    char const lastOfFirstPage = bytes[divider];
    ASSERT_GT(lastOfFirstPage, 16);
    ASSERT_LT(lastOfFirstPage, 60);
    std::size_t const second = (number16(interior + 10) - 1) * 4096;
    std::size_t const cell = second + number16(second + 8);
    ASSERT_EQ(bytes[cell + 1], lastOfFirstPage + 1) << "the size of the row, then its key";
    bytes[divider] = 15;
    bytes[cell + 1] = 16;
    writeFile(path, bytes);
    FaultFollower follower = reader.follow({});
    std::vector<std::string> const told = take(follower);
    EXPECT_EQ(std::count(told.begin(), told.end(), "FILE_REPLACED"), 0);
    EXPECT_EQ(told.back(), "60");
}

TEST_F(FaultFollowerTest, EndsInAFileThatKeepsNoSequence)
{
    exec("DROP TABLE FdbFaultTbl; CREATE TABLE FdbFaultTbl(EntryId INTEGER PRIMARY KEY, Description TEXT); INSERT INTO "
         "FdbFaultTbl VALUES(1, 'a'), (2, 'b')");
    FaultFollower follower = reader.follow({});
    EXPECT_THAT(take(follower), ElementsAre("1", "2"));
    exec("INSERT INTO FdbFaultTbl VALUES(3, 'c')");
    EXPECT_THAT(take(follower), ElementsAre("3"));
}

TEST_F(FaultFollowerTest, TellsOnceThatTheFileIsGoneAndGoesOnWhenItIsBack)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    std::string const aside = dir.file("aside.db");
    ASSERT_EQ(std::rename(path.c_str(), aside.c_str()), 0);
    EXPECT_THAT(take(follower), ElementsAre("NO_FILE"));
    EXPECT_THAT(take(follower), IsEmpty());
    ASSERT_EQ(std::rename(aside.c_str(), path.c_str()), 0);
    addFaults(1);
    EXPECT_THAT(take(follower), ElementsAre("4"));
}

TEST_F(FaultFollowerTest, StaysWithItsFileWhenTheCurrentFolderChanges)
{
    addFaults(2);
    TempDir const elsewhere;
    FaultReader relative;
    {
        CurrentFolder const current(dir.path());
        ASSERT_EQ(relative.open("faults.db"), HISTORY_OK);
    }
    CurrentFolder const current(elsewhere.path());
    FaultFollower follower = relative.follow({});
    EXPECT_THAT(take(follower), ElementsAre("1", "2"));
    std::thread other([&] { addFaults(1); });
    Fault fault;
    EXPECT_EQ(follower.next(fault, kLong), HISTORY_OK);
    other.join();
    ASSERT_EQ(std::rename(makeOther("new").c_str(), path.c_str()), 0);
    EXPECT_THAT(take(follower), ElementsAre("FILE_REPLACED", "1")) << "it opens the file anew";
    ASSERT_TRUE(std::filesystem::remove(path));
    EXPECT_THAT(take(follower), ElementsAre("NO_FILE"));
    EXPECT_EQ(follower.lastProblem(), "faults.db: No such file or directory");
}

TEST_F(FaultFollowerTest, TellsOnceWhatIsInTheWay)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    std::string const crashed = makeHotJournal();
    ASSERT_EQ(std::rename((crashed + "-journal").c_str(), (path + "-journal").c_str()), 0);
    ASSERT_EQ(std::rename(crashed.c_str(), path.c_str()), 0);
    EXPECT_THAT(take(follower), ElementsAre("HOT_JOURNAL"));
    EXPECT_THAT(take(follower), IsEmpty());
}

TEST_F(FaultFollowerTest, TellsThatAWriterKeepsTheFileLocked)
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

TEST_F(FaultFollowerTest, WaitTellsWhetherThereMayBeSomething)
{
    FaultFollower follower = reader.follow(newest());
    EXPECT_EQ(follower.wait(0ms), HISTORY_OK) << "it has not looked yet";
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

TEST_F(FaultFollowerTest, GivesEveryStatisticOfAnotherFile)
{
    exec("INSERT INTO FdbFaultStatisticTbl(FaultCode, OccurenceCnt) VALUES(1, 1), (2, 2)");
    addFaults(1);
    FaultFollower follower = reader.follow(newest());
    EXPECT_THAT(takeCounts(follower), IsEmpty());
    ASSERT_EQ(std::rename(makeOther("new").c_str(), path.c_str()), 0);
    EXPECT_THAT(take(follower), ElementsAre("FILE_REPLACED", "1"));
    EXPECT_THAT(takeCounts(follower), ElementsAre(1, 2));
}

TEST_F(FaultFollowerTest, GivesEveryStatisticOfAFileThatWasMissingWhenItWasMade)
{
    addFaults(1);
    exec("INSERT INTO FdbFaultStatisticTbl(FaultCode, OccurenceCnt) VALUES(1, 1), (2, 2)");
    std::string const aside = dir.file("aside.db");
    ASSERT_EQ(std::rename(path.c_str(), aside.c_str()), 0);
    FaultFollower follower = reader.follow({});
    EXPECT_THAT(take(follower), ElementsAre("NO_FILE"));
    ASSERT_EQ(std::rename(aside.c_str(), path.c_str()), 0);
    EXPECT_THAT(take(follower), ElementsAre("1"));
    EXPECT_THAT(takeCounts(follower), ElementsAre(1, 2));
}

TEST_F(FaultFollowerTest, DoesNotWaitForATimeBelowZeroThatTheClockCannotCount)
{
    static int looks;
    ReaderOptions options;
    options.isCancelled = [] { return ++looks > 1; };
    looks = std::numeric_limits<int>::min();
    FaultReader impatient;
    ASSERT_EQ(impatient.open(path, options), HISTORY_OK);
    FaultFollower follower = impatient.follow(newest());
    // In nanoseconds, 64 bits make an hour of it.
    auto const wait = -std::chrono::milliseconds(18446744073709) + 1h;
    Fault fault;
    looks = 0;
    EXPECT_EQ(follower.next(fault, wait), HISTORY_END);
    EXPECT_EQ(follower.next(fault, 0ms), HISTORY_CANCELLED);
}

TEST_F(FaultFollowerTest, ForkedChildDestroysItAndItsReaderAndLeavesThemToTheParent)
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

TEST_F(FaultFollowerTest, OpensAFileThatCannotChangeOnlyWhenAllOfItWasRead)
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
    // Each time once as a file that could change and once as one that cannot: for the first look and for the last.
    EXPECT_EQ(opened, 4);
}

TEST_F(FaultFollowerTest, SeesAFileThatCannotChangeAgainWhenItHasBeenReplaced)
{
    addFaults(2);
    exec("PRAGMA journal_mode=WAL");
    std::string const other = makeOther("new");
    FollowPosition position = newest();
    ASSERT_EQ(reader.close(), HISTORY_OK);
    ASSERT_EQ(std::filesystem::remove(path + "-shm") && std::filesystem::remove(path + "-wal"), true);
    FaultReader immutable;
    {
        ReadOnlyMedium const medium(dir.path());
        WithoutRoot const nobody;
        ASSERT_EQ(immutable.open(path), HISTORY_OK) << immutable.lastProblem();
        ASSERT_TRUE(immutable.isImmutable());
    }
    FaultFollower follower = immutable.follow(position);
    EXPECT_THAT(take(follower), IsEmpty());
    ASSERT_EQ(std::rename(other.c_str(), path.c_str()), 0);
    EXPECT_THAT(take(follower), ElementsAre("FILE_REPLACED", "1"));
}
