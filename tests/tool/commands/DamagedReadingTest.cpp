// firaim list, export, summary, stats and show on a damaged file: they show what can be read.

#include "DamagedFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <regex>

namespace
{

using testing::HasSubstr;

class DamagedReadingTest : public DamagedFile
{
protected:
    /// The keys of the rows that `export` writes, in its order. Expects that it reports damage.
    std::vector<long long> exportedKeys(std::vector<std::string> const& options = {})
    {
        std::vector<std::string> arguments = {"export", path, "--format", "csv"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        m_outcome = runTool(arguments);
        EXPECT_EQ(m_outcome.status, 1);
        std::vector<long long> keys;
        std::istringstream lines(m_outcome.output);
        std::string line;
        std::getline(lines, line); // The headings.
        while (std::getline(lines, line))
        {
            keys.push_back(std::stoll(line));
        }
        return keys;
    }
    std::string const& errors() const { return m_outcome.errors; }

    /// All keys but those from `first` to `last`.
    static std::vector<long long> keysWithout(long long first, long long last)
    {
        std::vector<long long> keys;
        for (long long key = 1; key <= kFaults; ++key)
        {
            if (key < first || key > last)
            {
                keys.push_back(key);
            }
        }
        return keys;
    }
    /// The range of keys that the message names.
    std::pair<long long, long long> missingRange() const
    {
        std::smatch match;
        EXPECT_TRUE(std::regex_search(errors(), match, std::regex("faults ([0-9]+) to ([0-9]+) cannot be read")))
            << errors();
        return match.empty() ? std::pair(0LL, 0LL) : std::pair(std::stoll(match[1]), std::stoll(match[2]));
    }

    /// A page with faults, neither the first nor the last of them.
    static constexpr std::size_t kLeaf = 10;

private:
    Outcome m_outcome = {};
};

} // namespace

TEST_F(DamagedReadingTest, ExportGoesOnBehindADamagedPage)
{
    damagePage(kLeaf);
    std::string const before = readFile(path);
    std::vector<long long> const keys = exportedKeys();
    auto const [first, last] = missingRange();
    EXPECT_EQ(keys, keysWithout(first, last));
    EXPECT_LT(last - first, 60);
    EXPECT_THAT(errors(), HasSubstr(": page 10 is damaged; 'firaim rescue FILE NEW' recovers what other pages hold\n"));
    EXPECT_EQ(readFile(path), before);
}

TEST_F(DamagedReadingTest, RowsBetweenTwoDamagedPagesAreExported)
{
    damagePage(kLeaf);
    damagePage(kLeaf + 2);
    std::vector<long long> const keys = exportedKeys();
    EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
    EXPECT_THAT(errors(), HasSubstr("page 10 is damaged"));
    EXPECT_THAT(errors(), HasSubstr("page 12 is damaged"));
    auto const first = missingRange().first;
    EXPECT_TRUE(std::binary_search(keys.begin(), keys.end(), first + 50)) << "on page 11";
}

TEST_F(DamagedReadingTest, EachDamagedPageCostsTheRowsOnItOnly)
{
    for (std::size_t number = 2; number <= pageCount(); ++number)
    {
        SCOPED_TRACE(number);
        overwritePage(number, std::string(kPageSize, '\0'));
        Outcome const outcome = runTool({"list", path, "--json"});
        auto const rows = std::count(outcome.output.begin(), outcome.output.end(), '\n') - 1;
        bool const isRoot = number == rootOf("FdbFaultTbl");
        EXPECT_GE(rows, isRoot ? 0 : kFaults - 60);
        bool const isNeeded = number != rootOf("sqlite_sequence") && number != rootOf("FdbFaultStatisticTbl");
        EXPECT_EQ(outcome.status, isNeeded ? 1 : 0);
        overwritePage(number, page(number));
    }
}

TEST_F(DamagedReadingTest, APageOfAnotherPlaceIsLeftOut)
{
    overwritePage(kLeaf, page(kLeaf + 5));
    std::vector<long long> const keys = exportedKeys();
    auto const [first, last] = missingRange();
    EXPECT_EQ(keys, keysWithout(first, last));
}

TEST_F(DamagedReadingTest, ListKeepsItsOrderItsLimitAndItsFilters)
{
    damagePage(kLeaf);
    Outcome const outcome = runTool({"list", path, "--json", "--last", "500", "--grep", "length"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n') - 2, 500);
    EXPECT_LT(outcome.output.find("\"EntryId\":600,"), outcome.output.find("\"EntryId\":90,"));
    EXPECT_EQ(outcome.output.substr(outcome.output.size() - 2), "]\n");
}

TEST_F(DamagedReadingTest, AFileThatIsCutOffIsReadAsFarAsItGoes)
{
    cutOff(kLeaf * kPageSize + 100);
    std::vector<long long> const keys = exportedKeys();
    EXPECT_GT(keys.size(), 20u);
    EXPECT_EQ(keys, keysWithout(static_cast<long long>(keys.size()) + 1, kFaults));
    EXPECT_THAT(errors(), HasSubstr(": only 10 of its "));
    EXPECT_THAT(errors(), HasSubstr(" to 600 cannot be read"));
}

TEST_F(DamagedReadingTest, ACutWithinTheLastPageLeavesNoZeros)
{
    cutOff(pageCount() * kPageSize - 3000);
    std::vector<long long> const keys = exportedKeys();
    EXPECT_GT(keys.size(), 500u);
    EXPECT_EQ(keys, keysWithout(static_cast<long long>(keys.size()) + 1, kFaults));
}

TEST_F(DamagedReadingTest, ExportedSqlMakesAFileWithTheReadableRows)
{
    damagePage(kLeaf);
    Outcome const outcome = runTool({"export", path, "--format", "sql"});
    std::string const copy = dir.file("copy.db");
    RawDb(copy).exec(outcome.output);
    EXPECT_GT(std::stoi(RawDb(copy).value("SELECT count(*) FROM FdbFaultTbl")), 540);
    EXPECT_EQ(RawDb(copy).value("SELECT seq FROM sqlite_sequence WHERE name = 'FdbFaultTbl'"), "600");
    EXPECT_EQ(RawDb(copy).value("SELECT Version FROM FdbVersionTbl"), "1.0.0");
}

TEST_F(DamagedReadingTest, SummaryAndStatsTellWhatIsMissing)
{
    damagePage(kLeaf);
    Outcome const summary = runTool({"summary", path});
    EXPECT_EQ(summary.status, 1);
    EXPECT_THAT(summary.output, HasSubstr("recorded as active, 7 start-ups\n"));
    EXPECT_THAT(summary.errors, HasSubstr("page 10 is damaged"));
    damagePage(rootOf("FdbFaultStatisticTbl"));
    Outcome const stats = runTool({"stats", path, "--json"});
    EXPECT_EQ(stats.status, 1);
    EXPECT_EQ(stats.output, "[]\n");
    EXPECT_THAT(stats.errors, HasSubstr("statistics up to 1 cannot be read: page 4 is damaged;"));
}

TEST_F(DamagedReadingTest, ShowFindsAFaultBehindTheDamage)
{
    damagePage(kLeaf);
    EXPECT_THAT(runTool({"show", path, "590"}).output, HasSubstr("some text of some length 590\n"));
    std::vector<long long> const keys = exportedKeys();
    Outcome const lost = runTool({"show", path, std::to_string(missingRange().first)});
    EXPECT_EQ(lost.status, 1);
    EXPECT_THAT(lost.errors, HasSubstr("page 10 is damaged"));
}

TEST_F(DamagedReadingTest, ALostFirstPageNamesTheRescue)
{
    damagePage(1);
    Outcome const outcome = runTool({"list", path});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("its first page is damaged"));
    EXPECT_THAT(outcome.errors, HasSubstr("'firaim rescue FILE NEW'"));
}

TEST_F(DamagedReadingTest, TheTemporaryFileIsRemoved)
{
    damagePage(kLeaf);
    std::string const folder = dir.file("temporary");
    std::filesystem::create_directory(folder);
    Setting setting;
    setting.environment["TMPDIR"] = folder;
    EXPECT_EQ(runTool({"list", path}, setting).status, 1);
    EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(DamagedReadingTest, WithoutRoomForTheReadableRowsTheFolderIsNamed)
{
    damagePage(kLeaf);
    Setting setting;
    setting.environment["TMPDIR"] = dir.file("nowhere");
    Outcome const outcome = runTool({"list", path}, setting);
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.errors, HasSubstr("there is no room for the rows that can be read"));
    EXPECT_THAT(outcome.errors, HasSubstr("set TMPDIR"));
}
