#include "DamagedFiles.h"

#include "TableModel.h"

#include <cstdio>
#include <map>

namespace
{

/// Number of files in all tests, by the result of opening them.
std::map<int, unsigned int> openings;

class PrintOpenings : public testing::Environment
{
    void TearDown() override
    {
        unsigned int all = 0;
        for (auto const& [code, count] : openings)
        {
            all += count;
        }
        if (all != 0)
        {
            std::printf("damaged files: %u opened: %u served, %u refused, %u of another version\n", all, openings[0],
                        openings[-2], openings[-5]);
        }
    }
};
auto* const printOpenings = testing::AddGlobalTestEnvironment(new PrintOpenings);

} // namespace

void removeWithSidecars(std::string const& file)
{
    for (char const* suffix : {"", "-journal", "-wal", "-shm"})
    {
        std::remove((file + suffix).c_str());
    }
}

void expectCode(int result)
{
    EXPECT_TRUE(result == 0 || result == -2) << result;
}

void expectCountOrCode(int result)
{
    EXPECT_TRUE(result >= 0 || result == -2) << result;
}

void DamagedFiles::useReads(FaultDb& other)
{
    FdbVersion version;
    FaultTbl faults;
    FaultStatisticTbl statistics;
    Fault fault;
    FaultStatistic statistic;
    unsigned short count = 0;
    expectCode(other.getFormatVersion(version));
    expectCountOrCode(other.getFaultTbl(faults));
    expectCountOrCode(other.getFaultTbl("SELECT * FROM FdbFaultTbl ORDER BY Description", faults));
    expectCountOrCode(other.getFaultStatisticTbl(statistics));
    expectCountOrCode(other.getFaultStatisticTblErrorActive(statistics));
    expectCode(other.getFaultById(fault, 3));
    expectCode(other.getFaultStatisticForFC(statistic, 1003));
    expectCode(other.getFaultStatisticTblErrorNr(count));
    expectCode(other.getFaultStatisticTblErrorActiveNr(count));
}

void DamagedFiles::useWrites(FaultDb& other)
{
    Fault fault = makeFault(77);
    FdbVersion version;
    version.Component = "part";
    expectCode(other.insert(fault));
    fault.EntryId = 5;
    expectCode(other.update(fault));
    expectCode(other.insert(makeStatistic(77)));
    expectCode(other.update(makeStatistic(3)));
    expectCode(other.insert(version));
    EXPECT_EQ(other.updateRdbStartup(9, 1), 0);
}

int DamagedFiles::openAndUse(std::string const& file)
{
    bool const hasJournal = exists(file + "-journal");
    std::string const before = readFile(file);
    FaultDb other;
    int result = other.openDb(file, false);
    ++openings[result];
    EXPECT_TRUE(result == 0 || result == -2 || result == -5) << result;
    if (result != 0 && !hasJournal)
    {
        EXPECT_TRUE(readFile(file) == before) << "a refused file was changed";
    }
    int const first = result;
    result = result == -5 ? other.openDb(file, true) : result;
    if (result == 0)
    {
        useReads(other);
        useWrites(other);
        useReads(other);
        EXPECT_EQ(other.closeDb(), 0);
    }
    else
    {
        // After any file, the same object can go on with another file.
        EXPECT_EQ(other.createDb(file + ".new", true), 0);
        EXPECT_EQ(other.openDb(file + ".new", false), 0);
        EXPECT_EQ(other.closeDb(), 0);
    }
    console.take();
    return first;
}

int DamagedFiles::openAndUseBytes(std::string const& bytes)
{
    std::string const file = dir.file("met.db");
    removeWithSidecars(file);
    writeFile(file, bytes);
    return openAndUse(file);
}

int DamagedFiles::openAndUseChanged(std::string const& sql)
{
    std::string const file = dir.file("met.db");
    removeWithSidecars(file);
    writeFile(file, healthy);
    RawDb(file).exec(sql);
    return openAndUse(file);
}

void DamagedFiles::expectFullService(std::string const& file)
{
    FaultDb other;
    ASSERT_EQ(other.openDb(file, false), 0);
    Fault fault = makeFault(500);
    ASSERT_EQ(other.insert(fault), 0);
    Fault read;
    EXPECT_EQ(other.getFaultById(read, fault.EntryId), 0);
    EXPECT_EQ(members(read), members(fault));
    fault.Description = "changed";
    EXPECT_EQ(other.update(fault), 0);
    EXPECT_EQ(other.getFaultById(read, fault.EntryId), 0);
    EXPECT_EQ(members(read), members(fault));
    EXPECT_EQ(other.insert(makeStatistic(500)), 0);
    EXPECT_EQ(other.updateRdbStartup(7777, fault.RdbStartupId), 0);
    EXPECT_EQ(other.getFaultById(read, fault.EntryId), 0);
    EXPECT_EQ(read.RdbStartupId, 7777U);
    EXPECT_EQ(other.closeDb(), 0);
    EXPECT_EQ(RawDb(file).value("PRAGMA integrity_check"), "ok");
}
