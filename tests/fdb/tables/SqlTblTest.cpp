#include <fdb/tables/SqlTbl.h>

#include <fdb/tables/FdbSqlFaultStatisticTbl.h>
#include <fdb/tables/FdbSqlFaultTbl.h>
#include <fdb/tables/FdbSqlVersionTbl.h>

#include "AllocationSupport.h"
#include "TestSupport.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <locale>
#include <new>
#include <stdexcept>
#include <type_traits>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using Tbl = SqlTbl<FdbVersion>;

constexpr char kText[] = "VARCHAR";
constexpr char kNumber[] = "INTEGER";
constexpr char kKey[] = "INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL";
constexpr char kNoKind[] = "BLOB";

constexpr Tbl::columnValueType_t columnType(unsigned int number)
{
    return static_cast<Tbl::columnValueType_t>(number);
}

constexpr Tbl::columnValueType_t kCustomTypes[] = {columnType(0), columnType(5), columnType(6), columnType(7),
                                                   columnType(4294967295U)};

/// A table whose columns a test enters one after the other; the conversions are the defaults.
class HandMadeTbl : public Tbl
{
public:
    HandMadeTbl() : Tbl("T") {}
    void init(std::string const&) override {}

    column_t& add(char const* name, columnValueType_t type, void* value, char const* sqlType)
    {
        auto const id = static_cast<unsigned short>(m_columns.size());
        addColumn(id, name, type, value, sqlType);
        return m_columns[id];
    }
};

/// Conversions that show with which type and text they were called; the members are strings.
class ConvertingTbl : public HandMadeTbl
{
public:
    std::string convertValueToStr(columnValueType_t type, void* value) const override
    {
        return "type " + std::to_string(type) + " of " + *static_cast<std::string*>(value);
    }

    void convertValueFromStr(columnValueType_t type, std::string const& text, void* value) const override
    {
        *static_cast<std::string*>(value) = "type " + std::to_string(type) + " from " + text;
    }
};

/// The position in the virtual table, as a pointer to member holds it; -1 for a function that is not virtual.
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

/// A table with columns of the test's own and members for them.
template <class TblType>
class TblFixture : public testing::Test
{
protected:
    int decode(std::vector<char const*> row) { return tbl.setDatafromSqlResult(const_cast<char**>(row.data())); }

    TblType tbl;
    unsigned long long number64 = 1;
    unsigned int number32 = 2;
    unsigned short number16 = 3;
    std::string text = "old";
    std::string custom = "old";
    Console console;
};

/// A table of one column "c".
template <class TblType>
class OneColumnFixture : public TblFixture<TblType>
{
protected:
    void setColumn(Tbl::columnValueType_t type, void* value, char const* sqlType)
    {
        this->tbl.m_columns.clear();
        this->tbl.add("c", type, value, sqlType);
    }

    void expectValueText(std::string const& valueText)
    {
        EXPECT_EQ(this->tbl.getSqlInsertValues(), "INSERT INTO T('c') VALUES(" + valueText + ")");
        EXPECT_EQ(this->tbl.getSqlUpdateValues(), "UPDATE T SET 'c'=" + valueText);
    }
};

using ColumnModel = TblFixture<HandMadeTbl>;
using Statement = TblFixture<HandMadeTbl>;
using ValueText = OneColumnFixture<HandMadeTbl>;
using ConvertedValueText = OneColumnFixture<ConvertingTbl>;

/// One column of each way of decoding.
class DecodedRow : public TblFixture<ConvertingTbl>
{
protected:
    DecodedRow()
    {
        tbl.add("number64", Tbl::COLUMN_TYPE_UINT64, &number64, kNumber);
        tbl.add("number32", Tbl::COLUMN_TYPE_UINT32, &number32, kNumber);
        tbl.add("number16", Tbl::COLUMN_TYPE_UINT16, &number16, kNumber);
        tbl.add("text", Tbl::COLUMN_TYPE_STRING, &text, kText);
        tbl.add("custom", Tbl::COLUMN_TYPE_CUSTOM, &custom, kText);
    }

    void disableAllColumns()
    {
        for (auto& [id, column] : tbl.m_columns)
        {
            column.valid = false;
        }
    }

    void expectNumbers(unsigned long long expected64, unsigned int expected32, unsigned short expected16)
    {
        EXPECT_EQ(number64, expected64);
        EXPECT_EQ(number32, expected32);
        EXPECT_EQ(number16, expected16);
    }
};

/// Expects the exception of cutting a list that is empty.
template <class Generate>
void expectNothingToCut(Generate generate)
{
    try
    {
        ADD_FAILURE() << generate();
    }
    catch (std::out_of_range const& error)
    {
        EXPECT_STREQ(error.what(), "basic_string::erase");
    }
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
    // 3 and 4 are the two entries of the destructor, to which nothing can point.
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

TEST_F(ValueText, LargestSixtyFourBitNumberHasTwentyDigits)
{
    number64 = 18446744073709551615ULL;
    setColumn(Tbl::COLUMN_TYPE_UINT64, &number64, kNumber);
    expectValueText("18446744073709551615");
}

TEST_F(ValueText, LargestThirtyTwoBitNumberHasTenDigits)
{
    number32 = 4294967295U;
    setColumn(Tbl::COLUMN_TYPE_UINT32, &number32, kNumber);
    expectValueText("4294967295");
}

TEST_F(ValueText, LargestSixteenBitNumberHasFiveDigits)
{
    number16 = 65535;
    setColumn(Tbl::COLUMN_TYPE_UINT16, &number16, kNumber);
    expectValueText("65535");
}

TEST_F(ValueText, NumberIsTakenInTheWidthOfItsType)
{
    number64 = 18446744073709551615ULL;
    setColumn(Tbl::COLUMN_TYPE_UINT32, &number64, kNumber);
    expectValueText("4294967295");
    setColumn(Tbl::COLUMN_TYPE_UINT16, &number64, kNumber);
    expectValueText("65535");
}

TEST_F(ValueText, GlobalLocaleDoesNotGroupDigits)
{
    GlobalGroupingLocale const grouping;
    number64 = 18446744073709551615ULL;
    setColumn(Tbl::COLUMN_TYPE_UINT64, &number64, kNumber);
    expectValueText("18446744073709551615");
    number32 = 4294967295U;
    setColumn(Tbl::COLUMN_TYPE_UINT32, &number32, kNumber);
    expectValueText("4294967295");
    number16 = 65535;
    setColumn(Tbl::COLUMN_TYPE_UINT16, &number16, kNumber);
    expectValueText("65535");
}

TEST_F(ValueText, TextIsWrittenWholeAndUnescaped)
{
    using namespace std::string_literals;
    setColumn(Tbl::COLUMN_TYPE_STRING, &text, kText);
    for (std::string const& value :
         {""s, "a,b"s, ","s, "it's"s, "''"s, "\"\\\n"s, "a\0b"s, "; DROP TABLE T;"s, "\xC3\xA4\xFF"s})
    {
        text = value;
        expectValueText("'" + value + "'");
    }
}

TEST_F(ValueText, TextColumnOfANumberTypeIsReadAsText)
{
    for (auto const type : {Tbl::COLUMN_TYPE_UINT64, Tbl::COLUMN_TYPE_UINT32, Tbl::COLUMN_TYPE_UINT16})
    {
        setColumn(type, &text, kText);
        expectValueText("'old'");
    }
}

TEST_F(ValueText, NumberColumnOfTheStringTypeIsEmpty)
{
    setColumn(Tbl::COLUMN_TYPE_STRING, &text, kNumber);
    expectValueText("");
}

TEST_F(ValueText, ColumnOfNoKindIsNamedButEmpty)
{
    for (auto const type : {Tbl::COLUMN_TYPE_STRING, Tbl::COLUMN_TYPE_CUSTOM})
    {
        setColumn(type, &text, kNoKind);
        expectValueText("");
    }
}

TEST_F(ValueText, ColumnOfNoKindIsNotReported)
{
    setColumn(Tbl::COLUMN_TYPE_STRING, &text, kNoKind);
    static_cast<void>(tbl.getSqlInsertValues());
    EXPECT_THAT(console.take(), IsEmpty());
}

TEST_F(ValueText, KindIsDecidedByWholeTypeText)
{
    for (char const* const sqlType : {"varchar", "VARCHAR ", "VARCHAR(10)", "INTEGER PRIMARY KEY", "INT", ""})
    {
        setColumn(Tbl::COLUMN_TYPE_STRING, &text, sqlType);
        expectValueText("");
    }
}

TEST_F(ValueText, KindIsDecidedByTheTypeTextsOfTheTable)
{
    tbl.m_sqlVarchar = "TEXT";
    setColumn(Tbl::COLUMN_TYPE_STRING, &text, "TEXT");
    expectValueText("'old'");
}

TEST_F(ValueText, DefaultConversionIsWrittenLikeAnyOther)
{
    setColumn(Tbl::COLUMN_TYPE_CUSTOM, &custom, kText);
    expectValueText("'n/a'");
    setColumn(Tbl::COLUMN_TYPE_CUSTOM, &custom, kNumber);
    expectValueText("n/a");
}

TEST_F(ConvertedValueText, CustomTextIsQuoted)
{
    for (auto const type : kCustomTypes)
    {
        setColumn(type, &custom, kText);
        expectValueText("'type " + std::to_string(type) + " of old'");
    }
}

TEST_F(ConvertedValueText, CustomNumberIsNotQuoted)
{
    for (auto const type : kCustomTypes)
    {
        setColumn(type, &custom, kNumber);
        expectValueText("type " + std::to_string(type) + " of old");
    }
}

TEST_F(ConvertedValueText, NullValueOfATextColumnIsTheWordNull)
{
    for (auto const type : {Tbl::COLUMN_TYPE_STRING, Tbl::COLUMN_TYPE_UINT16, Tbl::COLUMN_TYPE_CUSTOM})
    {
        setColumn(type, nullptr, kText);
        expectValueText("'null'");
    }
}

TEST_F(ConvertedValueText, NullValueOfANumberColumnIsZero)
{
    for (auto const type : {Tbl::COLUMN_TYPE_STRING, Tbl::COLUMN_TYPE_UINT16, Tbl::COLUMN_TYPE_CUSTOM})
    {
        setColumn(type, nullptr, kNumber);
        expectValueText("0");
    }
}

TEST_F(ConvertedValueText, NullValueOfAColumnOfNoKindIsEmpty)
{
    setColumn(Tbl::COLUMN_TYPE_STRING, nullptr, kNoKind);
    expectValueText("");
}

TEST_F(Statement, ListsColumnsByAscendingId)
{
    tbl.addColumn(9, "last", Tbl::COLUMN_TYPE_UINT32, &number32, kNumber);
    tbl.addColumn(300, "far", Tbl::COLUMN_TYPE_UINT64, &number64, kNumber);
    tbl.addColumn(0, "first", Tbl::COLUMN_TYPE_UINT16, &number16, kNumber);
    EXPECT_EQ(tbl.getSqlInsertValues(), "INSERT INTO T('first','last','far') VALUES(3,2,1)");
    EXPECT_EQ(tbl.getSqlUpdateValues(), "UPDATE T SET 'first'=3,'last'=2,'far'=1");
}

TEST_F(Statement, LosesOnlyTheSeparatorWhenTheLastTextHoldsCommas)
{
    text = "a,b,";
    tbl.add("c0", Tbl::COLUMN_TYPE_STRING, &text, kText);
    tbl.add("c1", Tbl::COLUMN_TYPE_STRING, &text, kText);
    EXPECT_EQ(tbl.getSqlInsertValues(), "INSERT INTO T('c0','c1') VALUES('a,b,','a,b,')");
    EXPECT_EQ(tbl.getSqlUpdateValues(), "UPDATE T SET 'c0'='a,b,','c1'='a,b,'");
}

TEST_F(Statement, NamesTheKeyWhereItStandsAndInsertsItAsNull)
{
    tbl.add("c0", Tbl::COLUMN_TYPE_UINT16, &number16, kNumber);
    tbl.add("key", Tbl::COLUMN_TYPE_UINT64, &number64, kKey);
    tbl.add("c2", Tbl::COLUMN_TYPE_UINT32, &number32, kNumber);
    EXPECT_EQ(tbl.getSqlInsertValues(), "INSERT INTO T('c0','key','c2') VALUES(3,null,2)");
}

TEST_F(Statement, UpdateLeavesTheKeyOutWhereverItStands)
{
    constexpr unsigned short kKeyIds[] = {0, 2, 4};
    for (auto const keyId : kKeyIds)
    {
        tbl.m_columns.clear();
        tbl.addColumn(1, "c1", Tbl::COLUMN_TYPE_UINT16, &number16, kNumber);
        tbl.addColumn(3, "c3", Tbl::COLUMN_TYPE_UINT32, &number32, kNumber);
        tbl.addColumn(keyId, "key", Tbl::COLUMN_TYPE_UINT64, &number64, kKey);
        EXPECT_EQ(tbl.getSqlUpdateValues(), "UPDATE T SET 'c1'=3,'c3'=2") << keyId;
    }
}

TEST_F(Statement, InsertsAKeyOfAnyTypeAsNull)
{
    for (auto const type : {Tbl::COLUMN_TYPE_STRING, Tbl::COLUMN_TYPE_CUSTOM})
    {
        tbl.m_columns.clear();
        tbl.add("key", type, &text, kKey);
        EXPECT_EQ(tbl.getSqlInsertValues(), "INSERT INTO T('key') VALUES(null)");
    }
}

TEST_F(Statement, LeavesOutColumnsThatAreNotValid)
{
    tbl.add("c0", Tbl::COLUMN_TYPE_UINT16, &number16, kNumber);
    tbl.add("skipped", Tbl::COLUMN_TYPE_STRING, &text, kText).valid = false;
    tbl.add("c2", Tbl::COLUMN_TYPE_UINT32, &number32, kNumber);
    EXPECT_EQ(tbl.getSqlInsertValues(), "INSERT INTO T('c0','c2') VALUES(3,2)");
    EXPECT_EQ(tbl.getSqlUpdateValues(), "UPDATE T SET 'c0'=3,'c2'=2");
}

TEST_F(Statement, DoesNotReportANullValueOfAColumnThatIsNotValid)
{
    tbl.add("c0", Tbl::COLUMN_TYPE_UINT16, &number16, kNumber);
    tbl.add("skipped", Tbl::COLUMN_TYPE_STRING, nullptr, kText).valid = false;
    static_cast<void>(tbl.getSqlInsertValues());
    static_cast<void>(tbl.getSqlUpdateValues());
    EXPECT_THAT(console.take(), IsEmpty());
}

TEST_F(Statement, ReportsEachNullValueOnce)
{
    tbl.add("c0", Tbl::COLUMN_TYPE_STRING, nullptr, kText);
    tbl.add("c1", Tbl::COLUMN_TYPE_UINT16, &number16, kNumber);
    tbl.add("c2", Tbl::COLUMN_TYPE_CUSTOM, nullptr, kNoKind);
    auto const isReport = ElementsAre("[WARNING] value NULL ptr in column c0", "[WARNING] value NULL ptr in column c2");
    static_cast<void>(tbl.getSqlInsertValues());
    EXPECT_THAT(console.takeLines(), isReport);
    static_cast<void>(tbl.getSqlUpdateValues());
    EXPECT_THAT(console.takeLines(), isReport);
}

TEST_F(Statement, ReportsANullValueOfTheKeyOnce)
{
    tbl.add("key", Tbl::COLUMN_TYPE_UINT64, nullptr, kKey);
    tbl.add("c1", Tbl::COLUMN_TYPE_UINT16, &number16, kNumber);
    EXPECT_EQ(tbl.getSqlInsertValues(), "INSERT INTO T('key','c1') VALUES(null,3)");
    EXPECT_THAT(console.takeLines(), ElementsAre("[WARNING] value NULL ptr in column key"));
    EXPECT_EQ(tbl.getSqlUpdateValues(), "UPDATE T SET 'c1'=3");
    EXPECT_THAT(console.takeLines(), ElementsAre("[WARNING] value NULL ptr in column key"));
}

TEST_F(Statement, QueryFormReplacesTheWorkingRecordFirst)
{
    tbl.add("Version", Tbl::COLUMN_TYPE_STRING, &tbl.m_record.Version, kText);
    FdbVersion record;
    record.Version = "new";
    EXPECT_EQ(tbl.getSqlInsertValuesQuery(record), "INSERT INTO T('Version') VALUES('new')");
    record.Version = "newer";
    EXPECT_EQ(tbl.getSqlUpdateValuesQuery(record), "UPDATE T SET 'Version'='newer'");
}

TEST_F(Statement, PlainFormShowsWhatTheWorkingRecordHolds)
{
    tbl.add("Version", Tbl::COLUMN_TYPE_STRING, &tbl.m_record.Version, kText);
    decode({"decoded"});
    EXPECT_EQ(tbl.getSqlInsertValues(), "INSERT INTO T('Version') VALUES('decoded')");
    EXPECT_EQ(tbl.getSqlUpdateValues(), "UPDATE T SET 'Version'='decoded'");
}

TEST_F(Statement, QueryFormWithoutColumnsThrowsAfterReplacingTheWorkingRecord)
{
    FdbVersion record;
    record.Version = "inserted";
    EXPECT_THROW(tbl.getSqlInsertValuesQuery(record), std::out_of_range);
    EXPECT_EQ(tbl.m_record.Version, "inserted");
    record.Version = "updated";
    EXPECT_THROW(tbl.getSqlUpdateValuesQuery(record), std::out_of_range);
    EXPECT_EQ(tbl.m_record.Version, "updated");
}

TEST_F(Statement, InsertWithoutColumnsHasNothingToCut)
{
    expectNothingToCut([this] { return tbl.getSqlInsertValues(); });
}

TEST_F(Statement, UpdateWithoutColumnsHasNothingToCut)
{
    expectNothingToCut([this] { return tbl.getSqlUpdateValues(); });
}

TEST_F(Statement, InsertWithoutValidColumnsHasNothingToCut)
{
    tbl.add("c0", Tbl::COLUMN_TYPE_STRING, &text, kText).valid = false;
    expectNothingToCut([this] { return tbl.getSqlInsertValues(); });
}

TEST_F(Statement, UpdateOfTheKeyAloneHasNothingToCut)
{
    tbl.add("key", Tbl::COLUMN_TYPE_UINT64, &number64, kKey);
    tbl.add("c1", Tbl::COLUMN_TYPE_STRING, &text, kText).valid = false;
    expectNothingToCut([this] { return tbl.getSqlUpdateValues(); });
}

TEST_F(DecodedRow, FillsEveryMember)
{
    EXPECT_EQ(decode({"18446744073709551615", "4294967295", "65535", "new", "word"}), 5);
    expectNumbers(18446744073709551615ULL, 4294967295U, 65535);
    EXPECT_EQ(text, "new");
    EXPECT_EQ(custom, "type 6 from word");
}

TEST_F(DecodedRow, WritesNoMessageForGoodCells)
{
    decode({"1", "2", "3", "", "word"});
    EXPECT_THAT(console.take(), IsEmpty());
}

TEST_F(DecodedRow, NullNumbersAreZeroWithoutAMessage)
{
    decode({nullptr, nullptr, nullptr, "new", "word"});
    expectNumbers(0, 0, 0);
    EXPECT_THAT(console.take(), IsEmpty());
}

TEST_F(DecodedRow, NullTextIsNotAvailableWithoutAMessage)
{
    decode({"1", "2", "3", nullptr, "word"});
    EXPECT_EQ(text, "n/a");
    EXPECT_THAT(console.take(), IsEmpty());
}

TEST_F(DecodedRow, NullCustomCellKeepsTheValueOfThePreviousRow)
{
    decode({"1", "2", "3", "new", "previous"});
    decode({"1", "2", "3", "new", nullptr});
    EXPECT_EQ(custom, "type 6 from previous");
}

TEST_F(DecodedRow, NullCustomCellIsReportedWithTheTextForUnknownTypes)
{
    decode({"1", "2", "3", "new", nullptr});
    EXPECT_EQ(console.take(), "[WARNING] Unknown type!!!!!\n");
}

TEST_F(DecodedRow, DamagedNumbersAreZero)
{
    decode({"18446744073709551616", "x", "65536", "new", "word"});
    expectNumbers(0, 0, 0);
}

TEST_F(DecodedRow, DamagedNumbersAreReportedWithTheirTexts)
{
    decode({"18446744073709551616", "x", "65536", "new", "word"});
    EXPECT_THAT(console.takeLines(), ElementsAre("[ERROR] Casting value 18446744073709551616",
                                                 "[ERROR] Casting value x", "[ERROR] Casting value 65536"));
}

TEST_F(DecodedRow, GoesOnBehindADamagedCell)
{
    decode({"x", "20", "30", "new", "word"});
    expectNumbers(0, 20, 30);
    EXPECT_EQ(text, "new");
    EXPECT_EQ(custom, "type 6 from word");
}

TEST_F(DecodedRow, EmptyCellIsAnEmptyTextButNoNumber)
{
    decode({"1", "", "3", "", ""});
    expectNumbers(1, 0, 3);
    EXPECT_EQ(text, "");
    EXPECT_EQ(custom, "type 6 from ");
    EXPECT_EQ(console.take(), "[ERROR] Casting value \n");
}

TEST_F(DecodedRow, GlobalLocaleThatGroupsDigitsChangesNothing)
{
    GlobalGroupingLocale const grouping;
    decode({"1,234", "1,234", "1,234", "1,234", "1,234"});
    expectNumbers(1, 1, 1);
    EXPECT_EQ(text, "1,234");
}

TEST_F(DecodedRow, NumberChangesNoByteBesideItsMember)
{
    unsigned short neighbours[3] = {7, 7, 7};
    tbl.m_columns[2].value = &neighbours[1];
    decode({"1", "2", "65535", "new", "word"});
    EXPECT_THAT(neighbours, ElementsAre(7, 65535, 7));
}

TEST_F(DecodedRow, ColumnsThatAreNotValidAreReadAsNull)
{
    disableAllColumns();
    decode({"10", "20", "30", "new", "word"});
    expectNumbers(0, 0, 0);
    EXPECT_EQ(text, "n/a");
    EXPECT_EQ(custom, "old");
    EXPECT_EQ(console.take(), "[WARNING] Unknown type!!!!!\n");
}

TEST_F(DecodedRow, CellOfAColumnThatIsNotValidIsNotRead)
{
    disableAllColumns();
    auto const* const nowhere = reinterpret_cast<char const*>(std::uintptr_t{1});
    EXPECT_EQ(decode({nowhere, nowhere, nowhere, nowhere, nowhere}), 5);
}

TEST_F(DecodedRow, ColumnWithoutAMemberIsNeitherCountedNorReported)
{
    tbl.m_columns[0].value = nullptr;
    tbl.m_columns[3].value = nullptr;
    tbl.m_columns[4].value = nullptr;
    EXPECT_EQ(decode({"x", "20", "30", "new", nullptr}), 2);
    expectNumbers(1, 20, 30);
    EXPECT_THAT(console.take(), IsEmpty());
}

TEST_F(DecodedRow, EveryTypeBeyondThePlainOnesIsCustom)
{
    for (auto const type : kCustomTypes)
    {
        tbl.m_columns[4].type = type;
        decode({"1", "2", "3", "new", "word"});
        EXPECT_EQ(custom, "type " + std::to_string(type) + " from word");
    }
}

TEST_F(ColumnModel, CellOfAColumnStandsAtItsId)
{
    tbl.addColumn(2, "c2", Tbl::COLUMN_TYPE_UINT32, &number32, kNumber);
    tbl.addColumn(4, "c4", Tbl::COLUMN_TYPE_STRING, &text, kText);
    EXPECT_EQ(decode({"0", "1", "2", "3", "4"}), 2);
    EXPECT_EQ(number32, 2U);
    EXPECT_EQ(text, "4");
}

TEST_F(ColumnModel, DecodingWithoutColumnsChangesNothing)
{
    tbl.m_record.VersionEntryId = 7;
    tbl.m_record.Version = "kept";
    EXPECT_EQ(decode({"1", "a", "b"}), 0);
    EXPECT_EQ(tbl.m_record.VersionEntryId, 7);
    EXPECT_EQ(tbl.m_record.Version, "kept");
}

TEST_F(ColumnModel, MemberWithoutAColumnKeepsItsValue)
{
    tbl.m_record.Version = "kept";
    tbl.add("Component", Tbl::COLUMN_TYPE_STRING, &tbl.m_record.Component, kText);
    decode({"new"});
    EXPECT_EQ(tbl.m_record.Version, "kept");
}

TEST_F(ColumnModel, CountOfDecodedColumnsHasSixteenBits)
{
    for (unsigned int id = 0; id < 65536; ++id)
    {
        tbl.m_columns[static_cast<unsigned short>(id)] = {"", 0, true, Tbl::COLUMN_TYPE_STRING, &text, kText};
    }
    EXPECT_EQ(decode({"new"}), 0);
}
