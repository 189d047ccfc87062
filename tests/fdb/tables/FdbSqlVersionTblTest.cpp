#include <fdb/tables/FdbSqlVersionTbl.h>

#include "TableFixture.h"

#include <gmock/gmock.h>

#include <type_traits>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using Base = SqlTbl<FdbVersion>;

class VersionTable : public TableTest<FdbSqlVersionTbl, FdbVersion>
{
protected:
    VersionTable() : TableTest("FdbVersionTbl") {}
};

FdbVersion makeVersion(std::string const& component, std::string const& version)
{
    FdbVersion record;
    record.VersionEntryId = 77;
    record.Component = component;
    record.Version = version;
    return record;
}

} // namespace

static_assert(!std::is_same_v<decltype(&FdbSqlVersionTbl::init), decltype(&Base::init)>);
static_assert(std::is_same_v<decltype(&FdbSqlVersionTbl::convertValueToStr), decltype(&Base::convertValueToStr)>);
static_assert(std::is_same_v<decltype(&FdbSqlVersionTbl::convertValueFromStr), decltype(&Base::convertValueFromStr)>);
static_assert(std::has_virtual_destructor_v<FdbSqlVersionTbl>);

TEST_F(VersionTable, HasItsColumns)
{
    auto& r = tbl.m_record;
    expectColumns({
        {"VersionEntryId", Base::COLUMN_TYPE_UINT16, &r.VersionEntryId, kKey},
        {"Component", Base::COLUMN_TYPE_STRING, &r.Component, kText},
        {"Version", Base::COLUMN_TYPE_STRING, &r.Version, kText},
    });
}

TEST_F(VersionTable, InsertOfAFullVersion)
{
    EXPECT_EQ(tbl.getSqlInsertValuesQuery(makeVersion("FormatVersion", "1.0.0")),
              "INSERT INTO FdbVersionTbl('VersionEntryId','Component','Version') "
              "VALUES(null,'FormatVersion','1.0.0')");
}

TEST_F(VersionTable, InsertOfAnEmptyVersion)
{
    EXPECT_EQ(tbl.getSqlInsertValuesQuery(FdbVersion()),
              "INSERT INTO FdbVersionTbl('VersionEntryId','Component','Version') VALUES(null,'','')");
}

TEST_F(VersionTable, UpdateOfAFullVersion)
{
    EXPECT_EQ(tbl.getSqlUpdateValuesQuery(makeVersion("FormatVersion", "1.0.0")),
              "UPDATE FdbVersionTbl SET 'Component'='FormatVersion','Version'='1.0.0'");
}

TEST_F(VersionTable, UpdateOfAnEmptyVersion)
{
    EXPECT_EQ(tbl.getSqlUpdateValuesQuery(FdbVersion()), "UPDATE FdbVersionTbl SET 'Component'='','Version'=''");
}

TEST_F(VersionTable, CommasAndQuotesInTextsAreWrittenUnchanged)
{
    EXPECT_EQ(tbl.getSqlInsertValuesQuery(makeVersion("a,b", "it's")),
              "INSERT INTO FdbVersionTbl('VersionEntryId','Component','Version') VALUES(null,'a,b','it's')");
}

TEST_F(VersionTable, DecodesAFullRow)
{
    EXPECT_EQ(decode({"3", "FormatVersion", "1.0.0"}), 3);
    EXPECT_EQ(tbl.m_record.VersionEntryId, 3);
    EXPECT_EQ(tbl.m_record.Component, "FormatVersion");
    EXPECT_EQ(tbl.m_record.Version, "1.0.0");
}

TEST_F(VersionTable, NullVersionIsNotAvailable)
{
    EXPECT_EQ(decode({"3", "FormatVersion", nullptr}), 3);
    EXPECT_EQ(tbl.m_record.Version, "n/a");
}

TEST_F(VersionTable, LargestKeyIsRead)
{
    decode({"65535", "c", "v"});
    EXPECT_EQ(tbl.m_record.VersionEntryId, 65535);
}

TEST_F(VersionTable, KeyThatIsNoNumberOfSixteenBitsIsZeroAfterAReport)
{
    for (std::string const key : {"x", "65536"})
    {
        tbl.m_record.VersionEntryId = 7;
        EXPECT_EQ(decode({key.c_str(), "c", "v"}), 3);
        EXPECT_EQ(tbl.m_record.VersionEntryId, 0) << key;
        EXPECT_THAT(console.takeLines(), ElementsAre("[ERROR] Casting value " + key));
    }
}

TEST_F(VersionTable, NullKeyIsZeroWithoutAReport)
{
    tbl.m_record.VersionEntryId = 7;
    decode({nullptr, "c", "v"});
    EXPECT_EQ(tbl.m_record.VersionEntryId, 0);
    EXPECT_THAT(console.take(), IsEmpty());
}

TEST_F(VersionTable, EmptyTextIsReadAsEmpty)
{
    decode({"1", "", ""});
    EXPECT_EQ(tbl.m_record.Component, "");
    EXPECT_EQ(tbl.m_record.Version, "");
}
