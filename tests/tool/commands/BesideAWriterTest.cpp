// Copying, exporting and recording while other processes use the same file.

#include "ToolProcess.h"
#include "WritingProcess.h"

#include <gmock/gmock.h>

#include <sstream>
#include <string>
#include <vector>

namespace
{

using testing::StartsWith;

class BesideAWriter : public ToolTest
{
protected:
    BesideAWriter() { create(); }

    /// Enough rounds to overlap with the writer often.
    static constexpr int kRounds = 5;
};

} // namespace

TEST_F(BesideAWriter, ACopyIsConsistent)
{
    insertFaults(5000);
    WritingProcess writer(path);
    for (int round = 0; round < kRounds; ++round)
    {
        std::string const copy = dir.file("copy.db");
        Outcome const outcome = runTool({"backup", path, copy, "--force"});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        RawDb raw(copy);
        EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
        // Fault and statistic are written in one transaction, so no copy holds only one of them.
        EXPECT_EQ(raw.value("SELECT count(*) FROM FdbFaultTbl WHERE Description = 'beside'"),
                  raw.value("SELECT COALESCE(sum(OccurenceCnt), 0) FROM FdbFaultStatisticTbl"));
    }
    EXPECT_GT(writer.stop(), 0);
}

TEST_F(BesideAWriter, AnExportHoldsEveryFaultThatWasThereOnce)
{
    insertFaults(5000);
    WritingProcess writer(path);
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

TEST_F(BesideAWriter, AReaderThatDoesNotReadBlocksNoOtherProcess)
{
    insertFaults(20000);
    for (std::vector<std::string> const& arguments :
         {std::vector<std::string>{"list", path}, {"export", path, "--format", "jsonl"}})
    {
        ToolProcess slow(arguments);
        EXPECT_TRUE(slow.readLine());
        Outcome const outcome = runTool({"record", path, "--code", "FC_BUS_OFF"});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
    }
}
