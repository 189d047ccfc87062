// Texts come from buses and operators and may have any content: one record stays one row, and no other row changes.

#include "Fixtures.h"

#include <gmock/gmock.h>
#include <sqlite3.h>

namespace
{

class HostileText : public FaultDbTest
{
protected:
    HostileText()
    {
        createAndOpen();
        db.insert(bystander);
        db.insert(makeStatistic(1));
    }

    /// All bytes of all tables.
    std::vector<std::vector<RawDb::Row>> content()
    {
        RawDb raw(path);
        return {raw.rows("SELECT * FROM FdbFaultTbl"), raw.rows("SELECT * FROM FdbFaultStatisticTbl"),
                raw.rows("SELECT * FROM FdbVersionTbl"), raw.rows("SELECT * FROM sqlite_master")};
    }

    std::string refusal(std::string const& column) const
    {
        return "[ERROR] SQL3::execute() Sql Execute failed: unpaired quote or zero byte in column " + column +
               " Err=1\n";
    }

    Fault bystander = makeFault(1);
};

/// Texts that must be refused: each would end its literal early or cut the statement short.
std::vector<std::string> const kRefused = {
    "'",
    "'''",
    "it's",
    "a'''b",
    "''a'",
    "x'); DELETE FROM FdbFaultTbl; --",
    "x' WHERE 1=1 --",
    "x','y'),(null,'a',1,'','','',0,'','','','',0,0,'',0,'') --",
    "x', 'FaultCode'='9",
    "a backslash protects nothing: \\'",
    std::string("a\0b", 3),
    std::string(1, '\0'),
    std::string("it''s\0", 6),
};

/// Texts that are stored, each with the text that is read back.
std::vector<std::pair<std::string, std::string>> const kStored = {
    {"", ""},
    {"''", "'"},
    {"it''s", "it's"},
    {"''''", "''"},
    {"''a''''b''", "'a''b'"},
    {"x''); DELETE FROM FdbFaultTbl; --", "x'); DELETE FROM FdbFaultTbl; --"},
    {"; DROP TABLE FdbFaultTbl;", "; DROP TABLE FdbFaultTbl;"},
    {"-- /* comment */", "-- /* comment */"},
    {"line\nline\r\n\ttab", "line\nline\r\n\ttab"},
    {"\"double\" `back` [square] ?1 :a @b $c %_", "\"double\" `back` [square] ?1 :a @b $c %_"},
    {"null", "null"},
    {"a backslash protects nothing: \\''", "a backslash protects nothing: \\'"},
    {"\xff\xfe\x80 \xc3\x28 \xed\xa0\x80", "\xff\xfe\x80 \xc3\x28 \xed\xa0\x80"},
    {"\xe6\xb8\xa9\xe5\xba\xa6 \xf0\x9f\x94\xa5", "\xe6\xb8\xa9\xe5\xba\xa6 \xf0\x9f\x94\xa5"},
    {std::string(1 << 20, 'M'), std::string(1 << 20, 'M')},
};

/// The text members of a fault with the names of their columns.
std::vector<std::pair<std::string, std::string Fault::*>> const kFaultTexts = {
    {"DateTimeString", &Fault::DateTimeString},
    {"FaultCodeName", &Fault::FaultCodeName},
    {"ModuleName", &Fault::ModuleName},
    {"Parameter", &Fault::Parameter},
    {"TimeZone", &Fault::TimeZone},
    {"Description", &Fault::Description},
    {"DiagSignalsDumpFileName", &Fault::DiagSignalsDumpFileName},
    {"CfgBackupFile", &Fault::CfgBackupFile},
    {"SystemDateTimeString", &Fault::SystemDateTimeString},
};

std::vector<std::pair<std::string, std::string FaultStatistic::*>> const kStatisticTexts = {
    {"FaultCodeName", &FaultStatistic::FaultCodeName},
    {"TimeZoneFirstOccurred", &FaultStatistic::TimeZoneFirstOccurred},
    {"TimeZoneLastOccurred", &FaultStatistic::TimeZoneLastOccurred},
};

} // namespace

TEST_F(HostileText, TextThatWouldLeaveItsLiteralIsRefusedAndChangesNothing)
{
    auto const before = content();
    for (std::string const& text : kRefused)
    {
        Fault fault = makeFault(2);
        fault.EntryId = bystander.EntryId;
        fault.Description = text;
        EXPECT_EQ(db.insert(fault), -2) << text;
        EXPECT_EQ(console.take(), refusal("Description")) << text;
        EXPECT_EQ(db.update(fault), -2) << text;
        EXPECT_EQ(console.take(), refusal("Description")) << text;
        EXPECT_EQ(fault.EntryId, bystander.EntryId) << text;
    }
    EXPECT_EQ(content(), before);
}

TEST_F(HostileText, EveryTextColumnOfAFaultIsChecked)
{
    auto const before = content();
    for (auto const& [column, member] : kFaultTexts)
    {
        Fault fault = makeFault(2);
        fault.*member = "it's";
        EXPECT_EQ(db.insert(fault), -2) << column;
        EXPECT_EQ(console.take(), refusal(column));
    }
    EXPECT_EQ(content(), before);
}

TEST_F(HostileText, EveryTextColumnOfAStatisticIsChecked)
{
    auto const before = content();
    for (auto const& [column, member] : kStatisticTexts)
    {
        FaultStatistic statistic = makeStatistic(1);
        statistic.*member = "it's";
        EXPECT_EQ(db.insert(statistic), -2) << column;
        EXPECT_EQ(console.take(), refusal(column));
        EXPECT_EQ(db.update(statistic), -2) << column;
        EXPECT_EQ(console.take(), refusal(column));
    }
    EXPECT_EQ(content(), before);
}

TEST_F(HostileText, EveryTextColumnOfAVersionIsChecked)
{
    auto const before = content();
    FdbVersion version;
    version.Component = "it's";
    EXPECT_EQ(db.insert(version), -2);
    EXPECT_EQ(console.take(), refusal("Component"));
    version.Component = "fine";
    version.Version = "it's";
    EXPECT_EQ(db.insert(version), -2);
    EXPECT_EQ(console.take(), refusal("Version"));
    EXPECT_EQ(content(), before);
}

TEST_F(HostileText, QuotesInTwoColumnsDoNotMakeAPair)
{
    auto const before = content();
    Fault fault = makeFault(2);
    fault.Parameter = "a'";
    fault.Description = "'b";
    EXPECT_EQ(db.insert(fault), -2);
    EXPECT_EQ(content(), before);
}

TEST_F(HostileText, DebugLinesComeBeforeTheRefusal)
{
    Fault fault;
    fault.Description = "it's";
    db.setDbgLevel(2);
    EXPECT_EQ(db.insert(fault), -2);
    std::vector<std::string> const lines = console.takeLines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines[0], testing::StartsWith("[DEBUG] FDB::insert() Insert:[FAULT]: "));
    EXPECT_THAT(lines[1], testing::HasSubstr("'ErrorInactive','it's','',"));
    EXPECT_EQ(lines[2] + "\n", refusal("Description"));
}

TEST_F(HostileText, OtherTextsAreStoredAndReadBackWhole)
{
    for (auto const& [given, expected] : kStored)
    {
        Fault fault = makeFault(2);
        fault.Description = given;
        ASSERT_EQ(db.insert(fault), 0) << given.substr(0, 60);
        Fault read;
        ASSERT_EQ(db.getFaultById(read, fault.EntryId), 0);
        EXPECT_EQ(read.Description, expected) << given.substr(0, 60);
        read.Description = fault.Description;
        EXPECT_EQ(members(read), members(fault)) << given.substr(0, 60);
    }
}

TEST_F(HostileText, OtherTextsAreUpdatedWholeAndReachNoOtherRow)
{
    Fault fault = makeFault(2);
    ASSERT_EQ(db.insert(fault), 0);
    for (auto const& [given, expected] : kStored)
    {
        fault.Parameter = given;
        ASSERT_EQ(db.update(fault), 0) << given.substr(0, 60);
        Fault read;
        ASSERT_EQ(db.getFaultById(read, fault.EntryId), 0);
        EXPECT_EQ(read.Parameter, expected) << given.substr(0, 60);
        Fault untouched;
        ASSERT_EQ(db.getFaultById(untouched, bystander.EntryId), 0);
        EXPECT_EQ(members(untouched), members(bystander)) << given.substr(0, 60);
    }
}

TEST_F(HostileText, TextLongerThanSqliteTakesIsRefusedByIt)
{
    sqlite3_limit(sqlite->findOpen(db.m_dbHandle)->db, SQLITE_LIMIT_LENGTH, 100000);
    auto const before = content();
    Fault fault = makeFault(2);
    fault.Description = std::string(100001, 'x');
    EXPECT_EQ(db.insert(fault), -2);
    EXPECT_EQ(console.take(), "[ERROR] SQL3::execute() Sql Execute failed: string or blob too big Err=18\n");
    EXPECT_EQ(content(), before);
}
