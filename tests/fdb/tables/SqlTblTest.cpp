#include "SqlTblFixtures.h"

#include "AllocationSupport.h"

#include <fdb/tables/FdbSqlFaultStatisticTbl.h>
#include <fdb/tables/FdbSqlFaultTbl.h>
#include <fdb/tables/FdbSqlVersionTbl.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <stdexcept>
#include <type_traits>

using testing::IsEmpty;

namespace
{

/// The slot in the virtual table, read from a pointer to member; -1 for a function that is not virtual.
template <class Function>
std::ptrdiff_t slotOf(Function function)
{
    struct
    {
        std::ptrdiff_t pointer;
        std::ptrdiff_t adjustment;
    } representation;
    static_assert(sizeof representation == sizeof function);
    std::memcpy(&representation, &function, sizeof representation);
#if defined(__arm__) || defined(__aarch64__)
    bool const isVirtual = representation.adjustment % 2 != 0;
    std::ptrdiff_t const offset = representation.pointer;
#else
    bool const isVirtual = representation.pointer % 2 != 0;
    std::ptrdiff_t const offset = representation.pointer - 1;
#endif
    return isVirtual ? offset / static_cast<std::ptrdiff_t>(sizeof(void*)) : -1;
}

template <class TblType>
class SchemaTbl : public testing::Test
{
};

struct SchemaTblNames
{
    template <class T>
    static std::string GetName(int index)
    {
        constexpr char const* kNames[] = {"Fault", "FaultStatistic", "Version"};
        return kNames[index];
    }
};

using SchemaTbls = testing::Types<FdbSqlFaultTbl, FdbSqlFaultStatisticTbl, FdbSqlVersionTbl>;
TYPED_TEST_SUITE(SchemaTbl, SchemaTbls, SchemaTblNames);

} // namespace

static_assert(Tbl::COLUMN_TYPE_UINT64 == 1);
static_assert(Tbl::COLUMN_TYPE_UINT32 == 2);
static_assert(Tbl::COLUMN_TYPE_UINT16 == 3);
static_assert(Tbl::COLUMN_TYPE_STRING == 4);
static_assert(Tbl::COLUMN_TYPE_CUSTOM == 6);
static_assert(sizeof(Tbl::columnValueType_t) == 4);
static_assert(std::is_same_v<decltype(Tbl::column_t::id), unsigned short>);
static_assert(std::is_same_v<decltype(Tbl::column_t::valid), bool> && sizeof(bool) == 1);
static_assert(std::is_same_v<decltype(Tbl::m_columns), std::map<unsigned short, Tbl::column_t>>);

static_assert(std::is_abstract_v<Tbl>);
static_assert(std::has_virtual_destructor_v<Tbl>);
static_assert(!std::is_copy_constructible_v<HandMadeTbl>, "the columns of a copy would point into the original");
static_assert(!std::is_move_constructible_v<HandMadeTbl>);

TEST(ColumnModelLayout, VirtualOperationsHaveTheirSlots)
{
    EXPECT_EQ(slotOf(&Tbl::getSqlInsertValuesQuery), 0);
    EXPECT_EQ(slotOf(&Tbl::getSqlUpdateValuesQuery), 1);
    EXPECT_EQ(slotOf(&Tbl::init), 2);
    // Slots 3 and 4 belong to the destructor, whose address cannot be taken.
    EXPECT_EQ(slotOf(&Tbl::convertValueToStr), 5);
    EXPECT_EQ(slotOf(&Tbl::convertValueFromStr), 6);
}

TEST(ColumnModelLayout, OtherOperationsAreNotVirtual)
{
    EXPECT_EQ(slotOf(&Tbl::getSqlInsertValues), -1);
    EXPECT_EQ(slotOf(&Tbl::getSqlUpdateValues), -1);
    EXPECT_EQ(slotOf(&Tbl::setDatafromSqlResult), -1);
    EXPECT_EQ(slotOf(&Tbl::getColumnNameById), -1);
}

TEST(ColumnModelLayout, MembersOfATableLieInOrder)
{
    HandMadeTbl const t;
    std::vector<void const*> const addresses = {&t.m_record,     &t.m_tblName,    &t.m_columns,
                                                &t.m_sqlVarchar, &t.m_sqlInteger, &t.m_sqlPrimaryKey};
    EXPECT_TRUE(std::is_sorted(addresses.begin(), addresses.end()));
}

TEST(ColumnModelLayout, MembersOfAColumnLieInOrder)
{
    Tbl::column_t const c;
    std::vector<void const*> const addresses = {&c.name, &c.id, &c.valid, &c.type, &c.value, &c.sqlType};
    EXPECT_TRUE(std::is_sorted(addresses.begin(), addresses.end()));
}

TEST(NewTbl, HasTheNameThatItIsGiven)
{
    EXPECT_EQ(FdbSqlVersionTbl("some name").m_tblName, "some name");
}

TEST(NewTbl, HasNoColumns)
{
    EXPECT_THAT(FdbSqlVersionTbl("T").m_columns, IsEmpty());
}

TEST(NewTbl, HasADefaultRecord)
{
    EXPECT_EQ(members(FdbSqlVersionTbl("T").m_record), members(FdbVersion()));
}

TEST(NewTbl, HasTheThreeTypeTexts)
{
    FdbSqlVersionTbl const tbl("T");
    EXPECT_EQ(tbl.m_sqlVarchar, kText);
    EXPECT_EQ(tbl.m_sqlInteger, kNumber);
    EXPECT_EQ(tbl.m_sqlPrimaryKey, kKey);
}

TYPED_TEST(SchemaTbl, AddsNoDataToTheColumnModel)
{
    using Record = decltype(TypeParam::m_record);
    EXPECT_EQ(sizeof(TypeParam), sizeof(SqlTbl<Record>));
}

TYPED_TEST(SchemaTbl, RunningOutOfMemoryInInitIsPassedOn)
{
    TypeParam tbl("T");
    EXPECT_THROW(
        {
            RefusedAllocations const refused;
            tbl.init("");
        },
        std::bad_alloc);
}

TYPED_TEST(SchemaTbl, SecondInitLeavesTheColumnsAsTheyWere)
{
    TypeParam tbl("T");
    tbl.init("");
    tbl.m_columns[0].name = "changed";
    tbl.m_columns.erase(1);
    auto const size = tbl.m_columns.size();
    tbl.init("anything");
    EXPECT_EQ(tbl.getColumnNameById(0), "changed");
    EXPECT_EQ(tbl.m_columns.size(), size);
}

TYPED_TEST(SchemaTbl, StatementsBeforeInitThrow)
{
    TypeParam const tbl("T");
    EXPECT_THROW(tbl.getSqlInsertValues(), std::out_of_range);
    EXPECT_THROW(tbl.getSqlUpdateValues(), std::out_of_range);
}

TYPED_TEST(SchemaTbl, DecodingBeforeInitReadsNothing)
{
    TypeParam tbl("T");
    EXPECT_EQ(tbl.setDatafromSqlResult(nullptr), 0);
}

TEST_F(ColumnModel, NameOfAnExistingColumnIsFound)
{
    tbl.add("first", Tbl::COLUMN_TYPE_STRING, &text, kText);
    tbl.add("second 'name'", Tbl::COLUMN_TYPE_STRING, &text, kText);
    EXPECT_EQ(tbl.getColumnNameById(1), "second 'name'");
}

TEST_F(ColumnModel, NameOfAnUnknownColumnIsNotFound)
{
    tbl.addColumn(1, "c1", Tbl::COLUMN_TYPE_STRING, &text, kText);
    tbl.addColumn(3, "c3", Tbl::COLUMN_TYPE_STRING, &text, kText);
    constexpr unsigned short kUnknown[] = {0, 2, 4, 65535};
    for (auto const id : kUnknown)
    {
        EXPECT_EQ(tbl.getColumnNameById(id), "NotFound") << id;
    }
}

TEST_F(ColumnModel, LookingForAnUnknownColumnWritesNoMessage)
{
    tbl.getColumnNameById(0);
    EXPECT_THAT(console.take(), IsEmpty());
}

TEST_F(ColumnModel, DefaultTextOfACustomMemberIsNotAvailable)
{
    EXPECT_EQ(tbl.convertValueToStr(Tbl::COLUMN_TYPE_CUSTOM, &custom), "n/a");
}

TEST_F(ColumnModel, DefaultConversionFromTextLeavesTheMember)
{
    tbl.convertValueFromStr(Tbl::COLUMN_TYPE_CUSTOM, "new", &custom);
    EXPECT_EQ(custom, "old");
}
