// firaim clear: the active faults that it clears.

#include "RecordFixture.h"

#include <gmock/gmock.h>

namespace
{

using testing::HasSubstr;

using ClearTest = RecordTest;

} // namespace

TEST_F(ClearTest, ClearingMarksTheStatisticAndRecordsAnInactiveFault)
{
    output({"record", path, "--code", "FC_BUS_OFF", "--module", "it's", "--param", "p", "--startup", "3"});
    EXPECT_EQ(output({"clear", path, "--code", "bus_off", "--description", "plugged in again"}), "2\n");
    EXPECT_EQ(statistic("OccurenceCnt || ' ' || FaultActive || ' ' || FaultEntryId"), "1 inactive 2");
    EXPECT_EQ(value("SELECT Status || ' ' || ModuleName || ' ' || Parameter || ' ' || Description || ' ' || "
                    "RdbStartupId FROM FdbFaultTbl WHERE EntryId = 2"),
              "ErrorInactive it's p plugged in again 3");
}

TEST_F(ClearTest, ClearingEndsEveryActiveModuleAndParameterOfTheCode)
{
    output({"record", path, "--code", "FC_BUS_OFF", "--module", "can0"});
    output({"record", path, "--code", "FC_BUS_OFF", "--module", "can1", "--param", "p"});
    EXPECT_EQ(output({"clear", path, "--code", "FC_BUS_OFF"}), "3\n4\n");
    EXPECT_EQ(value("SELECT group_concat(Status || ModuleName || Parameter) FROM FdbFaultTbl WHERE EntryId > 2"),
              "ErrorInactivecan0,ErrorInactivecan1p");
    EXPECT_EQ(statistic("FaultActive"), "inactive");
}

TEST_F(ClearTest, ClearingAModuleLeavesTheOthersOfTheCodeActive)
{
    output({"record", path, "--code", "FC_BUS_OFF", "--module", "can0"});
    output({"record", path, "--code", "FC_BUS_OFF", "--module", "can1"});
    EXPECT_EQ(output({"clear", path, "--code", "FC_BUS_OFF", "--module", "can1"}), "3\n");
    EXPECT_EQ(value("SELECT Status || ModuleName FROM FdbFaultTbl WHERE EntryId = 3"), "ErrorInactivecan1");
    EXPECT_EQ(statistic("FaultActive"), "active");
    Outcome const outcome = runTool({"clear", path, "--code", "FC_BUS_OFF", "--module", "can1"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("FC_BUS_OFF of the module 'can1' is not active; nothing was recorded"));
}

TEST_F(ClearTest, ClearingAnEmptyModuleOrParameterLeavesTheOthersOfTheCodeActive)
{
    output({"record", path, "--code", "FC_BUS_OFF"});
    output({"record", path, "--code", "FC_BUS_OFF", "--module", "can0"});
    EXPECT_EQ(output({"clear", path, "--code", "FC_BUS_OFF", "--module", ""}), "3\n");
    EXPECT_EQ(statistic("FaultActive"), "active");
    Outcome const outcome = runTool({"clear", path, "--code", "FC_BUS_OFF", "--param", ""});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("FC_BUS_OFF with the parameter '' is not active; nothing was recorded"));
    EXPECT_EQ(output({"clear", path, "--code", "FC_BUS_OFF", "--module", "can0", "--param", ""}), "4\n");
    EXPECT_EQ(statistic("FaultActive"), "inactive");
}

TEST_F(ClearTest, ClearingAnInactiveCodeExitsWithStatus1)
{
    EXPECT_EQ(runTool({"clear", path, "--code", "FC_BUS_OFF"}).status, 1);
    output({"record", path, "--code", "FC_BUS_OFF"});
    output({"clear", path, "--code", "FC_BUS_OFF"});
    Outcome const outcome = runTool({"clear", path, "--code", "FC_BUS_OFF"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("FC_BUS_OFF is not active; nothing was recorded"));
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl"), "2");
}
