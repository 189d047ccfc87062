// Commands that take long: interrupted by a signal, and on files of any size.

#include "ToolProcess.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <string>
#include <vector>

namespace
{

class LongRun : public ToolTest
{
protected:
    LongRun() { create(); }
};

using Interrupted = LongRun;
using Memory = LongRun;

} // namespace

TEST_F(Interrupted, EveryLongCommandLeavesTheFileWhole)
{
    insertFaults(20000);
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
            // Send the signal a little later each time. The unit is the time in which the program starts and ends.
            for (int pause = 0; pause < moment; ++pause)
            {
                EXPECT_EQ(runTool({"--version"}).status, 0);
            }
            process.signal(number);
            int const status = process.finish();
            // Ended by the signal, or finished before.
            EXPECT_TRUE(status == 0 || status == 1 || status == 128 + number) << command[0] << " " << status;
            EXPECT_EQ(RawDb(path).value("PRAGMA integrity_check"), "ok") << command[0];
        }
    }
    EXPECT_FALSE(exists(dir.file("copy.db-journal")));
}

TEST_F(Interrupted, CommandWhoseOutputNobodyReadsEndsByTheSignal)
{
    insertFaults(20000);
    for (std::vector<std::string> const& arguments :
         {std::vector<std::string>{"export", path, "--format", "csv"}, {"list", path}, {"list", path, "--json"}})
    {
        ToolProcess process(arguments);
        EXPECT_TRUE(process.readLine());
        process.signal(SIGINT);
        EXPECT_EQ(process.wait(), 128 + SIGINT);
    }
}

#ifndef __SANITIZE_ADDRESS__ // This sanitizer delays the release of memory.
TEST_F(Memory, DoesNotGrowWithTheNumberOfFaults)
{
    auto const peak = [&](std::vector<std::string> const& arguments)
    {
        ToolProcess process(arguments);
        // Drop the output as it comes: until the child runs the program, its peak memory is that of this test.
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
    insertFaults(3000);
    for (auto const& command : commands)
    {
        few.push_back(peak(command));
    }
    insertFaults(60000);
    for (std::size_t i = 0; i < commands.size(); ++i)
    {
        EXPECT_LE(peak(commands[i]) - few[i], 4096) << commands[i][0] << ", in KiB";
    }
}
#endif
