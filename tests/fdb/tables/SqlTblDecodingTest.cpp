#include "SqlTblFixtures.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

/// A row with one column for each way of decoding.
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

} // namespace

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
