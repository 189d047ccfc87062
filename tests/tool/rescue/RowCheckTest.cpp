// Which records are rows of a table.

#include <tool/rescue/RowCheck.h>

#include <gmock/gmock.h>

namespace
{

using testing::HasSubstr;
using tool::RecordCell;

constexpr std::size_t kCode = 2;
constexpr std::size_t kTime = 6;
constexpr std::size_t kStatus = 8;
constexpr std::size_t kDescription = 9;

RecordCell integer(std::int64_t value)
{
    RecordCell cell;
    cell.type = RecordCell::INTEGER;
    cell.integer = value;
    return cell;
}

RecordCell text(std::string_view bytes)
{
    RecordCell cell;
    cell.type = RecordCell::TEXT;
    cell.bytes = bytes;
    return cell;
}

/// The cells of a sound fault.
std::vector<RecordCell> fault()
{
    std::vector<RecordCell> cells;
    for (tool::Column const& column : tool::faultSchema().columns)
    {
        switch (column.kind)
        {
        case tool::ColumnKind::KEY:
            cells.emplace_back();
            break;
        case tool::ColumnKind::NUMBER:
            cells.push_back(integer(1));
            break;
        default:
            cells.push_back(text(column.words.empty() ? "text" : std::string_view(column.words.front())));
        }
    }
    return cells;
}

std::string problemWith(std::size_t column, RecordCell const& cell)
{
    std::vector<RecordCell> cells = fault();
    cells[column] = cell;
    return tool::rowProblem(1, cells, tool::faultSchema());
}

} // namespace

TEST(RowCheckTest, AcceptsWhatTheLibraryWrites)
{
    EXPECT_EQ(tool::rowProblem(1, fault(), tool::faultSchema()), "");
    EXPECT_EQ(problemWith(kCode, integer(0xffffffff)), "");
    EXPECT_EQ(problemWith(kTime, integer(INT64_MAX)), "");
    EXPECT_EQ(problemWith(kStatus, text("ErrorActive")), "");
    EXPECT_EQ(problemWith(kDescription, text("\xff any bytes")), "");
}

TEST(RowCheckTest, RefusesNumbersBeyondTheirWidth)
{
    EXPECT_THAT(problemWith(kCode, integer(0x100000000)), HasSubstr("FaultCode"));
    EXPECT_THAT(problemWith(kCode, integer(-1)), HasSubstr("FaultCode"));
    EXPECT_THAT(problemWith(kTime, integer(-1)), HasSubstr("TimeStampUTC"));
}

TEST(RowCheckTest, RefusesCellsOfAnotherType)
{
    RecordCell real;
    real.type = RecordCell::REAL;
    RecordCell blob;
    blob.type = RecordCell::BLOB;
    for (RecordCell const& cell : {real, blob, RecordCell(), text("1")})
    {
        EXPECT_NE(problemWith(kCode, cell), "") << cell.type;
    }
    for (RecordCell const& cell : {real, blob, RecordCell(), integer(1)})
    {
        EXPECT_NE(problemWith(kDescription, cell), "") << cell.type;
    }
    EXPECT_NE(problemWith(0, integer(1)), "") << "the key is not in the record";
}

TEST(RowCheckTest, RefusesTextsWithAZeroByteOrWithoutTheirEnd)
{
    EXPECT_NE(problemWith(kDescription, text(std::string_view("a\0b", 3))), "");
    RecordCell cut = text("beginning");
    cut.isCut = true;
    EXPECT_NE(problemWith(kDescription, cut), "");
}

TEST(RowCheckTest, RefusesAnotherStatus)
{
    EXPECT_THAT(problemWith(kStatus, text("Erroractive")), HasSubstr("Status"));
    EXPECT_THAT(problemWith(kStatus, text("active")), HasSubstr("Status")) << "the word of a statistic";
}

TEST(RowCheckTest, RefusesAnotherNumberOfColumns)
{
    std::vector<RecordCell> cells = fault();
    cells.pop_back();
    EXPECT_EQ(tool::rowProblem(1, cells, tool::faultSchema()), "the row has 15 cells instead of 16");
    EXPECT_EQ(tool::rowProblem(-1, fault(), tool::faultSchema()), "the key is below 0");
}
