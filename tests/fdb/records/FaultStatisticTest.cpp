#include <fdb/records/FaultStatistic.h>

#include "TestSupport.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstring>
#include <ios>
#include <limits>
#include <new>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

namespace
{

class StatisticText : public testing::Test
{
protected:
    std::string text()
    {
        out << statistic;
        return out.str();
    }

    FaultStatistic statistic;
    std::ostringstream out;
};

} // namespace

// The column model points at the members through pointers to exactly these types.
static_assert(std::is_same_v<decltype(FaultStatistic::EntryId), unsigned long long>);
static_assert(std::is_same_v<decltype(FaultStatistic::FaultEntryId), unsigned long long>);
static_assert(std::is_same_v<decltype(FaultStatistic::TimeFirstOccurredUTC), unsigned long long>);
static_assert(std::is_same_v<decltype(FaultStatistic::TimeLastOccurredUTC), unsigned long long>);
static_assert(std::is_same_v<decltype(FaultStatistic::OccurenceCnt), unsigned short>);
static_assert(std::is_same_v<decltype(FaultStatistic::FaultActiveCycleCnt), unsigned short>);
static_assert(std::is_same_v<decltype(FaultStatistic::RdbStartupId), unsigned int>);
static_assert(std::is_same_v<decltype(FaultStatistic::FaultCode), faultCode_t>);
static_assert(std::is_same_v<decltype(FaultStatistic::FaultActive), faultStatus_t>);

static_assert(std::has_virtual_destructor_v<FaultStatistic>);
static_assert(!std::is_nothrow_move_constructible_v<FaultStatistic>, "a copy of the texts may throw, a move would not");
static_assert(!std::is_nothrow_move_assignable_v<FaultStatistic>);

TEST(FaultStatisticRecord, IsZeroAndEmptyByDefault)
{
    std::string const none;
    constexpr unsigned short kZero = 0;
    // Construct in dirty memory, to detect a member without a default.
    alignas(FaultStatistic) unsigned char memory[sizeof(FaultStatistic)];
    std::memset(memory, 0xA5, sizeof memory);
    auto* const statistic = new (memory) FaultStatistic;
    EXPECT_EQ(members(*statistic), std::make_tuple(0ULL, static_cast<faultCode_t>(0), none, kZero, 0ULL, 0ULL,
                                                   FAULT_INACTIVE, none, none, kZero, 0ULL, 0U));
    statistic->~FaultStatistic();
}

TEST(FaultStatisticRecord, MembersLieInDeclarationOrder)
{
    FaultStatistic const s;
    std::vector<void const*> const addresses = {&s.EntryId,
                                                &s.FaultCode,
                                                &s.FaultCodeName,
                                                &s.OccurenceCnt,
                                                &s.TimeFirstOccurredUTC,
                                                &s.TimeLastOccurredUTC,
                                                &s.FaultActive,
                                                &s.TimeZoneFirstOccurred,
                                                &s.TimeZoneLastOccurred,
                                                &s.FaultActiveCycleCnt,
                                                &s.FaultEntryId,
                                                &s.RdbStartupId};
    EXPECT_TRUE(std::is_sorted(addresses.begin(), addresses.end()));
}

TEST(FaultStatisticRecord, HasNoBaseClass)
{
    EXPECT_EQ(typeid(typeid(FaultStatistic)), typeid(abi::__class_type_info));
}

TEST(FaultStatisticRecord, CopyEqualsItsSourceInAllMembers)
{
    FaultStatistic const source = makeStatistic();
    FaultStatistic const copy(source);
    EXPECT_EQ(members(copy), members(source));
}

TEST(FaultStatisticRecord, AssignmentReplacesAllMembers)
{
    FaultStatistic const source = makeStatistic(1);
    FaultStatistic target = makeStatistic(2);
    target.FaultActive = FAULT_INACTIVE;
    target = source;
    EXPECT_EQ(members(target), members(source));
}

TEST(FaultStatisticRecord, ChangingTheTextsOfACopyLeavesItsSource)
{
    FaultStatistic const source = makeStatistic();
    FaultStatistic copy(source);
    for (std::string* const text : {&copy.FaultCodeName, &copy.TimeZoneFirstOccurred, &copy.TimeZoneLastOccurred})
    {
        text->front() = '#';
    }
    EXPECT_EQ(members(source), members(makeStatistic()));
}

TEST(FaultStatisticRecord, ConstructionFromATemporaryLeavesTheSourceIntact)
{
    FaultStatistic source = makeStatistic();
    FaultStatistic const target(std::move(source));
    EXPECT_EQ(members(source), members(makeStatistic()));
}

TEST(FaultStatisticRecord, AssignmentFromATemporaryLeavesTheSourceIntact)
{
    FaultStatistic source = makeStatistic();
    FaultStatistic target;
    target = std::move(source);
    EXPECT_EQ(members(source), members(makeStatistic()));
}

TEST(FaultStatisticRecord, LargestCountSurvivesACopy)
{
    FaultStatistic source;
    source.OccurenceCnt = 65535;
    FaultStatistic const copy(source);
    EXPECT_EQ(copy.OccurenceCnt, 65535);
}

TEST(FaultStatisticRecord, CountsHoldNothingLargerThanSixteenBits)
{
    EXPECT_EQ(std::numeric_limits<decltype(FaultStatistic::OccurenceCnt)>::max(), 65535);
}

TEST_F(StatisticText, OfAFullStatistic)
{
    statistic.FaultCode = static_cast<faultCode_t>(258);
    statistic.TimeFirstOccurredUTC = 100;
    statistic.TimeLastOccurredUTC = 200;
    statistic.OccurenceCnt = 4;
    statistic.FaultActive = FAULT_ACTIVE;
    statistic.FaultActiveCycleCnt = 2;
    statistic.FaultEntryId = 12;
    statistic.RdbStartupId = 3;
    statistic.EntryId = 99;
    statistic.FaultCodeName = "not shown";
    statistic.TimeZoneFirstOccurred = "not shown";
    statistic.TimeZoneLastOccurred = "not shown";
    EXPECT_EQ(text(), "[FAULT_STATISTIC]: 258, " + textOf(statistic.FaultCode) + ", 100, 200, 4, active, 2, 12, 3");
}

TEST_F(StatisticText, OfADefaultStatistic)
{
    EXPECT_EQ(text(), "[FAULT_STATISTIC]: 0, " + textOf(static_cast<faultCode_t>(0)) + ", 0, 0, 0, inactive, 0, 0, 0");
}

TEST_F(StatisticText, ShowsNothingForAnUnnamedActivity)
{
    for (unsigned int const activity : {2U, 5U, 4294967295U})
    {
        out.str("");
        statistic.FaultActive = static_cast<faultStatus_t>(activity);
        EXPECT_NE(text().find(", 0, 0, 0, , 0, 0, 0"), std::string::npos) << activity;
    }
}

TEST_F(StatisticText, ShowsTheWholeCode)
{
    statistic.FaultCode = static_cast<faultCode_t>(65537);
    EXPECT_EQ(text().rfind("[FAULT_STATISTIC]: 65537, ", 0), 0U) << out.str();
}

TEST_F(StatisticText, NumbersAreUnsignedUpToTheirWidth)
{
    statistic.FaultCode = static_cast<faultCode_t>(4294967295U);
    statistic.TimeFirstOccurredUTC = 18446744073709551615ULL;
    statistic.TimeLastOccurredUTC = 18446744073709551614ULL;
    statistic.OccurenceCnt = 65535;
    statistic.FaultActiveCycleCnt = 65534;
    statistic.FaultEntryId = 18446744073709551613ULL;
    statistic.RdbStartupId = 4294967294U;
    EXPECT_EQ(text(), "[FAULT_STATISTIC]: 4294967295, " + textOf(statistic.FaultCode) +
                          ", 18446744073709551615, 18446744073709551614, 65535, inactive, 65534, "
                          "18446744073709551613, 4294967294");
}

TEST_F(StatisticText, NumbersFollowTheBaseOfTheStream)
{
    statistic.FaultCode = static_cast<faultCode_t>(255);
    out << std::hex;
    EXPECT_EQ(text().rfind("[FAULT_STATISTIC]: ff, ", 0), 0U) << out.str();
}

TEST_F(StatisticText, FormattingFlagsStayAsTheyWere)
{
    out << std::hex << std::showbase;
    auto const flags = out.flags();
    out << statistic;
    EXPECT_EQ(out.flags(), flags);
}

TEST_F(StatisticText, TwoStatisticsStandInOneLine)
{
    out << statistic << statistic;
    EXPECT_EQ(out.str().find('\n'), std::string::npos);
}

TEST_F(StatisticText, OperatorReturnsItsStream)
{
    EXPECT_EQ(&(out << statistic), &out);
}
