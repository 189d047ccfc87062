#include "RescueJudge.h"

#include <algorithm>
#include <limits>

namespace
{

constexpr int kComplete = 0;
constexpr int kPartial = 1;
constexpr int kNothing = 3;
constexpr std::size_t kSmallestPage = 512;

std::string quoted(std::string const& text)
{
    std::string result = "'";
    for (char const c : text)
    {
        result += c == '\'' ? "''" : std::string(1, c);
    }
    return result + "'";
}

bool hasTable(RawDb& raw, std::string const& name)
{
    return raw.value("SELECT count(*) FROM sqlite_master WHERE type='table' AND name=" + quoted(name)) != "0";
}

} // namespace

void RescueOutcome::read(std::string const& path, std::string const& json)
{
    static RawDb parser(":memory:");
    if (parser.value("SELECT json_valid(" + quoted(json) + ")") == "1")
    {
        auto const member = [&](char const* name)
        { return parser.value("SELECT json_extract(" + quoted(json) + ", '$." + name + "')"); };
        auto const number = [&](char const* name) { return std::atoll(member(name).c_str()); };
        result = member("result");
        reportedFaults = number("recovered");
        reportedDoubtful = number("doubtful");
        for (RawDb::Row const& row :
             parser.rows("SELECT json_extract(value, '$.first'), json_extract(value, '$.last') FROM json_each(" +
                         quoted(json) + ", '$.missing')"))
        {
            long long const open = std::numeric_limits<long long>::max(); // Nothing tells where the range ends.
            missing.emplace_back(std::atoll(row[0].value_or("").c_str()), row[1] ? std::atoll(row[1]->c_str()) : open);
        }
    }
    isThere = exists(path);
    if (!isThere)
    {
        return;
    }
    RawDb raw(path);
    integrity = raw.value("PRAGMA integrity_check");
    faults = storedRows(raw.handle(), "FdbFaultTbl");
    statistics = storedRows(raw.handle(), "FdbFaultStatisticTbl");
    for (RawDb::Row const& row : raw.rows("SELECT seq FROM sqlite_sequence WHERE name='FdbFaultTbl'"))
    {
        lastKey = std::atoll(row[0].value_or("").c_str());
    }
    if (hasTable(raw, "RescuedDoubtfulTbl"))
    {
        for (RawDb::Row const& row : raw.rows("SELECT EntryId FROM RescuedDoubtfulTbl"))
        {
            doubtful.insert(std::atoll(row[0].value_or("").c_str()));
            ++doubtfulRows;
        }
    }
}

bool RescueOutcome::isMissing(long long key) const
{
    return std::any_of(missing.begin(), missing.end(),
                       [key](KeyRange const& range) { return range.first <= key && key <= range.second; });
}

RescueJudge::RescueJudge(DamagedFile const& file, RescueOutcome const& rescued)
    : m_file(file), m_sound(*file.sound), m_rescued(rescued),
      m_mayDoubt(file.isAmbiguous || file.sound == &SoundFile::longTexts())
{
}

std::string RescueJudge::problems()
{
    judgeReport();
    judgeResult();
    judgeFaults();
    judgeRanges();
    judgeStatistics();
    std::string text;
    for (auto const& [problem, keys] : m_problems)
    {
        text += "  " + problem;
        if (keys.front() != 0)
        {
            text += ": " + std::to_string(keys.size()) + " keys, the first " + std::to_string(keys.front());
        }
        text += "\n";
    }
    return text;
}

void RescueJudge::complain(std::string const& text, long long key)
{
    m_problems[text].push_back(key);
}

bool RescueJudge::isLost(std::set<PageNumber> const& pages) const
{
    return std::any_of(pages.begin(), pages.end(),
                       [this](PageNumber page) { return m_file.lostPages.count(page) != 0; });
}

/// Whether the file still tells which keys were used last.
bool RescueJudge::canNameLastKeys() const
{
    return !isLost({1, m_sound.rootOf("sqlite_sequence")}) && !m_file.isAmbiguous;
}

/// Report, exit status and content agree.
void RescueJudge::judgeReport()
{
    if (m_rescued.status == kNothing && m_rescued.result.empty() && m_file.make().database.size() < kSmallestPage)
    {
        return; // A file without a page is no database: there is nothing to report about.
    }
    std::map<int, std::string> const results = {{kComplete, "complete"}, {kPartial, "partial"}, {kNothing, "nothing"}};
    auto const result = results.find(m_rescued.status);
    if (result == results.end())
    {
        complain("exit status " + std::to_string(m_rescued.status));
        return;
    }
    if (m_rescued.result != result->second)
    {
        complain("reports '" + m_rescued.result + "' with exit status " + std::to_string(m_rescued.status));
    }
    if (m_rescued.reportedFaults != static_cast<long long>(m_rescued.faults.size()))
    {
        complain("reports " + std::to_string(m_rescued.reportedFaults) + " rows, and the new file has " +
                 std::to_string(m_rescued.faults.size()));
    }
    if (m_rescued.reportedDoubtful != m_rescued.doubtfulRows)
    {
        complain("reports " + std::to_string(m_rescued.reportedDoubtful) + " doubtful rows, and the new file has " +
                 std::to_string(m_rescued.doubtfulRows));
    }
    if (m_rescued.isThere && m_rescued.integrity != "ok")
    {
        complain("the new file is damaged: " + m_rescued.integrity);
    }
    if (m_rescued.isThere == (m_rescued.status == kNothing))
    {
        complain("a new file means that something was rescued");
    }
}

void RescueJudge::judgeResult()
{
    bool const isSomething = !m_rescued.faults.empty() || m_rescued.doubtfulRows != 0;
    bool const isDamaged = isLost(m_sound.pagesOfTables());
    if (m_rescued.status == kNothing && isSomething)
    {
        complain("calls some rows nothing");
    }
    if (m_rescued.status == kComplete && isDamaged && !m_file.mayBeComplete)
    {
        complain("calls a file complete that lacks a page of a table");
    }
    if (m_rescued.status != kComplete && !isDamaged && !m_file.isAmbiguous)
    {
        complain("does not call a file complete that lacks nothing");
    }
    if (m_rescued.status == kComplete && (!m_rescued.missing.empty() || m_rescued.doubtfulRows != 0))
    {
        complain("calls a file complete and names missing or doubtful rows");
    }
}

void RescueJudge::judgeFaults()
{
    for (auto const& [key, cells] : m_rescued.faults)
    {
        auto const sound = m_sound.faults.find(key);
        if ((sound == m_sound.faults.end() || sound->second != cells) && !m_file.hasForeignRows)
        {
            complain("a row among the faults is wrong", key);
        }
    }
    for (auto const& [key, pages] : m_sound.faultPages.rows)
    {
        if (isLost(pages))
        {
            ++m_lostRows;
            judgeLostRow(key);
        }
        else if (!m_file.hasForeignRows && m_rescued.faults.count(key) == 0 &&
                 (!m_mayDoubt || m_rescued.doubtful.count(key) == 0))
        {
            complain(m_mayDoubt ? "a row of sound pages is neither recovered nor doubtful"
                                : "a row of sound pages is not recovered",
                     key);
        }
    }
}

void RescueJudge::judgeLostRow(long long key)
{
    bool const isKept = m_rescued.faults.count(key) + m_rescued.doubtful.count(key) != 0;
    long long const last = m_rescued.faults.empty() ? 0 : m_rescued.faults.rbegin()->first;
    if (!isKept && !m_rescued.isMissing(key) && (key <= last || canNameLastKeys()))
    {
        complain("a lost row is not among the missing keys", key);
    }
}

void RescueJudge::judgeRanges()
{
    long long last = 0;
    for (auto const& [first, end] : m_rescued.missing)
    {
        if (first <= last || end < first)
        {
            complain("the missing ranges are not in order: " + std::to_string(first) + "-" + std::to_string(end));
        }
        last = end;
        auto const inside = m_rescued.faults.lower_bound(first);
        if (inside != m_rescued.faults.end() && inside->first <= end)
        {
            complain("a recovered key is called missing", inside->first);
        }
    }
    long long const used = m_rescued.faults.empty() ? 0 : m_rescued.faults.rbegin()->first;
    if (m_rescued.lastKey < used || (canNameLastKeys() && m_rescued.isThere && m_rescued.lastKey < m_sound.lastKey))
    {
        complain("the new file would give a key again", m_rescued.lastKey);
    }
}

void RescueJudge::judgeStatistics()
{
    if (!m_rescued.isThere || m_file.isAmbiguous || m_file.hasForeignRows)
    {
        return;
    }
    if (isLost(m_sound.statisticPages.all()))
    {
        judgeRebuiltStatistics();
    }
    else if (m_rescued.statistics != m_sound.statistics)
    {
        complain("the statistics are not those of the sound page");
    }
}

/// A code has a statistic when it has a fault; its cells differ by how much was lost.
void RescueJudge::judgeRebuiltStatistics()
{
    if (m_rescued.faults.empty() == m_rescued.statistics.empty())
    {
        return;
    }
    complain("there are " + std::to_string(m_rescued.statistics.size()) + " statistics beside " +
             std::to_string(m_rescued.faults.size()) + " faults");
}
