// A follower whose file, or its content, is replaced or removed.

#include "FollowerFixture.h"

#include <gmock/gmock.h>
#include <history/FaultRecorder.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <thread>

using namespace firaim;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace
{

using FaultFollowerReplacedTest = FollowerTest;

} // namespace

TEST_F(FaultFollowerReplacedTest, ContinuesBehindARowWhoseStatusStartupNamesOrTextsWereRewritten)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    exec("UPDATE FdbFaultTbl SET DateTimeString = 'a', FaultCodeName = 'a', TimeZone = 'a', Status = 'ErrorInactive', "
         "Description = 'a', DiagSignalsDumpFileName = 'a', LoggerUpTime = 9, LoggerLifeTime = 9, CfgBackupFile = 'a', "
         "RdbStartupId = 9");
    addFaults(1);
    EXPECT_THAT(take(follower), ElementsAre("4"));
}

TEST_F(FaultFollowerReplacedTest, TakesARowThatNowHoldsAnotherFaultForAnotherHistory)
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

TEST_F(FaultFollowerReplacedTest, ContinuesFromAPositionOfVersion100)
{
    addFaults(3);
    FollowPosition position;
    // Version 1.0.0 computed the hash from all cells.
    ASSERT_TRUE(FollowPosition::fromText("firaim1:0:0:3:15578274124924830666", position));
    FaultFollower follower = reader.follow(position);
    addFaults(1);
    EXPECT_THAT(take(follower), ElementsAre("4"));
    EXPECT_EQ(follower.position().key, 4);
    follower = reader.follow(position);
    exec("UPDATE FdbFaultTbl SET ModuleName = 'another' WHERE EntryId = 3");
    EXPECT_THAT(take(follower), ElementsAre("FILE_REPLACED", "1", "2", "3", "4"));
}

TEST_F(FaultFollowerReplacedTest, FollowsAnotherFileOfTheNameFromItsStart)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    ASSERT_EQ(std::rename(makeOther("new").c_str(), path.c_str()), 0);
    EXPECT_THAT(take(follower), ElementsAre("FILE_REPLACED", "1"));
    EXPECT_THAT(follower.lastProblem(), HasSubstr("another file has got this name"));
    addFaults(1);
    EXPECT_THAT(take(follower), ElementsAre("2"));
}

TEST_F(FaultFollowerReplacedTest, ReportsThatAStoredPositionBelongsToAnotherFile)
{
    addFaults(3);
    FollowPosition const position = newest();
    ASSERT_EQ(std::rename(makeOther("new").c_str(), path.c_str()), 0);
    FaultFollower follower = reader.follow(position);
    EXPECT_THAT(take(follower), ElementsAre("FILE_REPLACED", "1"));
}

TEST_F(FaultFollowerReplacedTest, TakesACopyThatHoldsTheRowOfItsPositionForTheSameHistory)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    std::string const copy = dir.file("copy.db");
    std::filesystem::copy(path, copy);
    ASSERT_EQ(std::rename(copy.c_str(), path.c_str()), 0);
    addFaults(1);
    EXPECT_THAT(take(follower), ElementsAre("4"));
}

TEST_F(FaultFollowerReplacedTest, FollowsNewContentOfTheSameFileFromItsStart)
{
    addFaults(3);
    FaultFollower follower = reader.follow(newest());
    exec("DELETE FROM FdbFaultTbl; DELETE FROM sqlite_sequence; INSERT INTO FdbFaultTbl(Description) VALUES('new')");
    EXPECT_THAT(take(follower), ElementsAre("FILE_REPLACED", "1"));
    EXPECT_THAT(follower.lastProblem(), HasSubstr("its content was replaced"));
}

TEST_F(FaultFollowerReplacedTest, FollowsNewContentThatHasGrownBeyondItsPositionFromItsStart)
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

TEST_F(FaultFollowerReplacedTest, FollowsNewContentFromItsStartIfTheRowOfItsPositionWasRemoved)
{
    addFaults(2);
    FaultFollower follower = reader.follow(newest());
    exec("DELETE FROM FdbFaultTbl");
    EXPECT_THAT(take(follower), ElementsAre("ROWS_REMOVED"));
    exec("DELETE FROM sqlite_sequence");
    addLaterFaults(3);
    EXPECT_THAT(take(follower), ElementsAre("FILE_REPLACED", "1", "2", "3"));
}

TEST_F(FaultFollowerReplacedTest, FollowsADamagedFileThatWasSetAsideFromTheFirstNewFault)
{
    RecorderOptions options;
    options.setAsideCode = 77;
    addFaults(10);
    FaultFollower follower = reader.follow(newest());
    EXPECT_THAT(take(follower), IsEmpty());
    writeFile(path, std::string(4096, 'Z') + readFile(path).substr(4096));
    FaultRecorder recorder;
    ASSERT_EQ(recorder.open(path, options), HISTORY_OK) << recorder.lastProblem();
    std::vector<std::string> expected = {"FILE_REPLACED", "1"}; // The first fault reports the damage.
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

TEST_F(FaultFollowerReplacedTest, EndsInADamagedFileWhereAKeyIsInTwoPages)
{
    // The first batch has 16 rows, which are in the first page. The second batch finds key 16 in the second page.
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
    std::vector<std::string> const results = take(follower);
    EXPECT_EQ(std::count(results.begin(), results.end(), "FILE_REPLACED"), 0);
    EXPECT_EQ(results.back(), "60");
}

TEST_F(FaultFollowerReplacedTest, EndsInAFileThatKeepsNoSequence)
{
    exec("DROP TABLE FdbFaultTbl; CREATE TABLE FdbFaultTbl(EntryId INTEGER PRIMARY KEY, Description TEXT); INSERT INTO "
         "FdbFaultTbl VALUES(1, 'a'), (2, 'b')");
    FaultFollower follower = reader.follow({});
    EXPECT_THAT(take(follower), ElementsAre("1", "2"));
    exec("INSERT INTO FdbFaultTbl VALUES(3, 'c')");
    EXPECT_THAT(take(follower), ElementsAre("3"));
}

TEST_F(FaultFollowerReplacedTest, ReportsOnceThatTheFileIsMissingAndContinuesWhenItIsBack)
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

TEST_F(FaultFollowerReplacedTest, StaysWithItsFileWhenTheCurrentFolderChanges)
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

TEST_F(FaultFollowerReplacedTest, GivesEveryStatisticOfAnotherFile)
{
    exec("INSERT INTO FdbFaultStatisticTbl(FaultCode, OccurenceCnt) VALUES(1, 1), (2, 2)");
    addFaults(1);
    FaultFollower follower = reader.follow(newest());
    EXPECT_THAT(takeCounts(follower), IsEmpty());
    ASSERT_EQ(std::rename(makeOther("new").c_str(), path.c_str()), 0);
    EXPECT_THAT(take(follower), ElementsAre("FILE_REPLACED", "1"));
    EXPECT_THAT(takeCounts(follower), ElementsAre(1, 2));
}

TEST_F(FaultFollowerReplacedTest, GivesEveryStatisticOfAFileThatWasMissingWhenItWasMade)
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

TEST_F(FaultFollowerReplacedTest, OpensAnImmutableFileAgainAfterItWasReplaced)
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
