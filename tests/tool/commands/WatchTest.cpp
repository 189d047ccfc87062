// firaim watch: following the changes of other processes to the file.

#include "ToolProcess.h"
#include "WritingProcess.h"

#include <gmock/gmock.h>

#include <sqlite3.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>

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

    /// Creates another database with one fault and returns its path.
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

TEST_F(WatchTest, MissesNoFaultOfABusyWriterAndDoesNotDelayIt)
{
    ToolProcess watch({"watch", path, "--last", "1"});
    EXPECT_THAT(watch.readLine().value_or(""), HasSubstr("fault 3 "));
    WritingProcess writer(path);
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
    // Number of voluntary and involuntary context switches of the program.
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

TEST_F(WatchTest, ContinuesWithAnotherFileOfTheSameName)
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

TEST_F(WatchTest, FollowsALinkToItsNewTarget)
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

TEST_F(WatchTest, StartsAnewWhenTheContentIsReplaced)
{
    ToolProcess watch({"watch", path, "--last", "1"});
    EXPECT_TRUE(watch.readLine());
    std::string const other = makeOther();
    RawDb raw(path);
    {
        // Restore a backup as SQLite does, into the same file.
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

TEST_F(WatchTest, ReportsOnceWhichRowsWereRemovedBeforeTheyWereRead)
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

TEST_F(WatchTest, EndsWhenItsOutputIsClosed)
{
    ToolProcess watch({"watch", path, "--last", "1"});
    EXPECT_TRUE(watch.readLine());
    watch.closeOutput();
    record("FC_BUS_OFF");
    EXPECT_EQ(watch.finish(), 128 + SIGPIPE);
    EXPECT_EQ(watch.errors, "");
}
