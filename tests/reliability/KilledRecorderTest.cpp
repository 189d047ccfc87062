// Two processes with several threads each record into one file and are killed at random times. The file holds every
// acknowledged row once, with its statistic, and no partial row.

#include "ChildProcess.h"
#include "TestSupport.h"

#include <history/HistoryResult.h>

#include <csignal>
#include <cstdio>
#include <map>
#include <random>
#include <sstream>

#include <sys/wait.h>

namespace
{

constexpr unsigned int kSeed = 20260301;
constexpr unsigned int kRounds = 20;
constexpr unsigned int kMaxAcknowledgements = 400; ///< of a process before it is killed
constexpr unsigned int kMaxBacklog = 10000;        ///< more lines than a pipe holds
constexpr unsigned int kMaxSilenceUs = 200;        ///< the duration of a short commit
constexpr char kSharedCode[] = "3";                ///< its only triple is only raised and cleared

enum class Journal
{
    ROLLBACK,
    LOG ///< a write-ahead log
};

class KilledRecorders : public testing::TestWithParam<Journal>
{
protected:
    KilledRecorders()
    {
        if (isLog())
        {
            EXPECT_EQ(RawDb(path).value("PRAGMA journal_mode=WAL"), "wal");
        }
    }

    static bool isLog() { return GetParam() == Journal::LOG; }

    /// Starts both processes, and kills one while the other one continues.
    void round(unsigned int number)
    {
        ChildProcess first({FIRAIM_TEST_ENDLESS_RECORDER, path, std::to_string(number) + "/first"});
        ChildProcess second({FIRAIM_TEST_ENDLESS_RECORDER, path, std::to_string(number) + "/second"});
        ASSERT_NO_FATAL_FAILURE(read(first, below(kMaxAcknowledgements)));
        ASSERT_NO_FATAL_FAILURE(read(second, below(kMaxAcknowledgements)));
        ASSERT_NO_FATAL_FAILURE(kill(first));
        ASSERT_NO_FATAL_FAILURE(read(second, below(kMaxAcknowledgements)));
        ASSERT_NO_FATAL_FAILURE(kill(second));
        std::string const journal = path + (isLog() ? "-wal" : "-journal");
        std::string const magic = isLog() ? "\x37\x7f" : "\xd9\xd5";
        journals += exists(journal) && readFile(journal).substr(0, 2) == magic ? 1 : 0;
        expectFileHoldsAll();
    }

    std::size_t acknowledged() const { return m_rows.size(); }

    unsigned int journals = 0;      ///< rounds that left a hot journal or a log
    std::size_t unacknowledged = 0; ///< stored rows of calls that had not returned

private:
    struct Row
    {
        std::string status;
        std::string description;
    };

    unsigned int below(unsigned int limit) { return static_cast<unsigned int>(m_random()) % limit; }

    void take(std::string const& line)
    {
        std::istringstream words(line);
        int result = firaim::HISTORY_FAILED;
        unsigned long long key = 0;
        Row row;
        ASSERT_TRUE(words >> result >> key >> row.status >> row.description) << line;
        if (result == firaim::HISTORY_UNCHANGED)
        {
            return;
        }
        ASSERT_EQ(result, firaim::HISTORY_OK) << line;
        ASSERT_TRUE(m_rows.emplace(key, row).second) << "duplicate key: " << line;
    }

    void read(ChildProcess& recorder, unsigned int count)
    {
        for (; count > 0; --count)
        {
            auto const line = recorder.readLine();
            ASSERT_TRUE(line) << "the recorder has ended";
            ASSERT_NO_FATAL_FAILURE(take(*line));
        }
    }

    /// Kills the process during a call, not while it waits for room in the pipe.
    void kill(ChildProcess& recorder)
    {
        long long const silenceUs = below(kMaxSilenceUs);
        for (unsigned int left = kMaxBacklog; left > 0; --left)
        {
            auto const line = recorder.readLine(silenceUs);
            if (!line)
            {
                break;
            }
            ASSERT_NO_FATAL_FAILURE(take(*line));
        }
        recorder.kill();
        int const status = recorder.wait();
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
        for (auto line = recorder.readLine(); line; line = recorder.readLine())
        {
            ASSERT_NO_FATAL_FAILURE(take(*line));
        }
    }

    void expectFileHoldsAll()
    {
        RawDb raw(path);
        EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
        if (m_rows.empty() && raw.value("SELECT count(*) FROM sqlite_master") == "0")
        {
            return; // Both were killed before there was a database.
        }
        std::map<unsigned long long, Row> found;
        for (auto const& row : raw.rows("SELECT EntryId, Status = 'ErrorActive', Description FROM FdbFaultTbl"))
        {
            found[std::stoull(*row[0])] = {*row[1], *row[2]};
        }
        for (auto const& [key, row] : m_rows)
        {
            EXPECT_EQ(found[key].status, row.status) << "key " << key;
            EXPECT_EQ(found[key].description, row.description) << "key " << key;
        }
        unacknowledged = found.size() - m_rows.size();
        EXPECT_EQ(raw.value("SELECT count(*) FROM (SELECT 1 FROM FdbFaultTbl GROUP BY Description HAVING count(*) > "
                            "1)"),
                  "0")
            << "duplicate rows";
        expectStatistics(raw);
        expectEdgesOnly(raw);
    }

    /// Expects statistics that agree with the rows, as a commit stores both.
    static void expectStatistics(RawDb& raw)
    {
        EXPECT_EQ(raw.rows("SELECT FaultCode, OccurenceCnt, FaultEntryId FROM FdbFaultStatisticTbl ORDER BY FaultCode"),
                  raw.rows("SELECT FaultCode, min(sum(Status = 'ErrorActive'), 65535), max(EntryId) FROM FdbFaultTbl "
                           "GROUP BY FaultCode ORDER BY FaultCode"));
    }

    static void expectEdgesOnly(RawDb& raw)
    {
        std::string last = "ErrorInactive";
        for (auto const& row : raw.rows(std::string("SELECT Status FROM FdbFaultTbl WHERE FaultCode = ") + kSharedCode +
                                        " ORDER BY EntryId"))
        {
            EXPECT_NE(*row[0], last) << "raised or cleared twice";
            last = *row[0];
        }
    }

    TempDir const m_directory;
    std::string const path = m_directory.file("faults.db");
    std::map<unsigned long long, Row> m_rows; ///< acknowledged rows, by key
    std::mt19937 m_random{kSeed};
};

} // namespace

TEST_P(KilledRecorders, LoseNoAcknowledgedEventAndKeepStatisticsCorrect)
{
    for (unsigned int number = 0; number < kRounds; ++number)
    {
        SCOPED_TRACE("round " + std::to_string(number) + " of seed " + std::to_string(kSeed));
        ASSERT_NO_FATAL_FAILURE(round(number));
    }
    std::printf("killed recorders, %s: %u rounds of 2 processes with 4 threads, %zu rows acknowledged; %zu rows of "
                "unfinished calls, %u %s\n",
                isLog() ? "write-ahead log" : "rollback journal", kRounds, acknowledged(), unacknowledged, journals,
                isLog() ? "logs left" : "commits rolled back");
    EXPECT_GT(acknowledged(), kRounds);
}

INSTANTIATE_TEST_SUITE_P(EachJournal, KilledRecorders, testing::Values(Journal::ROLLBACK, Journal::LOG),
                         [](auto const& tested) { return tested.param == Journal::LOG ? "Log" : "Rollback"; });
