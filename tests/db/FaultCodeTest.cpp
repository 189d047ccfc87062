#include <db/FaultCode.h>

#include "TestSupport.h"

#include <iomanip>
#include <locale>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace
{

struct NamedCode
{
    unsigned int number;
    std::string name;
};

std::vector<NamedCode> const table = {
#define FIRAIM_FAULT_CODE(name, number) {number, #name},
#include <db/FaultCodes.def>
#undef FIRAIM_FAULT_CODE
};

constexpr auto kLargestCode = static_cast<faultCode_t>(4294967295U);

class FaultCodeText : public testing::Test
{
protected:
    std::string write(faultCode_t code)
    {
        out << code;
        return out.str();
    }

    std::ostringstream out;
};

} // namespace

// A device compares and stores codes as plain numbers of a fixed width.
static_assert(std::is_same_v<std::underlying_type_t<faultCode_t>, unsigned int>);
static_assert(sizeof(faultCode_t) == 4);
static_assert(std::is_convertible_v<faultCode_t, unsigned int>);

TEST(FaultCodeTable, NamesAtLeastThirtyCodes)
{
    EXPECT_GE(table.size(), 30U);
}

TEST(FaultCodeTable, EnumeratorsHaveTheNumbersOfTheTable)
{
#define FIRAIM_FAULT_CODE(name, number) EXPECT_EQ(static_cast<unsigned int>(name), (number##U)) << #name;
#include <db/FaultCodes.def>
#undef FIRAIM_FAULT_CODE
}

TEST(FaultCodeTable, EveryCodeIsWrittenAsItsName)
{
    for (NamedCode const& code : table)
    {
        std::ostringstream out;
        out << static_cast<faultCode_t>(code.number);
        EXPECT_EQ(out.str(), code.name) << code.number;
    }
}

TEST_F(FaultCodeText, UnknownCodeShowsItsNumber)
{
    EXPECT_EQ(write(static_cast<faultCode_t>(54321)), "UNKNOWN_FAULT_CODE(54321)");
}

TEST_F(FaultCodeText, LargestCodeShowsAllThirtyTwoBitsUnsigned)
{
    EXPECT_EQ(write(kLargestCode), "UNKNOWN_FAULT_CODE(4294967295)");
}

TEST_F(FaultCodeText, CodeWhoseLowHalfIsNamedIsUnknown)
{
    unsigned int const number = 0x10000U + table.back().number;
    EXPECT_EQ(write(static_cast<faultCode_t>(number)), "UNKNOWN_FAULT_CODE(" + std::to_string(number) + ")");
}

TEST_F(FaultCodeText, UnknownCodeIsDecimalOnAHexadecimalStream)
{
    out << std::hex << std::showbase << std::showpos << std::uppercase;
    EXPECT_EQ(write(kLargestCode), "UNKNOWN_FAULT_CODE(4294967295)");
}

TEST_F(FaultCodeText, UnknownCodeIsNotGroupedByTheStreamsLocale)
{
    out.imbue(std::locale(std::locale::classic(), new GroupedDigits));
    EXPECT_EQ(write(kLargestCode), "UNKNOWN_FAULT_CODE(4294967295)");
}

TEST_F(FaultCodeText, FieldWidthPadsTheWholeTextOfAnUnknownCode)
{
    out << std::setw(32) << std::setfill('.');
    EXPECT_EQ(write(kLargestCode), "..UNKNOWN_FAULT_CODE(4294967295)");
}

TEST_F(FaultCodeText, FormattingFlagsStayAsTheyWere)
{
    out << std::hex << std::showbase;
    auto const flags = out.flags();
    write(kLargestCode);
    EXPECT_EQ(out.flags(), flags);
}

TEST_F(FaultCodeText, OperatorReturnsItsStream)
{
    EXPECT_EQ(&(out << kLargestCode), &out);
}
