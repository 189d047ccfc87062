#include <fdb/records/Fault.h>

#include "TestSupport.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstring>
#include <ios>
#include <new>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

namespace
{

std::vector<std::string*> texts(Fault& fault)
{
    return {&fault.DateTimeString, &fault.FaultCodeName, &fault.Parameter,
            &fault.Description,    &fault.TimeZone,      &fault.DiagSignalsDumpFileName,
            &fault.CfgBackupFile,  &fault.ModuleName,    &fault.SystemDateTimeString};
}

class FaultText : public testing::Test
{
protected:
    std::string text()
    {
        out << fault;
        return out.str();
    }

    Fault fault;
    std::ostringstream out;
};

} // namespace

// The column model points at the members through pointers to exactly these types.
static_assert(std::is_same_v<decltype(Fault::EntryId), unsigned long long>);
static_assert(std::is_same_v<decltype(Fault::TimeStampUTC), unsigned long long>);
static_assert(std::is_same_v<decltype(Fault::LoggerUpTime), unsigned int>);
static_assert(std::is_same_v<decltype(Fault::LoggerLifeTime), unsigned int>);
static_assert(std::is_same_v<decltype(Fault::RdbStartupId), unsigned int>);
static_assert(std::is_same_v<decltype(Fault::FaultCode), faultCode_t>);
static_assert(std::is_same_v<decltype(Fault::Status), faultStatus_t>);
static_assert(sizeof(unsigned long long) == 8 && sizeof(unsigned int) == 4 && sizeof(unsigned short) == 2);

static_assert(std::is_same_v<std::underlying_type_t<faultStatus_t>, unsigned int>);
static_assert(FAULT_INACTIVE == 0 && FAULT_ACTIVE == 1);

static_assert(std::has_virtual_destructor_v<Fault>);
static_assert(!std::is_nothrow_move_constructible_v<Fault>, "a copy of the texts may throw, a move would not");
static_assert(!std::is_nothrow_move_assignable_v<Fault>);

TEST(FaultRecord, IsZeroAndEmptyByDefault)
{
    std::string const none;
    // Construct in dirty memory, to detect a member without a default.
    alignas(Fault) unsigned char memory[sizeof(Fault)];
    std::memset(memory, 0xA5, sizeof memory);
    auto* const fault = new (memory) Fault;
    EXPECT_EQ(members(*fault), std::make_tuple(0ULL, none, static_cast<faultCode_t>(0), none, none, 0ULL,
                                               FAULT_INACTIVE, none, none, none, none, 0U, 0U, none, 0U, none));
    fault->~Fault();
}

TEST(FaultRecord, MembersLieInDeclarationOrder)
{
    Fault const f;
    std::vector<void const*> const addresses = {&f.EntryId,
                                                &f.DateTimeString,
                                                &f.FaultCode,
                                                &f.FaultCodeName,
                                                &f.Parameter,
                                                &f.TimeStampUTC,
                                                &f.Status,
                                                &f.Description,
                                                &f.DiagSignalsDumpFileName,
                                                &f.ModuleName,
                                                &f.TimeZone,
                                                &f.LoggerUpTime,
                                                &f.LoggerLifeTime,
                                                &f.CfgBackupFile,
                                                &f.RdbStartupId,
                                                &f.SystemDateTimeString};
    EXPECT_TRUE(std::is_sorted(addresses.begin(), addresses.end()));
}

TEST(FaultRecord, HasNoBaseClass)
{
    EXPECT_EQ(typeid(typeid(Fault)), typeid(abi::__class_type_info));
}

TEST(FaultRecord, CopyEqualsItsSourceInAllMembers)
{
    Fault const source = makeFault();
    Fault const copy(source);
    EXPECT_EQ(members(copy), members(source));
}

TEST(FaultRecord, AssignmentReplacesAllMembers)
{
    Fault const source = makeFault(1);
    Fault target = makeFault(2);
    target.Status = FAULT_INACTIVE;
    target = source;
    EXPECT_EQ(members(target), members(source));
}

TEST(FaultRecord, ChangingTheTextsOfACopyLeavesItsSource)
{
    Fault source = makeFault();
    Fault copy(source);
    for (std::string* const text : texts(copy))
    {
        text->front() = '#';
    }
    EXPECT_EQ(members(source), members(makeFault()));
}

TEST(FaultRecord, ConstructionFromATemporaryLeavesTheSourceIntact)
{
    Fault source = makeFault();
    Fault const target(std::move(source));
    EXPECT_EQ(members(source), members(makeFault()));
}

TEST(FaultRecord, AssignmentFromATemporaryLeavesTheSourceIntact)
{
    Fault source = makeFault();
    Fault target;
    target = std::move(source);
    EXPECT_EQ(members(source), members(makeFault()));
}

TEST(FaultRecord, KeepsNumbersThatHaveNoName)
{
    Fault source;
    source.FaultCode = static_cast<faultCode_t>(4294967295U);
    source.Status = static_cast<faultStatus_t>(4294967295U);
    Fault const copy(source);
    EXPECT_EQ(static_cast<unsigned int>(copy.FaultCode), 4294967295U);
    EXPECT_EQ(static_cast<unsigned int>(copy.Status), 4294967295U);
}

TEST_F(FaultText, OfAFullFault)
{
    fault.EntryId = 12;
    fault.TimeStampUTC = 150;
    fault.DateTimeString = "D1";
    fault.SystemDateTimeString = "D2";
    fault.FaultCode = static_cast<faultCode_t>(258);
    fault.Parameter = "p";
    fault.ModuleName = "m";
    fault.Status = FAULT_ACTIVE;
    fault.Description = "d";
    fault.DiagSignalsDumpFileName = "f";
    fault.LoggerUpTime = 10;
    fault.LoggerLifeTime = 20;
    fault.CfgBackupFile = "c";
    fault.RdbStartupId = 3;
    fault.FaultCodeName = "not shown";
    fault.TimeZone = "not shown";
    EXPECT_EQ(text(),
              "[FAULT]: DbId=12, TimeStamp=150, TimeStampDate[UTC]=D1, SystemDate[UTC]=D2, FCode=258, FCodeName=" +
                  textOf(fault.FaultCode) +
                  ", Param=p, TxModule=m, Status=ErrorActive, Des=d, DiagSigFile=f, UpTime=10, LifeTime=20, "
                  "CfgBuFile=c, RDB StartupId=3");
}

TEST_F(FaultText, OfADefaultFault)
{
    EXPECT_EQ(text(), "[FAULT]: DbId=0, TimeStamp=0, TimeStampDate[UTC]=, SystemDate[UTC]=, FCode=0, FCodeName=" +
                          textOf(static_cast<faultCode_t>(0)) +
                          ", Param=, TxModule=, Status=ErrorInactive, Des=, DiagSigFile=, UpTime=0, LifeTime=0, "
                          "CfgBuFile=, RDB StartupId=0");
}

TEST_F(FaultText, ShowsNothingForAnUnnamedStatus)
{
    for (unsigned int const status : {2U, 7U, 4294967295U})
    {
        out.str("");
        fault.Status = static_cast<faultStatus_t>(status);
        EXPECT_NE(text().find(", Status=, Des="), std::string::npos) << status;
    }
}

TEST_F(FaultText, ShowsTheLowSixteenBitsOfTheCode)
{
    fault.FaultCode = static_cast<faultCode_t>(65537);
    EXPECT_NE(text().find(", FCode=1, "), std::string::npos) << out.str();
}

TEST_F(FaultText, NamesTheWholeCode)
{
    fault.FaultCode = static_cast<faultCode_t>(4294901761U);
    EXPECT_NE(text().find(", FCodeName=" + textOf(fault.FaultCode) + ", "), std::string::npos) << out.str();
}

TEST_F(FaultText, LargestKeyIsUnsigned)
{
    fault.EntryId = 18446744073709551615ULL;
    EXPECT_EQ(text().rfind("[FAULT]: DbId=18446744073709551615, ", 0), 0U) << out.str();
}

TEST_F(FaultText, LargestCountersAreUnsigned)
{
    fault.LoggerUpTime = 4294967295U;
    fault.LoggerLifeTime = 4294967294U;
    EXPECT_NE(text().find(", UpTime=4294967295, LifeTime=4294967294, "), std::string::npos) << out.str();
}

TEST_F(FaultText, TextsAreWrittenWholeAndUnquoted)
{
    using namespace std::string_literals;
    fault.Description = "a\0b'\"\\"s;
    EXPECT_NE(text().find(", Des=a\0b'\"\\, DiagSigFile="s), std::string::npos);
}

TEST_F(FaultText, NumbersFollowTheBaseOfTheStream)
{
    fault.EntryId = 255;
    out << std::hex;
    EXPECT_EQ(text().rfind("[FAULT]: DbId=ff, ", 0), 0U) << out.str();
}

TEST_F(FaultText, FormattingFlagsStayAsTheyWere)
{
    out << std::hex << std::showbase;
    auto const flags = out.flags();
    out << fault;
    EXPECT_EQ(out.flags(), flags);
}

TEST_F(FaultText, TwoFaultsStandInOneLine)
{
    out << fault << fault;
    EXPECT_EQ(out.str().find('\n'), std::string::npos);
}

TEST_F(FaultText, OperatorReturnsItsStream)
{
    EXPECT_EQ(&(out << fault), &out);
}
