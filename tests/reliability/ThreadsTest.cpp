// Several threads in one process: calls that the threads serialise, and log lines that they do not.

#include "Fixtures.h"

#include <db/LogUtil.h>

#include <cstdio>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <thread>

namespace
{

constexpr unsigned int kThreads = 8;
constexpr unsigned int kRounds = 50;
constexpr unsigned int kLines = 2000;

void inThreads(std::function<void(unsigned int)> const& body)
{
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < kThreads; ++i)
    {
        threads.emplace_back(body, i);
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

class Threads : public FaultDbTest
{
protected:
    /// One round of one thread; each call for itself is serialised, so that the threads' calls mix.
    void record(unsigned int number);

    template <class Call>
    auto serialised(Call call)
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        return call();
    }

private:
    std::mutex m_mutex;
};

void Threads::record(unsigned int number)
{
    Fault fault = makeFault(number);
    EXPECT_EQ(serialised([&] { return db.insert(fault); }), 0);
    Fault read;
    EXPECT_EQ(serialised([&] { return db.getFaultById(read, fault.EntryId); }), 0);
    EXPECT_EQ(members(read), members(fault));
    fault.Description = "changed " + std::to_string(number);
    EXPECT_EQ(serialised([&] { return db.update(fault); }), 0);
    FaultStatistic const statistic = makeStatistic(number);
    EXPECT_EQ(serialised([&] { return db.insert(statistic); }), 0);
    unsigned short count = 0;
    EXPECT_EQ(serialised([&] { return db.getFaultStatisticTblErrorActiveNr(count); }), 0);
    EXPECT_GT(count, 0);
    FaultTbl faults;
    EXPECT_GT(serialised([&] { return db.getFaultTbl(faults); }), 0);
}

} // namespace

TEST_F(Threads, ThatSerialiseTheirCallsAreServedEach)
{
    createAndOpen();
    db.setDbgLevel(2);
    inThreads(
        [this](unsigned int thread)
        {
            for (unsigned int round = 0; round < kRounds; ++round)
            {
                record(1 + thread * kRounds + round);
            }
        });
    db.setDbgLevel(0);

    FaultTbl faults;
    ASSERT_EQ(db.getFaultTbl(faults), static_cast<int>(kThreads * kRounds));
    std::set<unsigned long long> keys;
    for (Fault const& fault : faults)
    {
        auto const number = static_cast<unsigned int>(fault.FaultCode) - 1000;
        Fault expected = makeFault(number);
        expected.EntryId = fault.EntryId;
        expected.Description = "changed " + std::to_string(number);
        EXPECT_EQ(members(fault), members(expected));
        EXPECT_TRUE(keys.insert(fault.EntryId).second);
    }
    std::printf("threads: %u threads with %u rounds of six serialised calls\n", kThreads, kRounds);
}

TEST_F(Threads, LogLinesFromSeveralThreadsStayWhole)
{
    inThreads(
        [](unsigned int thread)
        {
            std::string const text(20 + thread, static_cast<char>('a' + thread));
            for (unsigned int i = 0; i < kLines; ++i)
            {
                LogUtil::write(LogUtil::SEVERITY_INFO, "FDB", "thread", text, "=", i);
                SqlTblUtil::printError("[ERROR] Casting value", text);
            }
        });

    std::map<std::string, unsigned int> lines;
    for (std::string const& line : console.takeLines())
    {
        ++lines[line];
    }
    for (unsigned int thread = 0; thread < kThreads; ++thread)
    {
        std::string const text(20 + thread, static_cast<char>('a' + thread));
        EXPECT_EQ(lines["[ERROR] Casting value " + text], kLines);
        for (unsigned int i = 0; i < kLines; ++i)
        {
            EXPECT_EQ(lines["[INFO] FDB::thread() " + text + "=" + std::to_string(i)], 1U);
        }
    }
    EXPECT_EQ(lines.size(), kThreads * (kLines + 1U)) << "there are other lines";
    std::printf("threads: %u log lines from %u threads\n", 2 * kThreads * kLines, kThreads);
}

TEST_F(Threads, TheFirstUseOfTheProcessesObjectMayBeInAnyThread)
{
    std::mutex mutex;
    std::set<FaultDb*> objects;
    inThreads(
        [&](unsigned int)
        {
            std::lock_guard<std::mutex> const lock(mutex);
            objects.insert(FaultDb::getInstance());
        });
    EXPECT_EQ(objects.size(), 1U);
}
