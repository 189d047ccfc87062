// Several threads in one process: they serialise calls of the facade, but not log lines and calls of a recorder.

#include "Fixtures.h"

#include <db/LogUtil.h>
#include <history/FaultRecorder.h>

#include <array>
#include <atomic>
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
    /// A round of one thread. Each call is serialised separately, so that calls of several threads alternate.
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

/// A recorder that all threads use at the same time.
class ThreadsOfARecorder : public Threads
{
protected:
    static firaim::RecorderOptions options()
    {
        firaim::RecorderOptions options;
        options.queueLimit = 16;
        options.stormBurst = 20;
        options.stormRowsPerMinute = 600;
        options.keepNewest = 200;
        return options;
    }

    static firaim::FaultEvent eventOf(unsigned int number)
    {
        firaim::FaultEvent event;
        event.code = 1 + number % 3;
        event.module = "module " + std::to_string(number % 2);
        event.status = number % 5 == 0 ? FAULT_INACTIVE : FAULT_ACTIVE;
        return event;
    }

    /// Makes a call of every kind, and counts the accepted events with active status.
    void callAll(unsigned int number);
    void expectPossible(int result) const
    {
        EXPECT_TRUE(result >= 0 || result == firaim::HISTORY_INVALID_STATE || result == firaim::HISTORY_QUEUE_FULL)
            << firaim::historyResultName(result) << ' ' << recorder.lastProblem();
    }
    void note(int result, firaim::FaultEvent const& event)
    {
        expectPossible(result);
        bool const isTaken =
            result == firaim::HISTORY_OK || result == firaim::HISTORY_COUNTED || result == firaim::HISTORY_QUEUED;
        occurrences[static_cast<std::size_t>(event.code)] += isTaken && event.status == FAULT_ACTIVE ? 1 : 0;
    }
    void expectAllCounted() const
    {
        RawDb raw(path);
        EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
        for (unsigned int code = 1; code <= 3; ++code)
        {
            EXPECT_EQ(
                raw.value("SELECT OccurenceCnt FROM FdbFaultStatisticTbl WHERE FaultCode = " + std::to_string(code)),
                std::to_string(occurrences[code]));
        }
    }

    static constexpr std::chrono::minutes kLong{1};
    firaim::FaultRecorder recorder;
    std::array<std::atomic<unsigned int>, 4> occurrences{};
};

void ThreadsOfARecorder::callAll(unsigned int number)
{
    firaim::FaultEvent event = eventOf(number);
    note(recorder.record(event, kLong).result, event);
    note(recorder.post(event), event);
    std::vector<firaim::Receipt> receipts;
    static_cast<void>(recorder.recordAll({event, event}, receipts, kLong)); // The receipts hold the results.
    for (firaim::Receipt const& receipt : receipts)
    {
        note(receipt.result, event);
    }
    event.status = FAULT_ACTIVE;
    note(recorder.raise(event, kLong).result, event);
    expectPossible(recorder.clear(event, kLong).result);
    std::vector<unsigned long long> keys;
    std::uint64_t left = 0;
    switch (number % 8)
    {
    case 0:
        expectPossible(recorder.flush(left, kLong));
        break;
    case 1:
        expectPossible(recorder.endCycle(kLong));
        break;
    case 2:
        expectPossible(recorder.clearCode(event, keys, kLong));
        break;
    default:
        EXPECT_LE(recorder.counters().queued, 16U);
        EXPECT_LE(recorder.startupId(), 1000U);
        static_cast<void>(recorder.lastProblem().size()); // Any text is correct, as any thread may have failed.
        break;
    }
}

} // namespace

TEST_F(Threads, ThatSerialiseTheirCallsAreAllServed)
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
    EXPECT_EQ(lines.size(), kThreads * (kLines + 1U)) << "the output has other lines";
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

TEST_F(ThreadsOfARecorder, LoseNoEventWhateverTheyCall)
{
    ASSERT_EQ(recorder.open(path, options()), firaim::HISTORY_OK) << recorder.lastProblem();
    inThreads(
        [this](unsigned int thread)
        {
            for (unsigned int round = 0; round < kRounds; ++round)
            {
                callAll(thread + 7 * round);
            }
        });
    firaim::FaultRecorder::Counters const counters = recorder.counters();
    EXPECT_EQ(recorder.close(), firaim::HISTORY_OK) << recorder.lastProblem();
    expectAllCounted();
    EXPECT_GT(counters.counted, 0U) << "there was no storm";
    EXPECT_GT(counters.pruned, 0U);
    std::printf("threads: %llu rows in %llu commits, %llu counted, %llu pruned\n",
                static_cast<unsigned long long>(counters.recorded), static_cast<unsigned long long>(counters.groups),
                static_cast<unsigned long long>(counters.counted), static_cast<unsigned long long>(counters.pruned));
}

TEST_F(ThreadsOfARecorder, MayCallWhileOthersOpenAndClose)
{
    std::atomic<unsigned int> closed(0);
    inThreads(
        [&](unsigned int thread)
        {
            for (unsigned int round = 0; round < kRounds; ++round)
            {
                if (thread < 3)
                {
                    static_cast<void>(recorder.open(path, options(), kLong)); // It may be open already.
                    closed += recorder.close() == firaim::HISTORY_OK ? 1 : 0;
                }
                else
                {
                    callAll(thread + 7 * round);
                }
            }
        });
    EXPECT_GT(closed, 0U);
    ASSERT_EQ(recorder.open(path, options(), kLong), firaim::HISTORY_OK) << recorder.lastProblem();
    for (unsigned int number = 1; number < 4; ++number)
    {
        callAll(number); // Gives each code a statistic.
    }
    EXPECT_EQ(recorder.close(), firaim::HISTORY_OK) << recorder.lastProblem();
    expectAllCounted();
}
