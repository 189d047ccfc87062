// The cells that a recorded event writes.

#include "RecorderFixtures.h"

#include <fstream>
#include <iostream>
#include <limits>
#include <streambuf>

namespace
{

using namespace firaim;
using testing::HasSubstr;

/// Doubles the quotes of a text, as the facade requires.
std::string doubled(std::string const& text)
{
    std::string result;
    for (char const c : text)
    {
        result.append(c == '\'' ? 2 : 1, c);
    }
    return result;
}

Fault faultOf(FaultEvent const& event)
{
    Fault fault;
    fault.FaultCode = static_cast<faultCode_t>(event.code);
    fault.FaultCodeName = doubled(*event.codeName);
    fault.ModuleName = doubled(event.module);
    fault.Parameter = doubled(event.parameter);
    fault.TimeStampUTC = *event.time;
    fault.TimeZone = doubled(*event.timeZone);
    fault.Status = event.status;
    fault.Description = doubled(event.description);
    fault.DiagSignalsDumpFileName = doubled(event.signalsFile);
    fault.LoggerUpTime = *event.upTime;
    fault.LoggerLifeTime = *event.lifeTime;
    fault.CfgBackupFile = doubled(event.configBackup);
    fault.RdbStartupId = *event.startupId;
    fault.DateTimeString = doubled(*event.dateTimeText);
    fault.SystemDateTimeString = doubled(*event.systemTimeText);
    return fault;
}

/// An event with all members set, whose texts start with `text`.
FaultEvent wholeEvent(std::string const& text)
{
    FaultEvent event = eventOf(0x0101, text + "module", text + "parameter");
    event.description = text + "description";
    event.signalsFile = text + "signals";
    event.configBackup = text + "backup";
    event.timeZone = text + "zone";
    event.lifeTime = 20;
    event.startupId = 30;
    event.codeName = text + "name";
    event.dateTimeText = text + "date";
    event.systemTimeText = text + "system";
    return event;
}

class FaultRecorderRecordTest : public FaultRecorderTest
{
protected:
    /// Type and bytes of every cell of the newest row, except the key.
    static RawDb::Row newestCells(std::string const& file, std::string const& table)
    {
        RawDb raw(file);
        std::string columns;
        for (RawDb::Row const& column : raw.rows("PRAGMA table_info(" + table + ")"))
        {
            std::string const name = column[1].value();
            columns += name == "EntryId" ? "" : ",typeof(" + name + ")," + name;
        }
        Rows const found =
            raw.rows("SELECT " + columns.substr(1) + " FROM " + table + " ORDER BY EntryId DESC LIMIT 1");
        return found.empty() ? RawDb::Row() : found[0];
    }

    /// Expects the same cells for `event` as the facade writes.
    void expectAsFacade(FaultEvent const& event)
    {
        std::string const other = dir.file("facade.db");
        if (!exists(other))
        {
            Console const console;
            ASSERT_EQ(FaultDb::getInstance()->createDb(other, false), RESULT_OK);
        }
        Fault fault = faultOf(event);
        ASSERT_EQ(Facade(other)->insert(fault), RESULT_OK);
        EXPECT_EQ(recorder.record(event).result, HISTORY_OK) << recorder.lastProblem();
        EXPECT_TRUE(newestCells(path, "FdbFaultTbl") == newestCells(other, "FdbFaultTbl"));
    }
};

TEST_F(FaultRecorderRecordTest, RowIsThatOfTheFacade)
{
    open();
    for (faultStatus_t const status : {FAULT_ACTIVE, FAULT_INACTIVE, static_cast<faultStatus_t>(7)})
    {
        SCOPED_TRACE(status);
        FaultEvent event = wholeEvent("");
        event.status = status;
        expectAsFacade(event);
    }
}

TEST_F(FaultRecorderRecordTest, TextsAreStoredAsTheyAre)
{
    open();
    for (std::string const& text :
         {std::string("it's"), std::string("''"), std::string("x'); DROP TABLE FdbFaultTbl; --"),
          std::string("line\nline\r\n\ttab"), std::string("\xff\xfe\x80 \xc3\x28"), std::string("?1 :a @b $c %_"),
          std::string("12"), std::string("NULL"), std::string(1 << 20, 'M')})
    {
        SCOPED_TRACE(text.substr(0, 40));
        expectAsFacade(wholeEvent(text));
    }
}

TEST_F(FaultRecorderRecordTest, EmptyTextsAreNotNull)
{
    open();
    FaultEvent event = wholeEvent("");
    for (std::string* const text :
         {&event.module, &event.parameter, &event.description, &event.signalsFile, &event.configBackup})
    {
        text->clear();
    }
    event.timeZone = event.codeName = event.dateTimeText = event.systemTimeText = "";
    expectAsFacade(event);
}

TEST_F(FaultRecorderRecordTest, LargestNumbersAreStored)
{
    open();
    FaultEvent event = wholeEvent("");
    event.code = 0xffff'ffff;
    event.time = std::numeric_limits<std::int64_t>::max();
    event.upTime = event.lifeTime = event.startupId = 0xffff'ffff;
    expectAsFacade(event);
    EXPECT_EQ(value("SELECT max(FaultCode) || ' ' || max(TimeStampUTC) FROM FdbFaultTbl"),
              "4294967295 9223372036854775807");
}

TEST_F(FaultRecorderRecordTest, NewStatisticIsThatOfTheFacade)
{
    open();
    FaultEvent const event = wholeEvent("it's ");
    ASSERT_EQ(recorder.record(event).key, 1U);
    std::string const other = dir.file("facade.db");
    FaultStatistic statistic;
    statistic.FaultCode = static_cast<faultCode_t>(event.code);
    statistic.FaultCodeName = doubled(*event.codeName);
    statistic.TimeFirstOccurredUTC = statistic.TimeLastOccurredUTC = *event.time;
    statistic.TimeZoneFirstOccurred = statistic.TimeZoneLastOccurred = doubled(*event.timeZone);
    statistic.OccurenceCnt = statistic.FaultActiveCycleCnt = 1;
    statistic.FaultActive = FAULT_ACTIVE;
    statistic.FaultEntryId = 1;
    statistic.RdbStartupId = *event.startupId;
    {
        Console const console;
        ASSERT_EQ(FaultDb::getInstance()->createDb(other, false), RESULT_OK);
        ASSERT_EQ(Facade(other)->insert(statistic), RESULT_OK);
    }
    EXPECT_EQ(newestCells(path, "FdbFaultStatisticTbl"), newestCells(other, "FdbFaultStatisticTbl"));

    FaultEvent end = event;
    end.status = FAULT_INACTIVE;
    end.time = *event.time + 5;
    end.timeZone = "other";
    ASSERT_EQ(recorder.record(end).key, 2U);
    statistic.FaultActive = FAULT_INACTIVE;
    statistic.FaultEntryId = 2;
    ASSERT_EQ(Facade(other)->update(statistic), RESULT_OK);
    EXPECT_EQ(newestCells(path, "FdbFaultStatisticTbl"), newestCells(other, "FdbFaultStatisticTbl"));
}

TEST_F(FaultRecorderRecordTest, OmittedMembersAreFilledIn)
{
    RecorderOptions options;
    options.timeZone = "UTC+7";
    open(options);
    FaultEvent event;
    event.code = FC_SUPPLY_UNDERVOLTAGE;
    std::string const before = utcText(currentTime());
    ASSERT_EQ(recorder.record(event).result, HISTORY_OK);
    std::string const after = utcText(currentTime());
    RawDb::Row const row = rows("SELECT DateTimeString, SystemDateTimeString, TimeZone, LoggerLifeTime, "
                                "RdbStartupId, FaultCodeName, Status FROM FdbFaultTbl")[0];
    EXPECT_GE(row[0].value(), before);
    EXPECT_LE(row[0].value(), after);
    EXPECT_GE(row[1].value(), before);
    EXPECT_LE(row[1].value(), after);
    EXPECT_THAT(RawDb::Row(row.begin() + 2, row.end()),
                testing::ElementsAre("UTC+7", "0", "1", "FC_SUPPLY_UNDERVOLTAGE", "ErrorActive"));
}

TEST_F(FaultRecorderRecordTest, UpTimeIsThatOfTheMachine)
{
    open();
    auto const machine = []
    {
        double seconds = 0;
        std::ifstream("/proc/uptime") >> seconds;
        return static_cast<unsigned long>(seconds);
    };
    FaultEvent event = eventOf(1);
    event.upTime.reset();
    unsigned long const before = machine();
    ASSERT_EQ(recorder.record(event).result, HISTORY_OK);
    unsigned long const after = machine();
    unsigned long const recorded = std::stoul(value("SELECT LoggerUpTime FROM FdbFaultTbl"));
    EXPECT_GE(recorded, before);
    EXPECT_LE(recorded, after);
}

TEST_F(FaultRecorderRecordTest, CodeWithoutANameIsWrittenAsUnknown)
{
    open();
    GlobalGroupingLocale const locale;
    ASSERT_EQ(recorder.record(eventOf(4'000'000'000)).result, HISTORY_OK);
    EXPECT_EQ(value("SELECT FaultCodeName FROM FdbFaultTbl"), "UNKNOWN_FAULT_CODE(4000000000)");
}

TEST_F(FaultRecorderRecordTest, ZeroByteInAnyTextIsRefusedAndNothingWritten)
{
    open();
    ASSERT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK);
    std::string const before = readFile(path);
    std::string const bad("a\0b", 3);
    std::vector<FaultEvent> events;
    for (std::string FaultEvent::*const text : {&FaultEvent::module, &FaultEvent::parameter, &FaultEvent::description,
                                                &FaultEvent::signalsFile, &FaultEvent::configBackup})
    {
        events.push_back(eventOf(1));
        events.back().*text = bad;
    }
    for (std::optional<std::string> FaultEvent::*const text :
         {&FaultEvent::timeZone, &FaultEvent::codeName, &FaultEvent::dateTimeText, &FaultEvent::systemTimeText})
    {
        events.push_back(eventOf(1));
        events.back().*text = bad;
    }
    for (std::size_t i = 0; i < events.size(); ++i)
    {
        SCOPED_TRACE(i);
        std::vector<unsigned long long> keys;
        EXPECT_EQ(recorder.record(events[i]).result, HISTORY_REFUSED);
        EXPECT_EQ(recorder.raise(events[i]).result, HISTORY_REFUSED);
        EXPECT_EQ(recorder.clear(events[i]).result, HISTORY_REFUSED);
        EXPECT_EQ(recorder.clearCode(events[i], keys), HISTORY_REFUSED);
    }
    EXPECT_THAT(recorder.lastProblem(), testing::AllOf(HasSubstr(path), HasSubstr("zero byte")));
    EXPECT_EQ(recorder.counters().refused, 4 * events.size());
    EXPECT_TRUE(readFile(path) == before);
}

TEST_F(FaultRecorderRecordTest, NumberThatIsTooLargeIsRefusedAndNothingWritten)
{
    open();
    std::string const before = readFile(path);
    EXPECT_EQ(recorder.record(eventOf(0x1'0000'0000)).result, HISTORY_REFUSED);
    EXPECT_THAT(recorder.lastProblem(), HasSubstr("32 bits"));
    FaultEvent late = eventOf(1);
    late.time = 1ULL << 63U;
    EXPECT_EQ(recorder.record(late).result, HISTORY_REFUSED);
    EXPECT_THAT(recorder.lastProblem(), HasSubstr("2^63"));
    EXPECT_EQ(recorder.record(late).key, 0U);
    EXPECT_TRUE(readFile(path) == before);
}

TEST_F(FaultRecorderRecordTest, PostedEventThatIsRefusedCounts)
{
    RecorderOptions options;
    options.queueLimit = 0;
    open(options);
    EXPECT_EQ(recorder.post(eventOf(1ULL << 32U)), HISTORY_REFUSED);
    EXPECT_EQ(recorder.counters().refused, 1U);
    EXPECT_EQ(recorder.post(eventOf(1)), HISTORY_QUEUE_FULL);
    EXPECT_EQ(recorder.counters().refused, 2U);
}

TEST_F(FaultRecorderRecordTest, ClosedRecorderRefusesEverything)
{
    std::vector<unsigned long long> keys;
    std::vector<Receipt> receipts;
    auto const expectClosed = [&]
    {
        EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_INVALID_STATE);
        EXPECT_EQ(recorder.raise(eventOf(1)).result, HISTORY_INVALID_STATE);
        EXPECT_EQ(recorder.clear(eventOf(1)).result, HISTORY_INVALID_STATE);
        EXPECT_EQ(recorder.clearCode(eventOf(1), keys), HISTORY_INVALID_STATE);
        EXPECT_EQ(recorder.endCycle(), HISTORY_INVALID_STATE);
        EXPECT_EQ(recorder.recordAll({eventOf(1)}, receipts), HISTORY_INVALID_STATE);
        EXPECT_EQ(recorder.post(eventOf(1)), HISTORY_INVALID_STATE);
        EXPECT_EQ(recorder.startupId(), 0U);
        FaultEvent const impossible = eventOf(1ULL << 32U);
        EXPECT_EQ(recorder.record(impossible).result, HISTORY_INVALID_STATE);
        EXPECT_EQ(recorder.raise(impossible).result, HISTORY_INVALID_STATE);
        EXPECT_EQ(recorder.clearCode(impossible, keys), HISTORY_INVALID_STATE);
        EXPECT_EQ(recorder.recordAll({impossible}, receipts), HISTORY_INVALID_STATE);
        EXPECT_EQ(recorder.post(impossible), HISTORY_INVALID_STATE);
        EXPECT_THAT(recorder.lastProblem(), HasSubstr("not open"));
    };
    EXPECT_EQ(recorder.lastProblem(), "");
    EXPECT_EQ(recorder.close(), HISTORY_INVALID_STATE);
    EXPECT_NE(recorder.lastProblem(), "");
    expectClosed();
    open();
    ASSERT_EQ(recorder.close(), HISTORY_OK);
    expectClosed();
    EXPECT_EQ(value(kCountOfFaults), "0");
}

/// Standard output that refuses all characters and, as the application demands, throws then.
class ThrowingConsole
{
public:
    ThrowingConsole() : m_before(std::cout.rdbuf(&m_nothing)) { std::cout.exceptions(std::ios::badbit); }
    ~ThrowingConsole()
    {
        std::cout.exceptions(std::ios::goodbit);
        std::cout.clear();
        std::cout.rdbuf(m_before);
    }
    ThrowingConsole(ThrowingConsole const&) = delete;
    ThrowingConsole& operator=(ThrowingConsole const&) = delete;

private:
    class : public std::streambuf
    {
    } m_nothing;
    std::streambuf* m_before;
};

TEST_F(FaultRecorderRecordTest, DamagedCellThatCannotBeReportedFailsTheCallAndTheNextOneWorks)
{
    open();
    ASSERT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK);
    exec("UPDATE FdbFaultStatisticTbl SET OccurenceCnt = 'many'");
    FaultRecorder other;
    {
        ThrowingConsole const console;
        EXPECT_EQ(recorder.record(eventOf(2)).result, HISTORY_FAILED);
        EXPECT_EQ(recorder.raise(eventOf(2)).result, HISTORY_FAILED);
        EXPECT_EQ(other.open(path), HISTORY_FAILED);
    }
    EXPECT_THAT(recorder.lastProblem(), HasSubstr(path));
    EXPECT_THAT(other.lastProblem(), HasSubstr(path));
    Console const console;
    EXPECT_EQ(recorder.record(eventOf(3)).result, HISTORY_OK) << recorder.lastProblem();
    EXPECT_EQ(other.open(path), HISTORY_OK) << other.lastProblem();
    EXPECT_EQ(value("SELECT group_concat(FaultCode) FROM FdbFaultTbl"), "1,3");
}

TEST_F(FaultRecorderRecordTest, KeyIsThatOfTheRowWhateverOthersInsert)
{
    open();
    for (unsigned int i = 0; i < 5; ++i)
    {
        Fault fault = makeFault(i);
        ASSERT_EQ(Facade(path)->insert(fault), RESULT_OK);
        unsigned long long const key = recorder.record(eventOf(70 + i)).key;
        EXPECT_EQ(value("SELECT FaultCode FROM FdbFaultTbl WHERE EntryId = " + std::to_string(key)),
                  std::to_string(70 + i));
    }
    EXPECT_EQ(recorder.counters().recorded, 5U);
}

TEST_F(FaultRecorderRecordTest, LongestAndShortestTimeoutRecord)
{
    open();
    for (auto const timeout : {FaultRecorder::Timeout::min(), FaultRecorder::Timeout(-1), FaultRecorder::Timeout(0),
                               FaultRecorder::Timeout::max()})
    {
        EXPECT_EQ(recorder.record(eventOf(1), timeout).result, HISTORY_OK) << recorder.lastProblem();
    }
    EXPECT_EQ(value(kCountOfFaults), "4");
}

} // namespace
