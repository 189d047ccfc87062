#include "StandardStreams.h"
#include "ToolProcess.h"

#include <tool/process/Problem.h>
#include <tool/store/FaultFilter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

using namespace tool;

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Keys = std::vector<unsigned long long>;
using Setter = std::function<void(FilterOptions&)>;

/// The sample's three faults, and one with an empty module and a code that is not built in.
class FaultFilterTest : public ToolTest
{
protected:
    FaultFilterTest()
    {
        createSample();
        insertFault("FaultCode,FaultCodeName,ModuleName,Status,RdbStartupId,TimeStampUTC",
                    "70000,'FC_OF_THE_DEVICE','',0,3,1935802921000");
    }

    static FilterOptions options(std::vector<Setter> const& sets)
    {
        FilterOptions result;
        for (Setter const& set : sets)
        {
            set(result);
        }
        return result;
    }

    /// The keys of the faults that match these options, newest first.
    Keys keys(FilterOptions const& options, TimeStyle const& style = {})
    {
        FaultFile file(path);
        FaultFilter const filter(options, style, file);
        auto cursor = file.reader().faults(filter.query());
        Keys result;
        for (Fault fault; file.isFound(cursor.next(fault));)
        {
            result.push_back(fault.EntryId);
        }
        return result;
    }

    Keys keysOfCode(std::string const& code)
    {
        return keys(options({[&](FilterOptions& o) { o.code = code; }}));
    }

    /// The message with which these options are refused; empty if they are accepted.
    std::string problemOf(FilterOptions const& options)
    {
        FaultFile file(path);
        try
        {
            FaultFilter const filter(options, {}, file);
        }
        catch (Problem const& problem)
        {
            EXPECT_EQ(problem.status(), STATUS_BAD_USAGE);
            return problem.what();
        }
        return "";
    }

    /// The report on why no fault matches these options.
    std::string reportOf(FilterOptions const& options)
    {
        FaultFile file(path);
        FaultFilter const filter(options, {}, file);
        return writtenTo(STDERR_FILENO, 0, [&] { filter.reportNoMatch(); });
    }
};

void ofBusOff(FilterOptions& options)
{
    options.code = "FC_BUS_OFF";
}

void ofCan0(FilterOptions& options)
{
    options.module = "can0";
}

void ofNoAnswer(FilterOptions& options)
{
    options.grep = "NO ANSWER";
}

void sinceTheSecondDay(FilterOptions& options)
{
    options.since = "2031-05-05";
}

void untilTheSecondDay(FilterOptions& options)
{
    options.until = "2031-05-05";
}

void ofTheSecondStart(FilterOptions& options)
{
    options.startup = 2;
}

void afterTheFirst(FilterOptions& options)
{
    options.after = 1;
}

void active(FilterOptions& options)
{
    options.isActiveOnly = true;
}

} // namespace

TEST_F(FaultFilterTest, SelectsEveryFaultWithoutOptions)
{
    EXPECT_FALSE(FilterOptions().areSet());
    EXPECT_THAT(keys({}), ElementsAre(4, 3, 2, 1));
    FaultFile file(path);
    EXPECT_TRUE(FaultFilter({}, {}, file).isEmpty());
}

TEST_F(FaultFilterTest, SelectsTheFaultsThatMatchASingleOption)
{
    std::pair<Setter, Keys> const cases[] = {
        {ofBusOff, {3, 1}},
        {ofCan0, {3, 2, 1}},
        {ofNoAnswer, {4, 3, 1}},
        {sinceTheSecondDay, {4, 3}},
        {untilTheSecondDay, {3, 2, 1}},
        {ofTheSecondStart, {3, 2}},
        {afterTheFirst, {4, 3, 2}},
        {active, {3, 1}},
    };
    int number = 0;
    for (auto const& [set, wanted] : cases)
    {
        SCOPED_TRACE(number++);
        FilterOptions const one = options({set});
        EXPECT_TRUE(one.areSet());
        EXPECT_EQ(keys(one), wanted);
    }
}

TEST_F(FaultFilterTest, SelectsTheFaultsThatMatchAllOfSeveralOptions)
{
    std::vector<Setter> const sets = {ofBusOff,          ofCan0,           ofNoAnswer,    sinceTheSecondDay,
                                      untilTheSecondDay, ofTheSecondStart, afterTheFirst, active};
    std::vector<Keys> alone;
    for (Setter const& set : sets)
    {
        alone.push_back(keys(options({set})));
    }
    for (unsigned int chosen = 0; chosen < 1U << sets.size(); ++chosen)
    {
        std::vector<Setter> some;
        Keys wanted = {4, 3, 2, 1};
        for (std::size_t i = 0; i < sets.size(); ++i)
        {
            if ((chosen >> i & 1) != 0)
            {
                some.push_back(sets[i]);
                wanted.erase(
                    std::remove_if(wanted.begin(), wanted.end(),
                                   [&](unsigned long long key)
                                   { return std::find(alone[i].begin(), alone[i].end(), key) == alone[i].end(); }),
                    wanted.end());
            }
        }
        EXPECT_EQ(keys(options(some)), wanted) << chosen;
    }
}

TEST_F(FaultFilterTest, IsEmptyWhereTheKeyAloneDecides)
{
    FaultFile file(path);
    EXPECT_TRUE(FaultFilter(options({afterTheFirst}), {}, file).isEmpty());
    EXPECT_FALSE(FaultFilter(options({afterTheFirst, active}), {}, file).isEmpty());
}

TEST_F(FaultFilterTest, TakesAnEmptyTextForAFilter)
{
    FilterOptions module;
    module.module = "";
    EXPECT_TRUE(module.areSet());
    EXPECT_THAT(keys(module), ElementsAre(4));
    FilterOptions grep;
    grep.grep = "";
    EXPECT_TRUE(grep.areSet());
    EXPECT_THAT(keys(grep), ElementsAre(4, 3, 2, 1));
}

TEST_F(FaultFilterTest, KnowsACodeByNumberAndByNameInAnyCase)
{
    for (char const* const code : {"FC_BUS_OFF", "fc_bus_off", "bus_OFF", "1025", "0x401", "0X401"})
    {
        EXPECT_THAT(keysOfCode(code), ElementsAre(3, 1)) << code;
    }
    EXPECT_THAT(keysOfCode("4294967295"), IsEmpty());
}

TEST_F(FaultFilterTest, KnowsACodeByTheNameInTheFile)
{
    EXPECT_THAT(keysOfCode("fc_of_the_DEVICE"), ElementsAre(4));
    // The name is looked up in the statistics first, as these are few.
    RawDb(path).exec("INSERT INTO FdbFaultStatisticTbl(FaultCode, FaultCodeName) VALUES(1285, 'FC_OF_THE_DEVICE')");
    EXPECT_THAT(keysOfCode("FC_OF_THE_DEVICE"), ElementsAre(2));
}

TEST_F(FaultFilterTest, PrefersTheProgramsOwnNameOfACode)
{
    RawDb(path).exec("UPDATE FdbFaultTbl SET FaultCodeName = 'FC_BUS_OFF' WHERE FaultCode = 70000");
    EXPECT_THAT(keysOfCode("FC_BUS_OFF"), ElementsAre(3, 1));
}

TEST_F(FaultFilterTest, RefusesAnUnknownCode)
{
    for (char const* const code : {"", "FC_", "FC_NOWHERE", "DEVICE", "-1", "4294967296", "1025 ", "0x", "1e3"})
    {
        EXPECT_THAT(problemOf(options({[&](FilterOptions& o) { o.code = code; }})),
                    HasSubstr("unknown fault code '" + std::string(code) + "'"));
    }
}

TEST_F(FaultFilterTest, RefusesAnInvalidTime)
{
    EXPECT_NE(problemOf(options({[](FilterOptions& o) { o.since = "yesterday"; }})), "");
    EXPECT_NE(problemOf(options({[](FilterOptions& o) { o.until = ""; }})), "");
}

TEST_F(FaultFilterTest, RefusesTheLargestKey)
{
    static constexpr long long kLargest = std::numeric_limits<long long>::max();
    EXPECT_EQ(problemOf(options({[](FilterOptions& o) { o.after = kLargest; }})),
              "--after: no key is larger than 9223372036854775807");
    EXPECT_THAT(keys(options({[](FilterOptions& o) { o.after = kLargest - 1; }})), IsEmpty());
    EXPECT_THAT(keys(options({[](FilterOptions& o) { o.after = std::numeric_limits<long long>::min(); }})),
                ElementsAre(4, 3, 2, 1));
}

TEST_F(FaultFilterTest, TakesTimesFromTheStartOfAPeriodToItsEnd)
{
    auto const between = [this](char const* since, char const* until)
    {
        return keys(options({[&](FilterOptions& o)
                             {
                                 o.since = since;
                                 o.until = until;
                             }}));
    };
    EXPECT_THAT(between("2031-05-04T03:02:01", "2031-05-04T03:02:01"), ElementsAre(1));
    EXPECT_THAT(between("2031-05-04T03:02", "2031-05-04T03:02"), ElementsAre(2, 1));
    EXPECT_THAT(between("2031-05-04T03:02:01.001Z", "2031-05-04T03:02:01.999Z"), IsEmpty());
    EXPECT_THAT(between("2031-05-05T04:02:01.5+01:00", "2031-05-05T04:02:01.5+01:00"), ElementsAre(3));
    EXPECT_THAT(between("2031-05-06", "2031-05-04"), IsEmpty());
}

TEST_F(FaultFilterTest, TakesStampsInTheUnitOfTheStyle)
{
    RawDb(path).exec("UPDATE FdbFaultTbl SET TimeStampUTC = 1935630121 WHERE EntryId = 1");
    FilterOptions const day = options({[](FilterOptions& o)
                                       {
                                           o.since = "2031-05-04";
                                           o.until = "2031-05-04";
                                       }});
    EXPECT_THAT(keys(day), ElementsAre(2, 1));
    EXPECT_THAT(keys(day, {TimeUnit::SECONDS, false}), ElementsAre(1));
    EXPECT_THAT(keys(day, {TimeUnit::MILLISECONDS, false}), ElementsAre(2));
}

TEST_F(FaultFilterTest, ReportsEachOptionThatNoFaultMatches)
{
    FilterOptions none;
    none.code = "0x402";
    none.module = "can\n1";
    none.startup = 9;
    none.grep = "nowhere";
    none.since = "2031-05-08";
    none.until = "2031-05-01";
    EXPECT_EQ(reportOf(none), "firaim: no fault has the code 0x402\n"
                              "firaim: no fault is of the module 'can\\n1'\n"
                              "firaim: no fault has the start-up id 9\n"
                              "firaim: no fault contains 'nowhere'\n"
                              "firaim: no fault is dated 2031-05-08T00:00:00.000Z or later\n"
                              "firaim: no fault is dated before 2031-05-02T00:00:00.000Z\n");
    RawDb(path).exec("UPDATE FdbFaultTbl SET Status = 'ErrorInactive'");
    EXPECT_EQ(reportOf(options({active})), "firaim: no fault was recorded as active\n");
}

TEST_F(FaultFilterTest, DoesNotReportAMatchedOptionBesideAnUnmatchedOne)
{
    FilterOptions options;
    options.module = "can0";
    options.startup = 9;
    EXPECT_EQ(reportOf(options), "firaim: no fault has the start-up id 9\n");
}

TEST_F(FaultFilterTest, ReportsThatNoFaultMatchesAllOptionsThoughEachIsMatched)
{
    FilterOptions options;
    options.code = "FC_SENSOR_TIMEOUT";
    options.isActiveOnly = true;
    EXPECT_EQ(reportOf(options), "firaim: no fault matches all filters\n");
    options.after = 1;
    EXPECT_EQ(reportOf(options), "firaim: no fault after key 1 matches all filters\n");
}

TEST_F(FaultFilterTest, ReportsTheKeyBehindWhichNoFaultMatches)
{
    FilterOptions options;
    options.after = 3;
    options.code = "FC_BUS_OFF";
    EXPECT_EQ(reportOf(options), "firaim: no fault has the code FC_BUS_OFF after key 3\n");
    options.code.reset();
    options.after = 4;
    EXPECT_EQ(reportOf(options), "firaim: there is no fault after key 4\n");
}

TEST_F(FaultFilterTest, ReportsThatThereIsNoFault)
{
    RawDb(path).exec("DELETE FROM FdbFaultTbl");
    EXPECT_EQ(reportOf({}), "firaim: there is no fault\n");
}
