// Whole programs: their output, the files that they leave, and another program that reads these.

#include "TestSupport.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdio>

namespace
{

struct Outcome
{
    int status;
    std::string output;
};

Outcome run(std::string const& command)
{
    Outcome outcome{-1, ""};
    FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
    {
        return outcome;
    }
    std::array<char, 4096> buffer;
    while (std::size_t const size = std::fread(buffer.data(), 1, buffer.size(), pipe))
    {
        outcome.output.append(buffer.data(), size);
    }
    outcome.status = pclose(pipe);
    return outcome;
}

class Program : public testing::Test
{
protected:
    Outcome record(std::string const& ending) const
    {
        return run("'" FIRAIM_TEST_RECORDER "' '" + path + "' " + ending);
    }

    TempDir dir;
    std::string const path = dir.file("faults.db");
};

} // namespace

TEST_F(Program, WritesItsLogLinesToStandardOutput)
{
    Outcome const outcome = record("close");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output,
              "[DEBUG] FDB::createDb() Rdb File doesn't exist. file:" + path +
                  "\n[DEBUG] FDB::createDb() Create RDB File: " + path +
                  "\n[DEBUG] FDB::createDb() Open DataBase as Sqlite3: " + path +
                  "\n[DEBUG] FDB::createDb() Create tbl:FdbFaultTbl"
                  "\n[DEBUG] FDB::createDb() Create tbl:FdbVersionTbl"
                  "\n[DEBUG] FDB::insert() Insert:VersionEntryId=0, Component=FormatVersion, Version=1.0.0"
                  "\n[DEBUG] FDB::createDb() Create database successfully finished."
                  "\n[DEBUG] FDB::openDb() Version check IO. FormatVersion: 1.0.0"
                  "\n[DEBUG] FDB::openDb() done OK."
                  "\n[DEBUG] FDB::insert() Insert:[FAULT]: DbId=0, TimeStamp=0, TimeStampDate[UTC]=, "
                  "SystemDate[UTC]=, FCode=769, FCodeName=FC_CLOCK_JUMP, Param=, TxModule=, Status=ErrorInactive, "
                  "Des=clock ahead by 3600 s, DiagSigFile=, UpTime=0, LifeTime=0, CfgBuFile=, RDB StartupId=0\n");
}

TEST_F(Program, StoresTheFaultWhetherItClosesTheDatabaseOrNot)
{
    for (char const* ending : {"close", "exit"})
    {
        EXPECT_EQ(record(ending).status, 0) << ending;
        RawDb raw(path);
        EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok") << ending;
        EXPECT_EQ(raw.value("SELECT Description FROM FdbFaultTbl"), "clock ahead by 3600 s") << ending;
    }
}

TEST_F(Program, LeavesAFileThatSqlitesOwnShellReads)
{
    ASSERT_EQ(record("exit").status, 0);
    Outcome const shell = run("'" FIRAIM_TEST_SQLITE_SHELL "' '" + path +
                              "' 'SELECT EntryId,FaultCode,Status,Description FROM FdbFaultTbl'");
    EXPECT_EQ(shell.status, 0);
    EXPECT_EQ(shell.output, "1|769|ErrorInactive|clock ahead by 3600 s\n");
}

TEST(ProgramsEnd, DeletesTheInstance)
{
    Outcome const outcome = run("'" FIRAIM_TEST_EXIT_WATCH "'");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "deleted\n");
}
