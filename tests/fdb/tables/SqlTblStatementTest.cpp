#include "SqlTblFixtures.h"

#include <gmock/gmock.h>

#include <stdexcept>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

/// A table with one column, "c".
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

using Statement = TblFixture<HandMadeTbl>;
using ValueText = OneColumnFixture<HandMadeTbl>;
using ConvertedValueText = OneColumnFixture<ConvertingTbl>;

/// Expects the exception that results from an empty list of columns.
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

} // namespace

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

TEST_F(Statement, InsertsAKeyOfAnyTypeAsNullWithoutLookingBehindIt)
{
    // Read as a string, this would have a length beyond all memory.
    unsigned long long noString[] = {~0ULL, ~0ULL, ~0ULL, ~0ULL};
    for (auto const type : {Tbl::COLUMN_TYPE_STRING, Tbl::COLUMN_TYPE_CUSTOM})
    {
        tbl.m_columns.clear();
        tbl.add("key", type, noString, kKey);
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
