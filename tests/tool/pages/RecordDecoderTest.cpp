// Records: each type of cell, and records that are too short, too long or lie about their header.

#include "pages/PageSupport.h"

#include <tool/pages/RecordDecoder.h>

#include <gtest/gtest.h>

#include <limits>

namespace
{

using tool::RecordCell;
using tool::RecordDecoder;

struct IntegerCase
{
    int serialType;
    std::string bytes;
    std::int64_t value;
};

std::string oneCell(std::uint64_t serialType, std::string const& body)
{
    std::string const type = varint(serialType);
    return varint(type.size() + 1) + type + body;
}

} // namespace

TEST(RecordDecoderTest, DecodesIntegersOfEachWidth)
{
    std::vector<IntegerCase> const cases = {
        {1, "\xff", -1},
        {1, "\x7f", 127},
        {2, "\x80" + std::string(1, '\0'), -32768},
        {3, std::string("\x01\0\0", 3), 65536},
        {4, "\xff\xff\xff\xfe", -2},
        {5, std::string("\0\x01\0\0\0\0", 6), std::int64_t{1} << 32},
        {6, "\x7f" + std::string(7, '\xff'), std::numeric_limits<std::int64_t>::max()},
        {6, "\x80" + std::string(7, '\0'), std::numeric_limits<std::int64_t>::min()},
        {8, "", 0},
        {9, "", 1},
    };
    for (IntegerCase const& number : cases)
    {
        RecordDecoder record;
        std::string const payload = oneCell(static_cast<std::uint64_t>(number.serialType), number.bytes);
        ASSERT_TRUE(record.decode(payload)) << number.value;
        EXPECT_EQ(record.cells()[0].type, RecordCell::INTEGER) << number.value;
        EXPECT_EQ(record.cells()[0].integer, number.value);
    }
}

TEST(RecordDecoderTest, DecodesTheOtherTypes)
{
    RecordDecoder record;
    std::string const payload = "\x06" + std::string("\0\x07\x0c\x13\x10", 5) + std::string("\x3f\xf8\0\0\0\0\0\0", 8) +
                                "abc" + std::string("\0\xff", 2);
    ASSERT_TRUE(record.decode(payload));
    ASSERT_EQ(record.cells().size(), 5u);
    EXPECT_EQ(record.cells()[0].type, RecordCell::EMPTY);
    EXPECT_EQ(record.cells()[1].real, 1.5);
    EXPECT_EQ(record.cells()[2].type, RecordCell::BLOB);
    EXPECT_EQ(record.cells()[2].bytes, "");
    EXPECT_EQ(record.cells()[3].type, RecordCell::TEXT);
    EXPECT_EQ(record.cells()[3].bytes, "abc");
    EXPECT_EQ(record.cells()[4].bytes, std::string("\0\xff", 2));
}

TEST(RecordDecoderTest, RefusesRecordsThatTheirCellsDoNotFill)
{
    RecordDecoder record;
    std::string const good = recordOf({"one", "two"});
    ASSERT_TRUE(record.decode(good));
    EXPECT_FALSE(record.decode(good + "x"));
    EXPECT_FALSE(record.decode(good.substr(0, good.size() - 1)));
    EXPECT_FALSE(record.decode(""));
}

TEST(RecordDecoderTest, RefusesWrongHeaders)
{
    std::vector<std::string> const bad = {
        std::string(1, '\0'),       // shorter than its own size
        "\x05\x01\x01",             // beyond the record
        std::string("\x02\x0a", 2), // types that are never stored
        std::string("\x02\x0b", 2),
        std::string("\x02\x81\x01", 3),  // a type that ends behind the header
        "\x0a" + std::string(9, '\xff'), // a text of 2^63 bytes
        std::string(9, '\xff') + "\x01", // a header of 2^64 bytes
    };
    for (std::string const& payload : bad)
    {
        RecordDecoder record;
        EXPECT_FALSE(record.decode(payload)) << testing::PrintToString(payload);
    }
}

TEST(RecordDecoderTest, DecodesTheBeginningOfALongRecord)
{
    std::string const whole = recordOf({"first", "second"});
    RecordDecoder record;
    std::string const beginning = whole.substr(0, whole.size() - 4);
    ASSERT_TRUE(record.decodeBeginning(beginning, whole.size()));
    EXPECT_EQ(record.cells()[0].bytes, "first");
    EXPECT_FALSE(record.cells()[0].isCut);
    EXPECT_EQ(record.cells()[1].bytes, "se");
    EXPECT_TRUE(record.cells()[1].isCut);
    EXPECT_FALSE(record.decodeBeginning(beginning, whole.size() + 1));
    EXPECT_FALSE(record.decodeBeginning(whole.substr(0, 2), whole.size())) << "the header is cut";
}

TEST(RecordDecoderTest, ANumberBehindTheEndIsMissing)
{
    RecordDecoder record;
    std::string const payload = "\x02\x06";
    ASSERT_TRUE(record.decodeBeginning(payload, payload.size() + 8));
    EXPECT_EQ(record.cells()[0].type, RecordCell::MISSING);
}

TEST(RecordDecoderTest, CountsTheCells)
{
    EXPECT_EQ(RecordDecoder::countCells(recordOf({"a", "b", "c"})), 3u);
    EXPECT_EQ(RecordDecoder::countCells("\x05\x01"), std::nullopt);
    EXPECT_EQ(RecordDecoder::countCells(""), std::nullopt);
}
