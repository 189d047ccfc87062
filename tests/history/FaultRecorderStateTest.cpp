// The active triples, whichever program wrote their newest rows.

#include "RecorderFixtures.h"

namespace
{

using namespace firaim;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

using Keys = std::vector<unsigned long long>;

class FaultRecorderStateTest : public FaultRecorderTest
{
protected:
    FaultRecorderStateTest() { open(); }

    int raise(std::uint64_t code, std::string const& module = "m")
    {
        return recorder.raise(eventOf(code, module)).result;
    }
    int clear(std::uint64_t code, std::string const& module = "m")
    {
        return recorder.clear(eventOf(code, module)).result;
    }

    /// Inserts a row without a statistic, as another application would.
    void insertForeign(std::uint64_t code, std::string const& module, faultStatus_t status) const
    {
        Fault fault = makeFault(1);
        fault.FaultCode = static_cast<faultCode_t>(code);
        fault.ModuleName = module;
        fault.Parameter = "parameter";
        fault.Status = status;
        ASSERT_EQ(Facade(path)->insert(fault), RESULT_OK);
    }
};

TEST_F(FaultRecorderStateTest, RaiseWritesAnActiveRowWhateverTheStatusOfTheEvent)
{
    EXPECT_EQ(recorder.raise(eventOf(1, "m", "p", FAULT_INACTIVE)).result, HISTORY_OK);
    EXPECT_EQ(value("SELECT Status FROM FdbFaultTbl"), "ErrorActive");
    EXPECT_EQ(statistic(1, "FaultActive"), "active");
}

TEST_F(FaultRecorderStateTest, ClearWritesAnInactiveRowWhateverTheStatusOfTheEvent)
{
    ASSERT_EQ(raise(1), HISTORY_OK);
    EXPECT_EQ(recorder.clear(eventOf(1, "m")).result, HISTORY_OK);
    EXPECT_EQ(value("SELECT Status FROM FdbFaultTbl WHERE EntryId = 2"), "ErrorInactive");
    EXPECT_EQ(statistic(1, "FaultActive"), "inactive");
}

TEST_F(FaultRecorderStateTest, RaiseOfAnActiveTripleWritesNothing)
{
    Receipt const first = recorder.raise(eventOf(1));
    std::string const before = readFile(path);
    Receipt const second = recorder.raise(eventOf(1));
    EXPECT_EQ(second.result, HISTORY_UNCHANGED);
    EXPECT_EQ(second.key, first.key);
    EXPECT_TRUE(readFile(path) == before);
}

TEST_F(FaultRecorderStateTest, ClearOfAnInactiveTripleWritesNothing)
{
    std::string const before = readFile(path);
    Receipt const receipt = recorder.clear(eventOf(1));
    EXPECT_EQ(receipt.result, HISTORY_UNCHANGED);
    EXPECT_EQ(receipt.key, 0U);
    EXPECT_TRUE(readFile(path) == before);
}

TEST_F(FaultRecorderStateTest, UnchangedNamesTheNewestRowOfTheTriple)
{
    ASSERT_EQ(raise(1), HISTORY_OK);
    unsigned long long const newest = recorder.record(eventOf(1, "m")).key;
    EXPECT_EQ(recorder.raise(eventOf(1, "m")).key, newest);
}

TEST_F(FaultRecorderStateTest, TripleIsOneOfCodeModuleAndParameter)
{
    ASSERT_EQ(recorder.raise(eventOf(1, "ab", "c")).result, HISTORY_OK);
    EXPECT_EQ(recorder.raise(eventOf(1, "a", "bc")).result, HISTORY_OK);
    EXPECT_EQ(recorder.raise(eventOf(2, "ab", "c")).result, HISTORY_OK);
    EXPECT_EQ(recorder.raise(eventOf(1, "AB", "c")).result, HISTORY_OK);
    EXPECT_EQ(recorder.raise(eventOf(1, "ab", "")).result, HISTORY_OK);
    EXPECT_EQ(recorder.raise(eventOf(1, "ab", "c")).result, HISTORY_UNCHANGED);
}

TEST_F(FaultRecorderStateTest, RecordSetsTheStateOfItsTriple)
{
    EXPECT_EQ(recorder.record(eventOf(1, "m", "p", FAULT_ACTIVE)).result, HISTORY_OK);
    EXPECT_EQ(recorder.raise(eventOf(1, "m", "p")).result, HISTORY_UNCHANGED);
    EXPECT_EQ(recorder.record(eventOf(1, "m", "p", FAULT_INACTIVE)).result, HISTORY_OK);
    EXPECT_EQ(recorder.clear(eventOf(1, "m", "p")).result, HISTORY_UNCHANGED);
    EXPECT_EQ(recorder.record(eventOf(1, "m", "p", FAULT_INACTIVE)).result, HISTORY_OK) << "record always writes";
}

TEST_F(FaultRecorderStateTest, CodeIsActiveWhileAnyOfItsTriplesIs)
{
    ASSERT_EQ(raise(1, "a"), HISTORY_OK);
    ASSERT_EQ(raise(1, "b"), HISTORY_OK);
    ASSERT_EQ(clear(1, "a"), HISTORY_OK);
    EXPECT_EQ(statistic(1, "FaultActive"), "active");
    ASSERT_EQ(recorder.record(eventOf(1, "c", "parameter", FAULT_INACTIVE)).result, HISTORY_OK);
    EXPECT_EQ(statistic(1, "FaultActive"), "active");
    ASSERT_EQ(clear(1, "b"), HISTORY_OK);
    EXPECT_EQ(statistic(1, "FaultActive"), "inactive");
}

TEST_F(FaultRecorderStateTest, ClearCodeEndsEveryActiveTripleOfTheCode)
{
    for (char const* const module : {"a", "b", "c"})
    {
        ASSERT_EQ(raise(1, module), HISTORY_OK);
    }
    ASSERT_EQ(raise(2, "a"), HISTORY_OK);
    ASSERT_EQ(clear(1, "b"), HISTORY_OK);
    FaultEvent end = eventOf(1, "not this", "nor this");
    end.description = "serviced";
    Keys keys;
    EXPECT_EQ(recorder.clearCode(end, keys), HISTORY_OK);
    EXPECT_EQ(rows("SELECT ModuleName, Parameter, Status, Description FROM FdbFaultTbl WHERE EntryId > 5 ORDER BY "
                   "ModuleName"),
              (Rows{{"a", "parameter", "ErrorInactive", "serviced"}, {"c", "parameter", "ErrorInactive", "serviced"}}));
    EXPECT_THAT(keys, UnorderedElementsAre(6U, 7U));
    EXPECT_EQ(statistic(1, "FaultActive"), "inactive");
    EXPECT_EQ(statistic(2, "FaultActive"), "active");
    EXPECT_EQ(clear(1, "a"), HISTORY_UNCHANGED);
}

TEST_F(FaultRecorderStateTest, ClearCodeOfACodeThatIsNotActiveWritesNothing)
{
    ASSERT_EQ(raise(1), HISTORY_OK);
    ASSERT_EQ(clear(1), HISTORY_OK);
    std::string const before = readFile(path);
    Keys keys = {9};
    EXPECT_EQ(recorder.clearCode(eventOf(1), keys), HISTORY_UNCHANGED);
    EXPECT_EQ(recorder.clearCode(eventOf(2), keys), HISTORY_UNCHANGED);
    EXPECT_THAT(keys, ElementsAre());
    EXPECT_TRUE(readFile(path) == before);
}

TEST_F(FaultRecorderStateTest, ClearCodeEndsAStatisticThatNoTripleMakesActive)
{
    exec("INSERT INTO FdbFaultStatisticTbl(FaultCode, FaultCodeName, FaultActive, OccurenceCnt) "
         "VALUES(5, 'five', 'active', 4)");
    Keys keys;
    EXPECT_EQ(recorder.clearCode(eventOf(5, "m", "p"), keys), HISTORY_OK);
    EXPECT_EQ(rows("SELECT EntryId, FaultCode, ModuleName, Parameter, Status FROM FdbFaultTbl"),
              (Rows{{"1", "5", "m", "p", "ErrorInactive"}}));
    EXPECT_THAT(keys, ElementsAre(1U));
    EXPECT_EQ(statistic(5, "FaultActive || OccurenceCnt"), "inactive4");
}

TEST_F(FaultRecorderStateTest, StateIsReadFromTheFileWhenItIsOpened)
{
    ASSERT_EQ(raise(1, "a"), HISTORY_OK);
    ASSERT_EQ(raise(1, "b"), HISTORY_OK);
    ASSERT_EQ(clear(1, "b"), HISTORY_OK);
    ASSERT_EQ(recorder.close(), HISTORY_OK);
    open();
    EXPECT_EQ(clear(1, "b"), HISTORY_UNCHANGED);
    EXPECT_EQ(recorder.raise(eventOf(1, "a")).key, 1U);
    EXPECT_EQ(clear(1, "a"), HISTORY_OK);
}

TEST_F(FaultRecorderStateTest, TwoRecordersOfOneProcessAgree)
{
    FaultRecorder other;
    ASSERT_EQ(other.open(path), HISTORY_OK);
    for (int round = 0; round < 3; ++round)
    {
        EXPECT_EQ(raise(1, "a"), HISTORY_OK);
        EXPECT_EQ(other.raise(eventOf(1, "a")).result, HISTORY_UNCHANGED);
        EXPECT_EQ(other.raise(eventOf(1, "b")).result, HISTORY_OK);
        EXPECT_EQ(clear(1, "a"), HISTORY_OK);
        EXPECT_EQ(statistic(1, "FaultActive"), "active");
        EXPECT_EQ(clear(1, "b"), HISTORY_OK);
        EXPECT_EQ(other.clear(eventOf(1, "b")).result, HISTORY_UNCHANGED);
    }
    EXPECT_EQ(statistic(1, "OccurenceCnt || FaultActive"), "6inactive");
}

TEST_F(FaultRecorderStateTest, RecordersOfTwoProcessesAgree)
{
    Signal toChild;
    Signal toParent;
    pid_t const child = startChild(
        [&]
        {
            FaultRecorder other;
            EXPECT_EQ(other.open(path), HISTORY_OK);
            for (int round = 0; round < 3; ++round)
            {
                toChild.wait();
                EXPECT_EQ(other.raise(eventOf(1, "m")).result, HISTORY_UNCHANGED);
                EXPECT_EQ(other.clear(eventOf(1, "m")).result, HISTORY_OK);
                EXPECT_EQ(other.raise(eventOf(1, "child")).result, HISTORY_OK);
                toParent.give();
            }
        });
    for (int round = 0; round < 3; ++round)
    {
        EXPECT_EQ(raise(1), HISTORY_OK);
        toChild.give();
        toParent.wait();
        EXPECT_EQ(clear(1), HISTORY_UNCHANGED);
        EXPECT_EQ(clear(1, "child"), HISTORY_OK);
    }
    expectSuccess(child);
    EXPECT_EQ(statistic(1, "OccurenceCnt || FaultActive"), "6inactive");
}

TEST_F(FaultRecorderStateTest, RowsOfTheFacadeCount)
{
    ASSERT_EQ(clear(1), HISTORY_UNCHANGED);
    insertForeign(1, "m", FAULT_ACTIVE);
    EXPECT_EQ(recorder.raise(eventOf(1, "m")).key, 1U);
    insertForeign(1, "m", FAULT_INACTIVE);
    EXPECT_EQ(clear(1), HISTORY_UNCHANGED);
    insertForeign(1, "m", FAULT_ACTIVE);
    EXPECT_EQ(clear(1), HISTORY_OK);
    EXPECT_EQ(value(kCountOfFaults), "4");
}

TEST_F(FaultRecorderStateTest, NewestRowOfAnActiveTripleThatIsRewrittenInPlaceIsNoticed)
{
    ASSERT_EQ(raise(1), HISTORY_OK);
    for (char const* const change :
         {"Status = 'ErrorInactive'", "ModuleName = 'x'", "Parameter = 'x'", "FaultCode = 9"})
    {
        SCOPED_TRACE(change);
        exec(std::string("UPDATE FdbFaultTbl SET ") + change +
             " WHERE EntryId = (SELECT max(EntryId) FROM FdbFaultTbl)");
        EXPECT_EQ(clear(1), HISTORY_UNCHANGED);
        EXPECT_EQ(raise(1), HISTORY_OK);
    }
}

TEST_F(FaultRecorderStateTest, RowBeforeARemovedOneIsTheNewest)
{
    ASSERT_EQ(raise(1), HISTORY_OK);
    ASSERT_EQ(clear(1), HISTORY_OK);
    ASSERT_EQ(raise(1), HISTORY_OK);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId = 3");
    EXPECT_EQ(clear(1), HISTORY_UNCHANGED);
    ASSERT_EQ(recorder.record(eventOf(1, "m")).result, HISTORY_OK);
    Receipt const again = recorder.record(eventOf(1, "m"));
    exec("DELETE FROM FdbFaultTbl WHERE EntryId = " + std::to_string(again.key));
    EXPECT_EQ(recorder.raise(eventOf(1, "m")).key, again.key - 1);
}

TEST_F(FaultRecorderStateTest, RowBeforeARemovedEndIsActiveAgain)
{
    ASSERT_EQ(raise(1), HISTORY_OK);
    ASSERT_EQ(clear(1), HISTORY_OK);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId = 2");
    EXPECT_EQ(recorder.raise(eventOf(1, "m")).result, HISTORY_UNCHANGED);
}

TEST_F(FaultRecorderStateTest, TableThatWasEmptiedHasNoActiveTriple)
{
    ASSERT_EQ(raise(1), HISTORY_OK);
    ASSERT_EQ(raise(2), HISTORY_OK);
    exec("DELETE FROM FdbFaultTbl");
    EXPECT_EQ(clear(1), HISTORY_UNCHANGED);
    EXPECT_EQ(raise(2), HISTORY_OK);
}

TEST_F(FaultRecorderStateTest, KeysThatStartAnewAreNoticed)
{
    ASSERT_EQ(raise(1), HISTORY_OK);
    ASSERT_EQ(raise(2), HISTORY_OK);
    exec("DELETE FROM FdbFaultTbl; DELETE FROM sqlite_sequence WHERE name = 'FdbFaultTbl'");
    insertForeign(3, "m", FAULT_ACTIVE);
    EXPECT_EQ(raise(3), HISTORY_UNCHANGED);
}

TEST_F(FaultRecorderStateTest, KeysThatStartAnewAreNoticedWhenTheNumberOfRowsIsEqual)
{
    for (bool const isOurs : {true, false})
    {
        SCOPED_TRACE(isOurs ? "the last row seen is our own" : "the last row seen is another's");
        ASSERT_EQ(raise(1), HISTORY_OK);
        ASSERT_EQ(clear(1), HISTORY_OK);
        if (!isOurs)
        {
            insertForeign(8, "m", FAULT_INACTIVE);
            ASSERT_EQ(clear(1), HISTORY_UNCHANGED);
        }
        exec("DELETE FROM FdbFaultTbl; DELETE FROM FdbFaultStatisticTbl; "
             "DELETE FROM sqlite_sequence WHERE name = 'FdbFaultTbl'");
        FaultRecorder other;
        ASSERT_EQ(other.open(path), HISTORY_OK);
        for (int const code : {3, 1, 2, 4})
        {
            ASSERT_EQ(other.raise(eventOf(static_cast<std::uint64_t>(code), "n")).result, HISTORY_OK);
        }
        EXPECT_EQ(raise(3, "n"), HISTORY_UNCHANGED);
        EXPECT_EQ(clear(4, "n"), HISTORY_OK);
        EXPECT_EQ(clear(1), HISTORY_UNCHANGED);
        exec("DELETE FROM FdbFaultTbl");
    }
}

TEST_F(FaultRecorderStateTest, RowOfTheSameTripleWithAnotherTimeIsNoticed)
{
    FaultEvent event = eventOf(1, "m");
    event.systemTimeText = "before";
    ASSERT_EQ(recorder.record(eventOf(2, "m", "parameter", FAULT_INACTIVE)).result, HISTORY_OK);
    ASSERT_EQ(recorder.raise(event).key, 2U);
    exec("UPDATE FdbFaultTbl SET FaultCode = 3, Status = 'ErrorActive' WHERE EntryId = 1; "
         "UPDATE FdbFaultTbl SET SystemDateTimeString = 'after' WHERE EntryId = 2");
    EXPECT_EQ(clear(3), HISTORY_OK);
}

TEST_F(FaultRecorderStateTest, RemovedStatisticStartsAnew)
{
    ASSERT_EQ(raise(1), HISTORY_OK);
    exec("DELETE FROM FdbFaultStatisticTbl");
    ASSERT_EQ(clear(1), HISTORY_OK);
    EXPECT_EQ(statistic(1, "OccurenceCnt || FaultActive"), "0inactive");
    ASSERT_EQ(raise(1), HISTORY_OK);
    EXPECT_EQ(statistic(1, "OccurenceCnt || FaultActive"), "1active");
}

// Scanning the table for each triple would exceed the time limit of a group.
TEST_F(FaultRecorderStateTest, EventIsStoredAfterTheRowsOfManyActiveTriplesWereRemoved)
{
    std::vector<FaultEvent> events;
    for (int i = 0; i < 4000; ++i)
    {
        events.push_back(eventOf(1, "m" + std::to_string(i)));
    }
    std::vector<Receipt> receipts;
    ASSERT_EQ(recorder.recordAll(events, receipts), HISTORY_OK);
    ASSERT_EQ(recorder.raise(events.front()).result, HISTORY_UNCHANGED);
    exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 60000) INSERT INTO "
         "FdbFaultTbl(FaultCode, ModuleName, Parameter, Status) SELECT 1, 'foreign', 'p', 'ErrorInactive' FROM n");
    ASSERT_EQ(recorder.record(eventOf(2)).result, HISTORY_OK);
    ASSERT_EQ(clear(1), HISTORY_UNCHANGED);
    exec("DELETE FROM FdbFaultTbl WHERE EntryId <= 3999");
    EXPECT_EQ(recorder.record(eventOf(2)).result, HISTORY_OK) << recorder.lastProblem();
    EXPECT_EQ(recorder.clear(events.front()).result, HISTORY_UNCHANGED) << recorder.lastProblem();
    EXPECT_EQ(recorder.raise(events.back()).result, HISTORY_UNCHANGED) << "its row was not removed";
    EXPECT_EQ(recorder.raise(events.front()).result, HISTORY_OK) << recorder.lastProblem();
}

TEST_F(FaultRecorderStateTest, ForeignRowsCountEvenIfTheyExceedOneBatch)
{
    ASSERT_EQ(raise(1), HISTORY_OK);
    exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 25000) INSERT INTO "
         "FdbFaultTbl(FaultCode, ModuleName, Parameter, Status) SELECT 3, 'foreign', i % 100, 'ErrorActive' FROM n");
    insertForeign(1, "m", FAULT_INACTIVE);
    EXPECT_EQ(clear(1), HISTORY_UNCHANGED);
    EXPECT_EQ(recorder.raise(eventOf(3, "foreign", "99")).result, HISTORY_UNCHANGED);
    EXPECT_EQ(raise(1), HISTORY_OK);
}

TEST_F(FaultRecorderStateTest, NullCellsDifferFromEmptyTexts)
{
    exec("INSERT INTO FdbFaultTbl(FaultCode, Status) VALUES(1, 'ErrorActive')");
    EXPECT_EQ(recorder.raise(eventOf(1, "n/a", "n/a")).result, HISTORY_UNCHANGED);
    EXPECT_EQ(recorder.raise(eventOf(1, "", "")).result, HISTORY_OK);
}

} // namespace
