// A recorder on storage that is really full.

#include "SmallStorage.h"
#include "TestSupport.h"

#include <history/FaultRecorder.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

namespace
{

using namespace firaim;

constexpr unsigned int kMostRecords = 500;

FaultEvent longEvent(unsigned int number)
{
    FaultEvent event;
    event.code = 1 + number % 3;
    event.module = std::to_string(number);
    event.description = std::string(3000, 'd');
    return event;
}

/// A recorder whose storage gets full and has room again later.
class FilledRecorder
{
public:
    FilledRecorder(std::string path, bool hasLog) : m_path(std::move(path)), m_hasLog(hasLog)
    {
        if (hasLog)
        {
            EXPECT_EQ(RawDb(m_path).value("PRAGMA journal_mode=WAL"), "wal");
        }
        EXPECT_EQ(m_recorder.open(m_path), HISTORY_OK) << m_recorder.lastProblem();
    }

    /// Records single events or groups until the storage is full.
    void fill(bool isByGroups)
    {
        int result = HISTORY_OK;
        while (result == HISTORY_OK && m_number < kMostRecords)
        {
            result = record(isByGroups);
        }
        EXPECT_NE(result, HISTORY_OK) << "the storage was never full";
        expectFull(result);
        EXPECT_GT(m_recorded.size(), 3U) << "the storage was full from the start";
        expectFull(record(isByGroups));
        expectFile();
    }

    void goOn()
    {
        EXPECT_EQ(recordOne(), HISTORY_OK) << m_recorder.lastProblem();
        EXPECT_EQ(recordGroup(), HISTORY_OK) << m_recorder.lastProblem();
        expectFile();
    }

private:
    /// Full storage may also keep the recorder from removing the frames of a failed commit from a log, and a checkpoint
    /// may make room in the log.
    void expectFull(int result) const
    {
        EXPECT_TRUE(result == HISTORY_FAILED || (m_hasLog && (result == HISTORY_UNKNOWN || result == HISTORY_OK)))
            << result;
    }

    int record(bool isGroup) { return isGroup ? recordGroup() : recordOne(); }

    int recordOne()
    {
        FaultEvent const event = longEvent(++m_number);
        int const result = m_recorder.record(event).result;
        keep(event, result);
        return result;
    }

    int recordGroup()
    {
        std::vector<FaultEvent> events;
        for (unsigned int i = 0; i < 5; ++i)
        {
            events.push_back(longEvent(++m_number));
        }
        std::vector<Receipt> receipts;
        int const result = m_recorder.recordAll(events, receipts);
        for (std::size_t i = 0; i < events.size(); ++i)
        {
            keep(events[i], receipts[i].result);
        }
        return result;
    }

    void keep(FaultEvent const& event, int result)
    {
        if (result == HISTORY_OK)
        {
            m_recorded.insert(event.module);
        }
        else if (result == HISTORY_UNKNOWN)
        {
            m_unknown.insert(event.module);
        }
    }

    /// Expects one row for each event with a successful receipt, no other row but of events whose result is unknown,
    /// and statistics that agree.
    void expectFile()
    {
        RawDb raw(m_path);
        EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
        std::multiset<std::string> found;
        for (RawDb::Row const& row : raw.rows("SELECT ModuleName FROM FdbFaultTbl"))
        {
            found.insert(row[0].value_or(""));
        }
        EXPECT_EQ(raw.value("SELECT sum(OccurenceCnt) FROM FdbFaultStatisticTbl"), std::to_string(found.size()));
        for (std::string const& module : m_unknown)
        {
            std::size_t const count = found.erase(module);
            EXPECT_LE(count, 1U) << module;
        }
        EXPECT_EQ(found, std::multiset<std::string>(m_recorded.begin(), m_recorded.end()));
    }

    std::string m_path;
    bool const m_hasLog;
    unsigned int m_number = 0;
    std::set<std::string> m_recorded;
    std::set<std::string> m_unknown; ///< events whose result is unknown
    FaultRecorder m_recorder;
};

struct Filling
{
    char const* name;
    bool isByGroups;
    bool hasLog; ///< a write-ahead log
};

class RecorderFullDiskTest : public testing::TestWithParam<Filling>
{
protected:
    TempDir const dir;
};

TEST_P(RecorderFullDiskTest, RowsAgreeWithReceiptsAtAFileSizeLimit)
{
    int const result = runInChild(
        [this]
        {
            std::signal(SIGXFSZ, SIG_IGN);
            FilledRecorder filled(dir.file("faults.db"), GetParam().hasLog);
            limitFileSize(200 * 1024);
            filled.fill(GetParam().isByGroups);
            liftFileSize();
            filled.goOn();
            return 0;
        });
    EXPECT_EQ(result, 0);
}

TEST_P(RecorderFullDiskTest, RowsAgreeWithReceiptsOnASmallFileSystem)
{
    runOnSmallFileSystem(dir.path(),
                         [this]
                         {
                             std::string const ballast = dir.file("ballast");
                             writeFile(ballast, std::string(64 * 1024, 'x'));
                             FilledRecorder filled(dir.file("faults.db"), GetParam().hasLog);
                             filled.fill(GetParam().isByGroups);
                             EXPECT_EQ(std::remove(ballast.c_str()), 0);
                             filled.goOn();
                         });
}

TEST(RecorderOnFullDiskTest, OpenOnAFullFileSystemFailsUntilThereIsRoom)
{
    TempDir const dir;
    runOnSmallFileSystem(dir.path(),
                         [&]
                         {
                             std::string const ballast = dir.file("ballast");
                             fillUp(ballast);
                             FaultRecorder recorder;
                             EXPECT_EQ(recorder.open(dir.file("faults.db")), HISTORY_FAILED);
                             EXPECT_EQ(recorder.open(dir.file("faults.db")), HISTORY_FAILED);
                             EXPECT_EQ(std::remove(ballast.c_str()), 0);
                             EXPECT_EQ(recorder.open(dir.file("faults.db")), HISTORY_OK) << recorder.lastProblem();
                             EXPECT_EQ(recorder.record(longEvent(1)).result, HISTORY_OK) << recorder.lastProblem();
                         });
}

INSTANTIATE_TEST_SUITE_P(Each, RecorderFullDiskTest,
                         testing::Values(Filling{"ByEvents", false, false}, Filling{"ByGroups", true, false},
                                         Filling{"ByEventsWithALog", false, true},
                                         Filling{"ByGroupsWithALog", true, true}),
                         [](auto const& tested) { return tested.param.name; });

} // namespace
