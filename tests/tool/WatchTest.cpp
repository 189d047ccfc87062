// Others at work on the same file: following them, copying and exporting beside them, and ending in the middle.

#include "ToolProcess.h"

#include <gmock/gmock.h>

#include <sqlite3.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <thread>

#include <unistd.h>

namespace
{

using testing::HasSubstr;
using testing::StartsWith;

class WatchTest : public ToolTest
{
protected:
    WatchTest() { createSample(); }

    void record(std::string const& code) { record(path, code); }

    /// Another database, with one fault in it; returns its name.
    std::string makeOther()
    {
        std::string other = dir.file("other.db");
        output({"create", other});
        record(other, "FC_CLOCK_JUMP");
        return other;
    }

    static constexpr char kFaultOfTheOther[] = "2031-05-06T00:00:00.000Z  fault 1  FC_CLOCK_JUMP  active";

private:
    void record(std::string const& file, std::string const& code)
    {
        output({"record", file, "--code", code, "--time", "2031-05-06T00:00Z"});
    }
};

/// Records faults through the program, one after the other, until it is told to stop; none may be refused.
class Writer
{
public:
    explicit Writer(std::string const& path)
        : m_process({"record", path, "--stdin"}, {}, true), m_thread([this] { run(); })
    {
    }
    ~Writer() { stop(); }
    Writer(Writer const&) = delete;
    Writer& operator=(Writer const&) = delete;

    /// Returns the number of faults that were recorded.
    int stop()
    {
        m_isStopping = true;
        if (m_thread.joinable())
        {
            m_thread.join();
        }
        return m_recorded;
    }

private:
    void run()
    {
        while (!m_isStopping)
        {
            m_process.write("{\"FaultCode\":1025,\"Description\":\"beside\"}\n");
            m_recorded += m_process.readLine() ? 1 : 0;
        }
        m_process.closeInput();
        EXPECT_EQ(m_process.finish(), 0);
        EXPECT_EQ(m_process.errors, "");
    }

    ToolProcess m_process;
    std::atomic<bool> m_isStopping{false};
    int m_recorded = 0;
    std::thread m_thread;
};

/// Work beside a writer, for long enough to meet it often.
constexpr int kRounds = 5;

void fill(std::string const& path, int faults)
{
    RawDb(path).exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                     std::to_string(faults) +
                     ") INSERT INTO FdbFaultTbl SELECT NULL, '', 1025, 'FC_BUS_OFF', 'm', 'p', 1935630121000, 'UTC', "
                     "'ErrorActive', 'some text of some length', '', 1, 2, '', 3, '' FROM n");
}

} // namespace

TEST_F(WatchTest, FollowsFaultsAndStatisticsOfOtherProcesses)
{
    ToolProcess watch({"watch", path, "--last", "1"});
    EXPECT_EQ(watch.readLine(), "2031-05-05T03:02:01.500Z  fault 3  FC_BUS_OFF  active  can0  no answer");
    record("FC_SENSOR_TIMEOUT");
    EXPECT_EQ(watch.readLine(), "2031-05-06T00:00:00.000Z  fault 4  FC_SENSOR_TIMEOUT  active");
    EXPECT_EQ(watch.readLine(), "2031-05-06T00:00:00.000Z  statistic  FC_SENSOR_TIMEOUT  active  count 2");
    output({"clear", path, "--code", "FC_SENSOR_TIMEOUT", "--time", "2031-05-06T00:01Z"});
    EXPECT_EQ(watch.readLine(), "2031-05-06T00:01:00.000Z  fault 5  FC_SENSOR_TIMEOUT  inactive");
    EXPECT_EQ(watch.readLine(), "2031-05-06T00:00:00.000Z  statistic  FC_SENSOR_TIMEOUT  inactive  count 2");
    RawDb(path).exec("UPDATE FdbFaultStatisticTbl SET OccurenceCnt = 9 WHERE EntryId = 1");
    EXPECT_EQ(watch.readLine(), "2031-05-05T03:02:01.500Z  statistic  FC_BUS_OFF  active  count 9");
    watch.signal(SIGINT);
    EXPECT_EQ(watch.finish(), 0);
    EXPECT_EQ(watch.output + watch.errors, "");
}

TEST_F(WatchTest, PrintsEventsAsJsonLines)
{
    ToolProcess watch({"watch", path, "--json", "--last", "1"});
    EXPECT_THAT(watch.readLine().value_or(""), StartsWith("{\"Event\":\"fault\",\"EntryId\":3,"));
    record("FC_BUS_OFF");
    EXPECT_THAT(watch.readLine().value_or(""), StartsWith("{\"Event\":\"fault\",\"EntryId\":4,"));
    EXPECT_THAT(watch.readLine().value_or(""), StartsWith("{\"Event\":\"statistic\",\"EntryId\":1,"));
    watch.signal(SIGTERM);
    EXPECT_EQ(watch.finish(), 0);
}

TEST_F(WatchTest, MissesNothingOfABusyWriterAndHoldsNothingUp)
{
    ToolProcess watch({"watch", path, "--last", "1"});
    EXPECT_THAT(watch.readLine().value_or(""), HasSubstr("fault 3 "));
    Writer writer(path);
    int seen = 3;
    for (int events = 0; events < 200; ++events)
    {
        std::string const line = watch.readLine().value_or("");
        if (line.find("  fault ") != std::string::npos)
        {
            EXPECT_THAT(line, HasSubstr("  fault " + std::to_string(++seen) + "  "));
        }
    }
    int const last = 3 + writer.stop();
    while (seen < last)
    {
        std::optional<std::string> const line = watch.readLine();
        ASSERT_TRUE(line);
        if (line->find("  fault ") != std::string::npos)
        {
            EXPECT_THAT(*line, HasSubstr("  fault " + std::to_string(++seen) + "  "));
        }
    }
}

TEST_F(WatchTest, HoldsNoLockAndSleepsWhileNothingHappens)
{
    ToolProcess watch({"watch", path, "--last", "1"});
    EXPECT_TRUE(watch.readLine());
    record("FC_BUS_OFF");
    EXPECT_TRUE(watch.readLine());
    EXPECT_TRUE(watch.readLine());
    RawDb(path).exec("BEGIN EXCLUSIVE; COMMIT");
    // How often it was woken or set aside while something else took its time.
    auto const switches = [&]
    {
        std::ifstream status("/proc/" + std::to_string(watch.pid()) + "/status");
        long count = 0;
        for (std::string line; std::getline(status, line);)
        {
            if (line.find("ctxt_switches:") != std::string::npos)
            {
                count += std::stol(line.substr(line.find(':') + 1));
            }
        }
        return count;
    };
    auto const begin = std::chrono::steady_clock::now();
    long const before = switches();
    EXPECT_GT(before, 0);
    for (int run = 0; run < 100; ++run)
    {
        output({"codes"});
    }
    auto const seconds = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begin);
    EXPECT_LE(switches() - before, 10 + 5 * seconds.count());
}

TEST_F(WatchTest, GoesOnWithAnotherFileOfTheSameName)
{
    ToolProcess watch({"watch", path, "--last", "1"});
    EXPECT_TRUE(watch.readLine());
    std::string const other = makeOther();
    ASSERT_EQ(std::rename(other.c_str(), path.c_str()), 0);
    EXPECT_EQ(watch.readLine(), kFaultOfTheOther);
    watch.signal(SIGINT);
    EXPECT_EQ(watch.finish(), 0);
    EXPECT_THAT(watch.errors, HasSubstr("another file has got this name"));
}

TEST_F(WatchTest, WaitsForAFileThatIsCreatedAnewInItsPlace)
{
    ToolProcess watch({"watch", path, "--last", "1"});
    EXPECT_TRUE(watch.readLine());
    writeFile(dir.file("empty"), "");
    ASSERT_EQ(std::rename(dir.file("empty").c_str(), path.c_str()), 0);
    output({"create", path, "--force"});
    record("FC_CLOCK_JUMP");
    EXPECT_EQ(watch.readLine(), kFaultOfTheOther);
}

TEST_F(WatchTest, GoesOnWhereALinkLeadsTo)
{
    std::string const link = dir.file("link");
    ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
    ToolProcess watch({"watch", link, "--last", "1"});
    EXPECT_TRUE(watch.readLine());
    std::string const other = makeOther();
    ASSERT_EQ(symlink(other.c_str(), dir.file("link2").c_str()), 0);
    ASSERT_EQ(std::rename(dir.file("link2").c_str(), link.c_str()), 0);
    EXPECT_EQ(watch.readLine(), kFaultOfTheOther);
}

TEST_F(WatchTest, BeginsAnewWhereTheContentWasReplaced)
{
    ToolProcess watch({"watch", path, "--last", "1"});
    EXPECT_TRUE(watch.readLine());
    std::string const other = makeOther();
    RawDb raw(path);
    {
        // As SQLite restores a backup: in the same file.
        RawDb from(other);
        sqlite3_backup* const backup = sqlite3_backup_init(raw.handle(), "main", from.handle(), "main");
        ASSERT_NE(backup, nullptr);
        EXPECT_EQ(sqlite3_backup_step(backup, -1), SQLITE_DONE);
        EXPECT_EQ(sqlite3_backup_finish(backup), SQLITE_OK);
    }
    EXPECT_EQ(watch.readLine(), kFaultOfTheOther);
    watch.signal(SIGINT);
    EXPECT_EQ(watch.finish(), 0);
    EXPECT_THAT(watch.errors, HasSubstr("its content was replaced"));
}

TEST_F(WatchTest, SaysOnceWhichRowsWereRemovedBeforeTheyWereRead)
{
    ToolProcess watch({"watch", path, "--last", "1"});
    EXPECT_TRUE(watch.readLine());
    RawDb(path).exec("BEGIN; INSERT INTO FdbFaultTbl(FaultCode, Status) VALUES(1025, 'ErrorActive'), (1025, "
                     "'ErrorActive'), (1025, 'ErrorActive'); DELETE FROM FdbFaultTbl WHERE EntryId IN (4, 5); COMMIT");
    EXPECT_THAT(watch.readLine().value_or(""), HasSubstr("  fault 6  "));
    watch.signal(SIGINT);
    EXPECT_EQ(watch.finish(), 0);
    EXPECT_EQ(watch.errors, "firaim: " + path + ": rows 4 to 5 were removed before they were read\n");
}

TEST_F(WatchTest, EndsWhenItsReaderHasGone)
{
    ToolProcess watch({"watch", path, "--last", "1"});
    EXPECT_TRUE(watch.readLine());
    watch.closeOutput();
    record("FC_BUS_OFF");
    EXPECT_EQ(watch.finish(), 128 + SIGPIPE);
    EXPECT_EQ(watch.errors, "");
}

TEST(BesideAWriter, ACopyIsConsistent)
{
    TempDir dir;
    std::string const path = dir.file("faults.db");
    ASSERT_EQ(runTool({"create", path}).status, 0);
    fill(path, 5000);
    Writer writer(path);
    for (int round = 0; round < kRounds; ++round)
    {
        std::string const copy = dir.file("copy.db");
        Outcome const outcome = runTool({"backup", path, copy, "--force"});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        RawDb raw(copy);
        EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
        // Fault and statistic are one transaction: no copy holds one of them alone.
        EXPECT_EQ(raw.value("SELECT count(*) FROM FdbFaultTbl WHERE Description = 'beside'"),
                  raw.value("SELECT COALESCE(sum(OccurenceCnt), 0) FROM FdbFaultStatisticTbl"));
    }
    EXPECT_GT(writer.stop(), 0);
}

TEST(BesideAWriter, AnExportHoldsEveryFaultThatWasThereOnce)
{
    TempDir dir;
    std::string const path = dir.file("faults.db");
    ASSERT_EQ(runTool({"create", path}).status, 0);
    fill(path, 5000);
    Writer writer(path);
    for (int round = 0; round < kRounds; ++round)
    {
        Outcome const outcome = runTool({"export", path, "--format", "csv"});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        std::istringstream rows(outcome.output);
        std::string row;
        std::getline(rows, row);
        int key = 0;
        while (std::getline(rows, row))
        {
            ++key;
            EXPECT_THAT(row, StartsWith(std::to_string(key) + ","));
        }
        EXPECT_GE(key, 5000);
    }
    EXPECT_GT(writer.stop(), 0);
}

TEST(BesideAWriter, AReaderThatDoesNotReadHoldsNobodyUp)
{
    TempDir dir;
    std::string const path = dir.file("faults.db");
    ASSERT_EQ(runTool({"create", path}).status, 0);
    fill(path, 20000);
    for (std::vector<std::string> const& arguments :
         {std::vector<std::string>{"list", path}, {"export", path, "--format", "jsonl"}})
    {
        ToolProcess slow(arguments);
        EXPECT_TRUE(slow.readLine());
        Outcome const outcome = runTool({"record", path, "--code", "FC_BUS_OFF"});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
    }
}

TEST(Interrupted, EveryLongCommandLeavesTheFileWhole)
{
    TempDir dir;
    std::string const path = dir.file("faults.db");
    ASSERT_EQ(runTool({"create", path}).status, 0);
    fill(path, 20000);
    std::vector<std::vector<std::string>> const commands = {{"trim", path, "--keep", "10"},
                                                            {"trim", path, "--before", "2031-01-01", "--vacuum"},
                                                            {"renumber", path, "--from", "3", "--to", "4"},
                                                            {"renumber", path, "--from", "4", "--to", "3"},
                                                            {"backup", path, dir.file("copy.db"), "--force"},
                                                            {"list", path},
                                                            {"summary", path},
                                                            {"check", path},
                                                            {"export", path, "--format", "sql"}};
    constexpr int kMoments = 6;
    for (auto const& command : commands)
    {
        for (int moment = 0; moment < kMoments; ++moment)
        {
            int const number = std::array<int, 3>{SIGINT, SIGTERM, SIGHUP}[static_cast<std::size_t>(moment) % 3];
            ToolProcess process(command);
            // Each time a little later: as long as the program takes to start and end.
            for (int pause = 0; pause < moment; ++pause)
            {
                EXPECT_EQ(runTool({"--version"}).status, 0);
            }
            process.signal(number);
            int const status = process.finish();
            // Ended by it, or done before it came.
            EXPECT_TRUE(status == 0 || status == 1 || status == 128 + number) << command[0] << " " << status;
            EXPECT_EQ(RawDb(path).value("PRAGMA integrity_check"), "ok") << command[0];
        }
    }
    EXPECT_FALSE(exists(dir.file("copy.db-journal")));
}

TEST(Interrupted, WhatNobodyReadsEndsByTheSignal)
{
    TempDir dir;
    std::string const path = dir.file("faults.db");
    ASSERT_EQ(runTool({"create", path}).status, 0);
    fill(path, 20000);
    for (std::vector<std::string> const& arguments :
         {std::vector<std::string>{"export", path, "--format", "csv"}, {"list", path}, {"list", path, "--json"}})
    {
        ToolProcess process(arguments);
        EXPECT_TRUE(process.readLine());
        process.signal(SIGINT);
        EXPECT_EQ(process.wait(), 128 + SIGINT);
    }
}

#ifndef __SANITIZE_ADDRESS__ // Which keeps what was freed for a while.
TEST(Memory, DoesNotGrowWithTheNumberOfFaults)
{
    TempDir dir;
    std::string const path = dir.file("faults.db");
    ASSERT_EQ(runTool({"create", path}).status, 0);
    auto const peak = [&](std::vector<std::string> const& arguments)
    {
        ToolProcess process(arguments);
        // Dropped as it comes: until it is the program, a child has as much memory as this test.
        while (process.readLine())
        {
        }
        EXPECT_EQ(process.finish(), 0);
        return process.peakMemory;
    };
    std::vector<std::vector<std::string>> const commands = {{"list", path},
                                                            {"list", path, "--json"},
                                                            {"export", path, "--format", "csv"},
                                                            {"export", path, "--format", "json"},
                                                            {"summary", path}};
    std::vector<long> few;
    fill(path, 3000);
    for (auto const& command : commands)
    {
        few.push_back(peak(command));
    }
    fill(path, 60000);
    for (std::size_t i = 0; i < commands.size(); ++i)
    {
        EXPECT_LE(peak(commands[i]) - few[i], 4096) << commands[i][0] << ", in KiB";
    }
}
#endif
