#include <fdb/tables/FdbSqlFaultStatisticTbl.h>

#include "TableFixture.h"

#include <gmock/gmock.h>

#include <type_traits>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using Base = SqlTbl<FaultStatistic>;

class StatisticTable : public TableTest<FdbSqlFaultStatisticTbl, FaultStatistic>
{
protected:
    StatisticTable() : TableTest("FdbFaultStatisticTbl") {}
};

/// A row of empty texts and zeros whose activity cell is `active`.
std::vector<char const*> rowWithActivity(char const* active)
{
    return {"0", "0", "", "0", "0", "", "", "0", active, "0", "0", "0"};
}

} // namespace

static_assert(!std::is_same_v<decltype(&FdbSqlFaultStatisticTbl::init), decltype(&Base::init)>);
static_assert(
    !std::is_same_v<decltype(&FdbSqlFaultStatisticTbl::convertValueToStr), decltype(&Base::convertValueToStr)>);
static_assert(
    !std::is_same_v<decltype(&FdbSqlFaultStatisticTbl::convertValueFromStr), decltype(&Base::convertValueFromStr)>);
static_assert(std::has_virtual_destructor_v<FdbSqlFaultStatisticTbl>);

TEST_F(StatisticTable, HasItsColumns)
{
    auto& r = tbl.m_record;
    expectColumns({
        {"EntryId", Base::COLUMN_TYPE_UINT64, &r.EntryId, kKey},
        {"FaultCode", Base::COLUMN_TYPE_UINT32, &r.FaultCode, kNumber},
        {"FaultCodeName", Base::COLUMN_TYPE_STRING, &r.FaultCodeName, kText},
        {"TimeFirstOccurredUTC", Base::COLUMN_TYPE_UINT64, &r.TimeFirstOccurredUTC, kNumber},
        {"TimeLastOccurredUTC", Base::COLUMN_TYPE_UINT64, &r.TimeLastOccurredUTC, kNumber},
        {"TimeZoneFirstOccurred", Base::COLUMN_TYPE_STRING, &r.TimeZoneFirstOccurred, kText},
        {"TimeZoneLastOccurred", Base::COLUMN_TYPE_STRING, &r.TimeZoneLastOccurred, kText},
        {"OccurenceCnt", Base::COLUMN_TYPE_UINT16, &r.OccurenceCnt, kNumber},
        {"FaultActive", Base::COLUMN_TYPE_CUSTOM, &r.FaultActive, kText},
        {"FaultActiveCycleCnt", Base::COLUMN_TYPE_UINT16, &r.FaultActiveCycleCnt, kNumber},
        {"FaultEntryId", Base::COLUMN_TYPE_UINT64, &r.FaultEntryId, kNumber},
        {"RdbStartupId", Base::COLUMN_TYPE_UINT32, &r.RdbStartupId, kNumber},
    });
}

TEST_F(StatisticTable, NamesColumnsById)
{
    EXPECT_EQ(tbl.getColumnNameById(7), "OccurenceCnt");
    EXPECT_EQ(tbl.getColumnNameById(8), "FaultActive");
    EXPECT_EQ(tbl.getColumnNameById(12), "NotFound");
}

TEST_F(StatisticTable, InsertOfAFullStatistic)
{
    EXPECT_EQ(tbl.getSqlInsertValuesQuery(makeStatistic()),
              "INSERT INTO FdbFaultStatisticTbl('EntryId','FaultCode','FaultCodeName','TimeFirstOccurredUTC',"
              "'TimeLastOccurredUTC','TimeZoneFirstOccurred','TimeZoneLastOccurred','OccurenceCnt','FaultActive',"
              "'FaultActiveCycleCnt','FaultEntryId','RdbStartupId') VALUES(null,1001,'code name 1',1772366400000001,"
              "1772366500000001,'UTC+1 1','UTC+2 1',11,'active',101,5001,4001)");
}

TEST_F(StatisticTable, InsertOfAnEmptyStatistic)
{
    EXPECT_EQ(tbl.getSqlInsertValuesQuery(FaultStatistic()),
              "INSERT INTO FdbFaultStatisticTbl('EntryId','FaultCode','FaultCodeName','TimeFirstOccurredUTC',"
              "'TimeLastOccurredUTC','TimeZoneFirstOccurred','TimeZoneLastOccurred','OccurenceCnt','FaultActive',"
              "'FaultActiveCycleCnt','FaultEntryId','RdbStartupId') VALUES(null,0,'',0,0,'','',0,'inactive',0,0,0)");
}

TEST_F(StatisticTable, UpdateOfAFullStatistic)
{
    EXPECT_EQ(tbl.getSqlUpdateValuesQuery(makeStatistic()),
              "UPDATE FdbFaultStatisticTbl SET 'FaultCode'=1001,'FaultCodeName'='code name 1',"
              "'TimeFirstOccurredUTC'=1772366400000001,'TimeLastOccurredUTC'=1772366500000001,"
              "'TimeZoneFirstOccurred'='UTC+1 1','TimeZoneLastOccurred'='UTC+2 1','OccurenceCnt'=11,"
              "'FaultActive'='active','FaultActiveCycleCnt'=101,'FaultEntryId'=5001,'RdbStartupId'=4001");
}

TEST_F(StatisticTable, UpdateOfAnEmptyStatistic)
{
    EXPECT_EQ(tbl.getSqlUpdateValuesQuery(FaultStatistic()),
              "UPDATE FdbFaultStatisticTbl SET 'FaultCode'=0,'FaultCodeName'='','TimeFirstOccurredUTC'=0,"
              "'TimeLastOccurredUTC'=0,'TimeZoneFirstOccurred'='','TimeZoneLastOccurred'='','OccurenceCnt'=0,"
              "'FaultActive'='inactive','FaultActiveCycleCnt'=0,'FaultEntryId'=0,'RdbStartupId'=0");
}

TEST_F(StatisticTable, UnnamedActivityIsAnEmptyTextBetweenQuotes)
{
    FaultStatistic statistic;
    statistic.FaultActive = static_cast<faultStatus_t>(2);
    EXPECT_THAT(tbl.getSqlUpdateValuesQuery(statistic), testing::HasSubstr(",'FaultActive'='',"));
}

TEST_F(StatisticTable, LargestCountsAreWrittenWithoutQuotes)
{
    FaultStatistic statistic;
    statistic.OccurenceCnt = 65535;
    statistic.FaultActiveCycleCnt = 65534;
    EXPECT_THAT(tbl.getSqlUpdateValuesQuery(statistic),
                testing::HasSubstr("'OccurenceCnt'=65535,'FaultActive'='inactive','FaultActiveCycleCnt'=65534,"));
}

TEST_F(StatisticTable, DecodesAFullRow)
{
    EXPECT_EQ(decode({"900001", "1001", "code name 1", "1772366400000001", "1772366500000001", "UTC+1 1", "UTC+2 1",
                      "11", "active", "101", "5001", "4001"}),
              12);
    EXPECT_EQ(members(tbl.m_record), members(makeStatistic()));
}

TEST_F(StatisticTable, DecodesTheLargestCounts)
{
    auto row = rowWithActivity("active");
    row[7] = "65535";
    row[9] = "65534";
    decode(row);
    EXPECT_EQ(tbl.m_record.OccurenceCnt, 65535);
    EXPECT_EQ(tbl.m_record.FaultActiveCycleCnt, 65534);
}

TEST_F(StatisticTable, CountsBeyondSixteenBitsAreZeroAfterAReport)
{
    auto row = rowWithActivity("active");
    row[7] = "65536";
    row[9] = "65537";
    decode(row);
    EXPECT_EQ(tbl.m_record.OccurenceCnt, 0);
    EXPECT_EQ(tbl.m_record.FaultActiveCycleCnt, 0);
    EXPECT_THAT(console.takeLines(), ElementsAre("[ERROR] Casting value 65536", "[ERROR] Casting value 65537"));
}

TEST_F(StatisticTable, ActivityCellSetsTheActivity)
{
    decode(rowWithActivity("active"));
    EXPECT_EQ(tbl.m_record.FaultActive, FAULT_ACTIVE);
    decode(rowWithActivity("inactive"));
    EXPECT_EQ(tbl.m_record.FaultActive, FAULT_INACTIVE);
}

TEST_F(StatisticTable, NullActivityCellIsReportedAndKeepsTheActivityOfThePreviousRow)
{
    decode(rowWithActivity("active"));
    decode(rowWithActivity(nullptr));
    EXPECT_EQ(tbl.m_record.FaultActive, FAULT_ACTIVE);
    EXPECT_THAT(console.takeLines(), ElementsAre("[WARNING] Unknown type!!!!!"));
}

TEST_F(StatisticTable, NamedActivitiesAreWrittenAsTheirWords)
{
    faultStatus_t active = FAULT_ACTIVE;
    faultStatus_t inactive = FAULT_INACTIVE;
    EXPECT_EQ(tbl.convertValueToStr(Base::COLUMN_TYPE_CUSTOM, &active), "active");
    EXPECT_EQ(tbl.convertValueToStr(Base::COLUMN_TYPE_CUSTOM, &inactive), "inactive");
}

TEST_F(StatisticTable, UnnamedActivitiesAreWrittenAsAnEmptyText)
{
    for (unsigned int const number : {2U, 7U, 256U, 65537U, 4294967295U})
    {
        auto active = static_cast<faultStatus_t>(number);
        EXPECT_EQ(tbl.convertValueToStr(Base::COLUMN_TYPE_CUSTOM, &active), "") << number;
    }
}

TEST_F(StatisticTable, ExactlyActiveIsReadAsActive)
{
    faultStatus_t active = FAULT_INACTIVE;
    tbl.convertValueFromStr(Base::COLUMN_TYPE_CUSTOM, "active", &active);
    EXPECT_EQ(active, FAULT_ACTIVE);
}

TEST_F(StatisticTable, EveryOtherTextIsReadAsInactive)
{
    for (char const* const text :
         {"inactive", "Active", "ACTIVE", "active ", " active", "activ", "actives", "ErrorActive", "1", "n/a", ""})
    {
        faultStatus_t active = FAULT_ACTIVE;
        tbl.convertValueFromStr(Base::COLUMN_TYPE_CUSTOM, text, &active);
        EXPECT_EQ(active, FAULT_INACTIVE) << '"' << text << '"';
    }
}

TEST_F(StatisticTable, ZeroByteBehindActiveMakesItAnotherText)
{
    faultStatus_t active = FAULT_ACTIVE;
    tbl.convertValueFromStr(Base::COLUMN_TYPE_CUSTOM, std::string("active\0", 7), &active);
    EXPECT_EQ(active, FAULT_INACTIVE);
}

TEST_F(StatisticTable, ActivityOfAnotherTypeIsWrittenAsNull)
{
    for (unsigned int const type : {0U, 1U, 2U, 3U, 4U, 5U, 7U})
    {
        faultStatus_t active = FAULT_ACTIVE;
        EXPECT_EQ(tbl.convertValueToStr(static_cast<Base::columnValueType_t>(type), &active), "null") << type;
    }
}

TEST_F(StatisticTable, ActivityOfAnotherTypeIsNotRead)
{
    for (unsigned int const type : {0U, 1U, 2U, 3U, 4U, 5U, 7U})
    {
        auto active = static_cast<faultStatus_t>(7);
        tbl.convertValueFromStr(static_cast<Base::columnValueType_t>(type), "active", &active);
        EXPECT_EQ(static_cast<unsigned int>(active), 7U) << type;
    }
}

TEST_F(StatisticTable, ConversionsWriteNoMessage)
{
    auto active = static_cast<faultStatus_t>(7);
    static_cast<void>(tbl.convertValueToStr(Base::COLUMN_TYPE_CUSTOM, &active));
    static_cast<void>(tbl.convertValueToStr(Base::COLUMN_TYPE_STRING, &active));
    tbl.convertValueFromStr(Base::COLUMN_TYPE_CUSTOM, "neither", &active);
    tbl.convertValueFromStr(Base::COLUMN_TYPE_STRING, "neither", &active);
    EXPECT_THAT(console.take(), IsEmpty());
}
