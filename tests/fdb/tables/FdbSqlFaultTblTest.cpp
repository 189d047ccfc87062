#include <fdb/tables/FdbSqlFaultTbl.h>

#include "TableFixture.h"

#include <gmock/gmock.h>

#include <type_traits>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using Base = SqlTbl<Fault>;

class FaultTable : public TableTest<FdbSqlFaultTbl, Fault>
{
protected:
    FaultTable() : TableTest("FdbFaultTbl") {}
};

/// A row of empty texts and zeros whose status cell is `status`.
std::vector<char const*> rowWithStatus(char const* status)
{
    return {"0", "", "0", "", "", "", "0", "", status, "", "", "0", "0", "", "0", ""};
}

} // namespace

static_assert(!std::is_same_v<decltype(&FdbSqlFaultTbl::init), decltype(&Base::init)>);
static_assert(!std::is_same_v<decltype(&FdbSqlFaultTbl::convertValueToStr), decltype(&Base::convertValueToStr)>);
static_assert(!std::is_same_v<decltype(&FdbSqlFaultTbl::convertValueFromStr), decltype(&Base::convertValueFromStr)>);
static_assert(std::has_virtual_destructor_v<FdbSqlFaultTbl>);

TEST_F(FaultTable, HasItsColumns)
{
    auto& r = tbl.m_record;
    expectColumns({
        {"EntryId", Base::COLUMN_TYPE_UINT64, &r.EntryId, kKey},
        {"DateTimeString", Base::COLUMN_TYPE_STRING, &r.DateTimeString, kText},
        {"FaultCode", Base::COLUMN_TYPE_UINT32, &r.FaultCode, kNumber},
        {"FaultCodeName", Base::COLUMN_TYPE_STRING, &r.FaultCodeName, kText},
        {"ModuleName", Base::COLUMN_TYPE_STRING, &r.ModuleName, kText},
        {"Parameter", Base::COLUMN_TYPE_STRING, &r.Parameter, kText},
        {"TimeStampUTC", Base::COLUMN_TYPE_UINT64, &r.TimeStampUTC, kNumber},
        {"TimeZone", Base::COLUMN_TYPE_STRING, &r.TimeZone, kText},
        {"Status", Base::COLUMN_TYPE_CUSTOM, &r.Status, kText},
        {"Description", Base::COLUMN_TYPE_STRING, &r.Description, kText},
        {"DiagSignalsDumpFileName", Base::COLUMN_TYPE_STRING, &r.DiagSignalsDumpFileName, kText},
        {"LoggerUpTime", Base::COLUMN_TYPE_UINT32, &r.LoggerUpTime, kNumber},
        {"LoggerLifeTime", Base::COLUMN_TYPE_UINT32, &r.LoggerLifeTime, kNumber},
        {"CfgBackupFile", Base::COLUMN_TYPE_STRING, &r.CfgBackupFile, kText},
        {"RdbStartupId", Base::COLUMN_TYPE_UINT32, &r.RdbStartupId, kNumber},
        {"SystemDateTimeString", Base::COLUMN_TYPE_STRING, &r.SystemDateTimeString, kText},
    });
}

TEST_F(FaultTable, NamesColumnsById)
{
    EXPECT_EQ(tbl.getColumnNameById(0), "EntryId");
    EXPECT_EQ(tbl.getColumnNameById(14), "RdbStartupId");
    EXPECT_EQ(tbl.getColumnNameById(16), "NotFound");
}

TEST_F(FaultTable, InsertOfAFullFault)
{
    EXPECT_EQ(tbl.getSqlInsertValuesQuery(makeFault()),
              "INSERT INTO FdbFaultTbl('EntryId','DateTimeString','FaultCode','FaultCodeName','ModuleName',"
              "'Parameter','TimeStampUTC','TimeZone','Status','Description','DiagSignalsDumpFileName','LoggerUpTime',"
              "'LoggerLifeTime','CfgBackupFile','RdbStartupId','SystemDateTimeString') VALUES(null,"
              "'2026-03-01 12:00:00 1',1001,'code name 1','module 1','parameter 1',1772366400000001,'UTC+1 1',"
              "'ErrorActive','description 1','dump 1',2001,3001,'backup 1',4001,'2026-03-01 11:59:59 1')");
}

TEST_F(FaultTable, InsertOfAnEmptyFault)
{
    EXPECT_EQ(tbl.getSqlInsertValuesQuery(Fault()),
              "INSERT INTO FdbFaultTbl('EntryId','DateTimeString','FaultCode','FaultCodeName','ModuleName',"
              "'Parameter','TimeStampUTC','TimeZone','Status','Description','DiagSignalsDumpFileName','LoggerUpTime',"
              "'LoggerLifeTime','CfgBackupFile','RdbStartupId','SystemDateTimeString') VALUES(null,'',0,'','','',0,'',"
              "'ErrorInactive','','',0,0,'',0,'')");
}

TEST_F(FaultTable, UpdateOfAFullFault)
{
    EXPECT_EQ(tbl.getSqlUpdateValuesQuery(makeFault()),
              "UPDATE FdbFaultTbl SET 'DateTimeString'='2026-03-01 12:00:00 1','FaultCode'=1001,"
              "'FaultCodeName'='code name 1','ModuleName'='module 1','Parameter'='parameter 1',"
              "'TimeStampUTC'=1772366400000001,'TimeZone'='UTC+1 1','Status'='ErrorActive',"
              "'Description'='description 1','DiagSignalsDumpFileName'='dump 1','LoggerUpTime'=2001,"
              "'LoggerLifeTime'=3001,'CfgBackupFile'='backup 1','RdbStartupId'=4001,"
              "'SystemDateTimeString'='2026-03-01 11:59:59 1'");
}

TEST_F(FaultTable, UpdateOfAnEmptyFault)
{
    EXPECT_EQ(tbl.getSqlUpdateValuesQuery(Fault()),
              "UPDATE FdbFaultTbl SET 'DateTimeString'='','FaultCode'=0,'FaultCodeName'='','ModuleName'='',"
              "'Parameter'='','TimeStampUTC'=0,'TimeZone'='','Status'='ErrorInactive','Description'='',"
              "'DiagSignalsDumpFileName'='','LoggerUpTime'=0,'LoggerLifeTime'=0,'CfgBackupFile'='','RdbStartupId'=0,"
              "'SystemDateTimeString'=''");
}

TEST_F(FaultTable, FaultCodeIsStoredAsItsWholeNumber)
{
    Fault fault;
    fault.FaultCode = static_cast<faultCode_t>(4294967295U);
    EXPECT_THAT(tbl.getSqlUpdateValuesQuery(fault), testing::HasSubstr(",'FaultCode'=4294967295,"));
}

TEST_F(FaultTable, DecodesAFullRow)
{
    EXPECT_EQ(decode({"900001", "2026-03-01 12:00:00 1", "1001", "code name 1", "module 1", "parameter 1",
                      "1772366400000001", "UTC+1 1", "ErrorActive", "description 1", "dump 1", "2001", "3001",
                      "backup 1", "4001", "2026-03-01 11:59:59 1"}),
              16);
    EXPECT_EQ(members(tbl.m_record), members(makeFault()));
}

TEST_F(FaultTable, DecodesTheLargestFaultCode)
{
    auto row = rowWithStatus("ErrorActive");
    row[2] = "4294967295";
    decode(row);
    EXPECT_EQ(static_cast<unsigned int>(tbl.m_record.FaultCode), 4294967295U);
}

TEST_F(FaultTable, StatusCellSetsTheStatus)
{
    decode(rowWithStatus("ErrorActive"));
    EXPECT_EQ(tbl.m_record.Status, FAULT_ACTIVE);
    decode(rowWithStatus("ErrorInactive"));
    EXPECT_EQ(tbl.m_record.Status, FAULT_INACTIVE);
}

TEST_F(FaultTable, NullStatusCellIsReportedAndKeepsTheStatusOfThePreviousRow)
{
    decode(rowWithStatus("ErrorActive"));
    decode(rowWithStatus(nullptr));
    EXPECT_EQ(tbl.m_record.Status, FAULT_ACTIVE);
    EXPECT_THAT(console.takeLines(), ElementsAre("[WARNING] Unknown type!!!!!"));
}

TEST_F(FaultTable, ActiveStatusIsWrittenAsErrorActive)
{
    faultStatus_t status = FAULT_ACTIVE;
    EXPECT_EQ(tbl.convertValueToStr(Base::COLUMN_TYPE_CUSTOM, &status), "ErrorActive");
}

TEST_F(FaultTable, EveryOtherStatusIsWrittenAsErrorInactive)
{
    for (unsigned int const number : {0U, 2U, 7U, 256U, 65537U, 4294967295U})
    {
        auto status = static_cast<faultStatus_t>(number);
        EXPECT_EQ(tbl.convertValueToStr(Base::COLUMN_TYPE_CUSTOM, &status), "ErrorInactive") << number;
    }
}

TEST_F(FaultTable, ExactlyErrorActiveIsReadAsActive)
{
    faultStatus_t status = FAULT_INACTIVE;
    tbl.convertValueFromStr(Base::COLUMN_TYPE_CUSTOM, "ErrorActive", &status);
    EXPECT_EQ(status, FAULT_ACTIVE);
}

TEST_F(FaultTable, EveryOtherTextIsReadAsInactive)
{
    for (char const* const text : {"ErrorInactive", "errorActive", "ErrorActive ", " ErrorActive", "ERRORACTIVE",
                                   "ErrorActiv", "ErrorActive2", "active", "1", "n/a", ""})
    {
        faultStatus_t status = FAULT_ACTIVE;
        tbl.convertValueFromStr(Base::COLUMN_TYPE_CUSTOM, text, &status);
        EXPECT_EQ(status, FAULT_INACTIVE) << '"' << text << '"';
    }
}

TEST_F(FaultTable, ZeroByteBehindErrorActiveMakesItAnotherText)
{
    faultStatus_t status = FAULT_ACTIVE;
    tbl.convertValueFromStr(Base::COLUMN_TYPE_CUSTOM, std::string("ErrorActive\0", 12), &status);
    EXPECT_EQ(status, FAULT_INACTIVE);
}

TEST_F(FaultTable, StatusOfAnotherTypeIsWrittenAsNull)
{
    for (unsigned int const type : {0U, 1U, 2U, 3U, 4U, 5U, 7U})
    {
        faultStatus_t status = FAULT_ACTIVE;
        EXPECT_EQ(tbl.convertValueToStr(static_cast<Base::columnValueType_t>(type), &status), "null") << type;
    }
}

TEST_F(FaultTable, StatusOfAnotherTypeIsNotRead)
{
    for (unsigned int const type : {0U, 1U, 2U, 3U, 4U, 5U, 7U})
    {
        auto status = static_cast<faultStatus_t>(7);
        tbl.convertValueFromStr(static_cast<Base::columnValueType_t>(type), "ErrorActive", &status);
        EXPECT_EQ(static_cast<unsigned int>(status), 7U) << type;
    }
}

TEST_F(FaultTable, ConversionsWriteNoMessage)
{
    auto status = static_cast<faultStatus_t>(7);
    static_cast<void>(tbl.convertValueToStr(Base::COLUMN_TYPE_CUSTOM, &status));
    static_cast<void>(tbl.convertValueToStr(Base::COLUMN_TYPE_STRING, &status));
    tbl.convertValueFromStr(Base::COLUMN_TYPE_CUSTOM, "neither", &status);
    tbl.convertValueFromStr(Base::COLUMN_TYPE_STRING, "neither", &status);
    EXPECT_THAT(console.take(), IsEmpty());
}
