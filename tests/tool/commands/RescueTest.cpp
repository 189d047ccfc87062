// firaim rescue: what it saves and what it reports.

#include "commands/RescueSupport.h"

#include <gmock/gmock.h>

namespace
{

using testing::HasSubstr;
using testing::StartsWith;

class RescueTest : public RescueFixture
{
};

} // namespace

TEST_F(RescueTest, ASoundFileIsSavedCompletely)
{
    fill(500);
    Json const report = rescue(0);
    EXPECT_EQ(report["result"], "complete");
    EXPECT_EQ(report["recovered"], 503);
    EXPECT_EQ(report["doubtful"], 0);
    EXPECT_EQ(report["missing"], Json::array());
    EXPECT_EQ(report["pages"]["has"], report["pages"]["should"]);
    EXPECT_EQ(report["statistics"]["kept"], 2);
    EXPECT_EQ(faults(rescued), faults(path));
    EXPECT_EQ(RawDb(rescued).rows("SELECT * FROM FdbFaultStatisticTbl"),
              RawDb(path).rows("SELECT * FROM FdbFaultStatisticTbl"));
    EXPECT_EQ(RawDb(rescued).rows("SELECT * FROM sqlite_sequence ORDER BY name"),
              RawDb(path).rows("SELECT * FROM sqlite_sequence ORDER BY name"));
    EXPECT_EQ(output({"check", rescued}), rescued + ": nothing is wrong\n");
}

TEST_F(RescueTest, TheReportIsTextForAPerson)
{
    Outcome const outcome = runTool({"rescue", path, rescued});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.output, StartsWith("copy: copied the file"));
    EXPECT_THAT(outcome.output, HasSubstr("\nopen: SQLite opens the copy\ntables: "));
    EXPECT_THAT(outcome.output, HasSubstr("\nrows: 3 faults recovered, 0 doubtful\n"));
    EXPECT_THAT(outcome.output, HasSubstr("\n" + rescued + ": complete, 3 faults recovered\n"));
}

TEST_F(RescueTest, ABadLeafCostsOnlyItsOwnRows)
{
    fill(500);
    std::vector<RawDb::Row> const before = faults(path);
    overwrite(leaf(3), std::string(kPage, '\x5a'));
    Json const report = rescue(1);
    EXPECT_EQ(report["result"], "partial");
    ASSERT_EQ(report["missing"].size(), 1u);
    EXPECT_TRUE(report["missingIsExact"]);
    auto const first = report["missing"][0]["first"].get<std::size_t>();
    auto const last = report["missing"][0]["last"].get<std::size_t>();
    std::vector<RawDb::Row> expected = before;
    expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(first - 1),
                   expected.begin() + static_cast<std::ptrdiff_t>(last));
    EXPECT_EQ(faults(rescued), expected);
    EXPECT_EQ(report["recovered"], expected.size());
    EXPECT_EQ(output({"check", rescued}), rescued + ": nothing is wrong\n");
}

TEST_F(RescueTest, ACopyOfAnotherLeafAddsNoRow)
{
    fill(500);
    overwrite(leaf(3), readFile(path).substr((leaf(2) - 1) * kPage, kPage));
    Json const report = rescue(1);
    EXPECT_EQ(report["doubtful"], 0) << "its rows are there already";
    EXPECT_EQ(report["pages"]["bad"][0]["reason"], "has keys of another page");
}

TEST_F(RescueTest, ALostRootCostsNoRow)
{
    fill(500);
    std::vector<RawDb::Row> const before = faults(path);
    overwrite(2, std::string(kPage, '\0'));
    EXPECT_EQ(rescue(1)["recovered"], before.size());
    EXPECT_EQ(faults(rescued), before);
}

TEST_F(RescueTest, ARootThatIsOverwrittenByALeafCostsNoRow)
{
    fill(500);
    std::vector<RawDb::Row> const before = faults(path);
    overwrite(2, readFile(path).substr((leaf(4) - 1) * kPage, kPage));
    rescue(1);
    EXPECT_EQ(faults(rescued), before);
}

TEST_F(RescueTest, ALostPage1CostsNoRow)
{
    fill(500);
    std::vector<RawDb::Row> const before = faults(path);
    overwrite(1, std::string(kPage, 'x'));
    Json const report = rescue(1);
    EXPECT_EQ(faults(rescued), before);
    EXPECT_EQ(report["statistics"]["kept"], 2);
    EXPECT_EQ(report["missing"], Json::array());
}

TEST_F(RescueTest, ASchemaThatNamesTheWrongRootsCostsNoRow)
{
    fill(500);
    std::vector<RawDb::Row> const before = faults(path);
    RawDb(path).exec(
        "PRAGMA writable_schema=ON; UPDATE sqlite_master SET rootpage = CASE name WHEN 'FdbFaultTbl' THEN 4 WHEN "
        "'FdbFaultStatisticTbl' THEN 2 ELSE rootpage END");
    rescue(1);
    EXPECT_EQ(faults(rescued), before);
    EXPECT_EQ(value("SELECT count(*) FROM sqlite_master"), "4");
}

TEST_F(RescueTest, ASchemaThatDiffersIsNamedAndCostsNoRow)
{
    std::vector<RawDb::Row> const before = faults(path);
    RawDb(path).exec("PRAGMA writable_schema=ON; UPDATE sqlite_master SET sql=replace(sql, ')', ', \"Extra\" TEXT)') "
                     "WHERE name='FdbFaultTbl'");
    Outcome const outcome = runTool({"rescue", path, rescued});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.output, HasSubstr("\nschema: FdbFaultTbl has a column 'Extra'"));
    EXPECT_EQ(faults(rescued), before);
}

TEST_F(RescueTest, ACutFileKeepsTheRowsOfThePagesThatAreLeft)
{
    fill(500);
    std::filesystem::resize_file(path, 6 * kPage);
    Json const report = rescue(1);
    EXPECT_EQ(report["pages"]["has"], 6);
    EXPECT_GT(report["pages"]["should"], 6);
    EXPECT_GT(report["recovered"], 0);
    EXPECT_EQ(report["missing"].back()["last"], 503);
}

TEST_F(RescueTest, TheMissingEndIsUnknownWithoutTheLastKey)
{
    fill(500);
    overwrite(3, std::string(kPage, 'x')); // sqlite_sequence
    std::string bytes = readFile(path);
    // The page that the root names last.
    overwrite(static_cast<unsigned char>(bytes[kPage + 11]), std::string(kPage, 'x'));
    Json const report = rescue(1);
    EXPECT_EQ(report["missing"].back()["last"], nullptr);
    EXPECT_FALSE(report["missingIsExact"]);
}

TEST_F(RescueTest, GapsBetweenSoundPagesAreNotMissing)
{
    fill(500);
    RawDb(path).exec("DELETE FROM FdbFaultTbl WHERE EntryId BETWEEN 100 AND 300");
    Json const report = rescue(0);
    EXPECT_EQ(report["missing"], Json::array());
    EXPECT_EQ(faults(rescued), faults(path));
}

TEST_F(RescueTest, RowsThatNoFaultCanHaveAreDoubtful)
{
    insertFault("FaultCode", "'x'");
    insertFault("FaultCode", "4294967296");
    insertFault("Status", "'perhaps'");
    insertFault("Description", "NULL");
    insertFault("Description", "CAST('a' || char(0) || 'b' AS TEXT)");
    insertFault("Description", "x'00ff'");
    insertFault("LoggerUpTime", "-1");
    insertFault("TimeStampUTC", "1.5");
    Json const report = rescue(1);
    EXPECT_EQ(report["recovered"], 3);
    EXPECT_EQ(report["doubtful"], 8);
    RawDb db(rescued);
    EXPECT_EQ(db.value("SELECT count(*) FROM RescuedDoubtfulTbl WHERE EntryId > 3 AND PageNumber = 2"), "8");
    EXPECT_EQ(db.value("SELECT hex(Description) FROM RescuedDoubtfulTbl WHERE EntryId = 9"), "00FF");
    EXPECT_EQ(db.value("SELECT Reason FROM RescuedDoubtfulTbl WHERE EntryId = 6"),
              "Status has no value that a row can have");
    EXPECT_THAT(output({"check", rescued}), StartsWith("doubtful: RescuedDoubtfulTbl has 8 rows of a damaged file"));
}

TEST_F(RescueTest, LongRowsAreWhole)
{
    insertInactive("hex(zeroblob(20000))");
    insertInactive("hex(zeroblob(3000)) || 'end'");
    EXPECT_EQ(rescue(0)["recovered"], 5);
    EXPECT_EQ(faults(rescued), faults(path));
}

TEST_F(RescueTest, ARowWithALostOverflowPageIsDoubtfulWithTheTextThatIsLeft)
{
    insertFault("Description", "hex(zeroblob(20000))");
    std::size_t const pages = readFile(path).size() / kPage;
    overwrite(pages - 3, std::string(kPage, '\x7f'));
    Json const report = rescue(1);
    EXPECT_EQ(report["recovered"], 3);
    EXPECT_EQ(report["doubtful"], 1);
    EXPECT_THAT(RawDb(rescued).value("SELECT Description FROM RescuedDoubtfulTbl"), StartsWith("0000"));
}

TEST_F(RescueTest, RowsWithTheSameLastOverflowPageAreDoubtful)
{
    insertInactive("'1' || hex(zeroblob(3000)) || 'end of the first'");
    insertInactive("'2' || hex(zeroblob(3000)) || 'end of the other'");
    std::string const bytes = readFile(path);
    std::size_t const first = bytes.find("end of the first") / kPage;
    std::size_t const other = bytes.find("end of the other") / kPage;
    ASSERT_NE(first, other);
    overwrite(other + 1, bytes.substr(first * kPage, kPage));
    Json const report = rescue(1);
    EXPECT_EQ(report["recovered"], 3);
    EXPECT_EQ(report["doubtful"], 2);
}

TEST_F(RescueTest, FreePagesAreReadOnRequestOnly)
{
    fill(500);
    RawDb(path).exec("PRAGMA secure_delete=OFF; DELETE FROM FdbFaultTbl WHERE EntryId BETWEEN 100 AND 400");
    EXPECT_EQ(rescue(0)["doubtful"], 0);
    ASSERT_EQ(unlink(rescued.c_str()), 0);
    Json const report = rescue(1, {"--free-pages"});
    EXPECT_EQ(report["recovered"], 202);
    EXPECT_GT(report["doubtful"], 100);
}

TEST_F(RescueTest, AMissingStatisticIsMadeFromTheFaults)
{
    output({"record", path, "--code", "77", "--module", "a", "--time", "2031-01-01"});
    output({"record", path, "--code", "77", "--module", "b", "--time", "2031-01-02"});
    output({"record", path, "--code", "77", "--module", "a", "--time", "2031-01-03", "--inactive"});
    std::string const query = "SELECT FaultCodeName, TimeFirstOccurredUTC, TimeLastOccurredUTC, TimeZoneFirstOccurred, "
                              "TimeZoneLastOccurred, OccurenceCnt, FaultActive, FaultActiveCycleCnt, FaultEntryId, "
                              "RdbStartupId FROM FdbFaultStatisticTbl WHERE FaultCode = 77";
    std::vector<RawDb::Row> const recorded = RawDb(path).rows(query);
    RawDb(path).exec("DELETE FROM FdbFaultStatisticTbl WHERE FaultCode = 77");
    Json const report = rescue(1);
    EXPECT_EQ(report["statistics"]["rebuilt"], 1);
    EXPECT_EQ(RawDb(rescued).rows(query), recorded);
}

TEST_F(RescueTest, NamesStatisticsThatDoNotAgreeWithTheFaults)
{
    RawDb(path).exec(
        "UPDATE FdbFaultStatisticTbl SET OccurenceCnt = 0, FaultActive = 'active', FaultEntryId = 99 WHERE "
        "EntryId = 1");
    Json const report = rescue(1);
    EXPECT_EQ(report["statistics"]["kept"], 2);
    ASSERT_EQ(report["statistics"]["differences"].size(), 2u) << report;
    EXPECT_THAT(report["statistics"]["differences"][0].get<std::string>(), HasSubstr("counted 0"));
    EXPECT_THAT(report["statistics"]["differences"][1].get<std::string>(), HasSubstr("refers to fault 99"));
}

TEST_F(RescueTest, LargerCountsAndRemovedFaultsAreNoDifference)
{
    RawDb(path).exec("UPDATE FdbFaultStatisticTbl SET OccurenceCnt = 500, FaultActive = 'inactive', FaultEntryId = 2; "
                     "DELETE FROM FdbFaultTbl WHERE EntryId = 2");
    EXPECT_EQ(rescue(0)["result"], "complete");
}

TEST_F(RescueTest, KeysAreNotUsedAgain)
{
    RawDb(path).exec("DELETE FROM FdbFaultTbl WHERE EntryId = 3; UPDATE FdbFaultStatisticTbl SET FaultActive = "
                     "'inactive'");
    rescue(0);
    EXPECT_EQ(output({"record", rescued, "--code", "FC_BUS_OFF"}), "4\n");
}
