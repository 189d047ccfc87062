#include "Fixtures.h"

#include <gmock/gmock.h>

#include <limits>

using testing::ElementsAre;

namespace
{

class RecordingFaults : public FaultDbTest
{
protected:
    RecordingFaults() { createAndOpen(); }

    Fault fault = makeFault();
};

/// All cells of each row, in the order of the columns.
constexpr char kRows[] = "SELECT * FROM FdbFaultTbl ORDER BY EntryId";

} // namespace

TEST_F(FaultDbTest, FaultsAreNotRecordedWithoutAnOpenDatabase)
{
    db.setDbgLevel(2);
    Fault fault = makeFault();
    Fault const before = fault;
    EXPECT_EQ(db.insert(fault), -1);
    EXPECT_EQ(db.update(fault), -1);
    EXPECT_EQ(members(fault), members(before));
    EXPECT_EQ(console.take(), "");
}

TEST_F(RecordingFaults, InsertStoresEveryMemberInItsColumn)
{
    EXPECT_EQ(db.insert(fault), 0);
    EXPECT_THAT(RawDb(path).rows(kRows),
                ElementsAre(RawDb::Row{"1", "2026-03-01 12:00:00 1", "1001", "code name 1", "module 1", "parameter 1",
                                       "1772366400000001", "UTC+1 1", "ErrorActive", "description 1", "dump 1", "2001",
                                       "3001", "backup 1", "4001", "2026-03-01 11:59:59 1"}));
}

TEST_F(RecordingFaults, InsertChangesNothingInTheRecordButItsKey)
{
    EXPECT_EQ(db.insert(fault), 0);
    Fault expected = makeFault();
    expected.EntryId = 1;
    EXPECT_EQ(members(fault), members(expected));
}

TEST_F(RecordingFaults, EachInsertAddsARowWithALargerKey)
{
    EXPECT_EQ(db.insert(fault), 0);
    unsigned long long const first = fault.EntryId;
    EXPECT_EQ(db.insert(fault), 0);
    EXPECT_GT(fault.EntryId, first);
    EXPECT_EQ(RawDb(path).value("SELECT count(*) FROM FdbFaultTbl"), "2");
    EXPECT_EQ(RawDb(path).value("SELECT max(EntryId) FROM FdbFaultTbl"), std::to_string(fault.EntryId));
}

TEST_F(RecordingFaults, KeysAreNotUsedAgainAfterRowsWereDeleted)
{
    EXPECT_EQ(db.insert(fault), 0);
    RawDb(path).exec("DELETE FROM FdbFaultTbl");
    EXPECT_EQ(db.insert(fault), 0);
    EXPECT_EQ(fault.EntryId, 2U);
}

TEST_F(RecordingFaults, KeyGivenBackIsTheLargestInTheTable)
{
    RawDb(path).exec("CREATE TRIGGER other AFTER INSERT ON FdbFaultTbl WHEN new.FaultCode<5000 BEGIN "
                     "INSERT INTO FdbFaultTbl(FaultCode) VALUES(5000); END");
    EXPECT_EQ(db.insert(fault), 0);
    EXPECT_EQ(fault.EntryId, 2U) << "another writer's row came in between";
}

TEST_F(RecordingFaults, InsertIsSilentAtDebugLevelZero)
{
    EXPECT_EQ(db.insert(fault), 0);
    EXPECT_EQ(db.update(fault), 0);
    EXPECT_EQ(console.take(), "");
}

TEST_F(RecordingFaults, InsertLogsTheRecordAsItWasGivenAtDebugLevelOne)
{
    db.setDbgLevel(1);
    std::string const form = textOf(fault);
    EXPECT_EQ(db.insert(fault), 0);
    EXPECT_EQ(console.take(), "[DEBUG] FDB::insert() Insert:" + form + "\n");
}

TEST_F(RecordingFaults, InsertLogsItsStatementTooAtDebugLevelTwo)
{
    db.setDbgLevel(2);
    Fault empty;
    std::string const form = textOf(empty);
    EXPECT_EQ(db.insert(empty), 0);
    EXPECT_THAT(console.takeLines(),
                ElementsAre("[DEBUG] FDB::insert() Insert:" + form,
                            "[DEBUG] FDB::insert() SqlCmd: INSERT INTO FdbFaultTbl('EntryId','DateTimeString',"
                            "'FaultCode','FaultCodeName','ModuleName','Parameter','TimeStampUTC','TimeZone','Status',"
                            "'Description','DiagSignalsDumpFileName','LoggerUpTime','LoggerLifeTime','CfgBackupFile',"
                            "'RdbStartupId','SystemDateTimeString') VALUES(null,'',0,'','','',0,'','ErrorInactive','',"
                            "'',0,0,'',0,'')"));
}

TEST_F(RecordingFaults, FailedInsertGivesItsCodeAndLeavesTheRecord)
{
    RawDb(path).exec("DROP TABLE FdbFaultTbl");
    Fault const before = fault;
    EXPECT_EQ(db.insert(fault), -2);
    EXPECT_EQ(members(fault), members(before));
    EXPECT_EQ(console.take(), "[ERROR] SQL3::execute() Sql Execute failed: no such table: FdbFaultTbl Err=1\n");
}

TEST_F(RecordingFaults, FailedReadBackGivesItsCodeAndTheRowStays)
{
    // Only the read-back takes the key's name from the column; the INSERT does not name the key.
    db.m_faultTbl.m_columns.at(0).valid = false;
    db.m_faultTbl.m_columns.at(0).name = "Missing";
    Fault const before = fault;
    EXPECT_EQ(db.insert(fault), -2);
    EXPECT_EQ(members(fault), members(before));
    EXPECT_EQ(console.take(), "[ERROR] SQL3::getTbl() Sql Query failed: no such column: Missing Err=1\n");
    EXPECT_EQ(RawDb(path).value("SELECT count(*) FROM FdbFaultTbl"), "1");
}

TEST_F(RecordingFaults, ReadBackNamesTheKeyNotFoundWhenTheModelHasNone)
{
    db.m_faultTbl.m_columns.erase(0);
    EXPECT_EQ(db.insert(fault), -2);
    EXPECT_EQ(console.take(), "[ERROR] SQL3::getTbl() Sql Query failed: no such column: NotFound Err=1\n");
}

TEST_F(RecordingFaults, ReadBackThatFindsNoRowGivesItsCodeAndLeavesTheRecord)
{
    RawDb(path).exec("CREATE TRIGGER gone AFTER INSERT ON FdbFaultTbl BEGIN DELETE FROM FdbFaultTbl; END");
    Fault const before = fault;
    EXPECT_EQ(db.insert(fault), -2);
    EXPECT_EQ(members(fault), members(before));
    EXPECT_EQ(console.take(), "");
}

TEST_F(RecordingFaults, UpdateRewritesEveryColumnOfTheRowWithTheKeyAndNoOther)
{
    Fault other = makeFault(2);
    ASSERT_EQ(db.insert(fault), 0);
    ASSERT_EQ(db.insert(other), 0);
    Fault changed = makeFault(3);
    changed.EntryId = fault.EntryId;
    changed.Status = FAULT_INACTIVE;
    EXPECT_EQ(db.update(changed), 0);

    FaultTbl stored;
    ASSERT_EQ(db.getFaultTbl(stored), 2);
    EXPECT_EQ(members(stored[0]), members(changed));
    EXPECT_EQ(members(stored[1]), members(other));
}

TEST_F(RecordingFaults, UpdateOfAnUnknownKeySucceedsAndChangesNothing)
{
    ASSERT_EQ(db.insert(fault), 0);
    auto const before = RawDb(path).rows(kRows);
    Fault unknown = makeFault(2);
    EXPECT_EQ(db.update(unknown), 0);
    EXPECT_EQ(RawDb(path).rows(kRows), before);
}

TEST_F(RecordingFaults, UpdateLogsTheRecordAndAtLevelTwoItsStatementWithoutTheWhereClause)
{
    Fault empty;
    std::string const form = "[DEBUG] FDB::update() Update:" + textOf(empty);
    db.setDbgLevel(1);
    EXPECT_EQ(db.update(empty), 0);
    EXPECT_THAT(console.takeLines(), ElementsAre(form));
    db.setDbgLevel(2);
    EXPECT_EQ(db.update(empty), 0);
    EXPECT_THAT(console.takeLines(),
                ElementsAre(form, "[DEBUG] FDB::update() SqlCmd: UPDATE FdbFaultTbl SET 'DateTimeString'='',"
                                  "'FaultCode'=0,'FaultCodeName'='','ModuleName'='','Parameter'='','TimeStampUTC'=0,"
                                  "'TimeZone'='','Status'='ErrorInactive','Description'='',"
                                  "'DiagSignalsDumpFileName'='','LoggerUpTime'=0,'LoggerLifeTime'=0,"
                                  "'CfgBackupFile'='','RdbStartupId'=0,'SystemDateTimeString'=''"));
}

TEST_F(RecordingFaults, FailedUpdateGivesItsCodeWithoutALineOfItsOwn)
{
    RawDb(path).exec("DROP TABLE FdbFaultTbl");
    EXPECT_EQ(db.update(fault), -2);
    EXPECT_EQ(console.take(), "[ERROR] SQL3::execute() Sql Execute failed: no such table: FdbFaultTbl Err=1\n");
}

TEST_F(RecordingFaults, LargestNumbersOfSqliteComeBackUnchanged)
{
    fault.TimeStampUTC = std::numeric_limits<long long>::max();
    fault.FaultCode = static_cast<faultCode_t>(std::numeric_limits<unsigned int>::max());
    fault.LoggerUpTime = std::numeric_limits<unsigned int>::max();
    ASSERT_EQ(db.insert(fault), 0);
    Fault read;
    ASSERT_EQ(db.getFaultById(read, fault.EntryId), 0);
    EXPECT_EQ(members(read), members(fault));
}

TEST_F(RecordingFaults, NumbersBeyondSqlitesIntegersComeBackChanged)
{
    fault.TimeStampUTC = std::numeric_limits<unsigned long long>::max();
    ASSERT_EQ(db.insert(fault), 0);
    EXPECT_EQ(RawDb(path).value("SELECT typeof(TimeStampUTC) FROM FdbFaultTbl"), "real");
    Fault read;
    ASSERT_EQ(db.getFaultById(read, fault.EntryId), 0);
    EXPECT_EQ(read.TimeStampUTC, 1U) << "SQLite shows 1.84467440737096e+19, which is read up to its point";
}

TEST_F(RecordingFaults, OnlyAnActiveStatusSurvivesBeingStored)
{
    fault.Status = static_cast<faultStatus_t>(7);
    ASSERT_EQ(db.insert(fault), 0);
    EXPECT_EQ(RawDb(path).value("SELECT Status FROM FdbFaultTbl"), "ErrorInactive");
    Fault read;
    ASSERT_EQ(db.getFaultById(read, fault.EntryId), 0);
    EXPECT_EQ(read.Status, FAULT_INACTIVE);
}
