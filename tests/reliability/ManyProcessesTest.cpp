// Many processes use one file: all of them are served, and none reads a partial row of another one.

#include "ChildProcess.h"
#include "NumberedFault.h"
#include "TestSupport.h"

#include <fdb/FaultDb.h>

#include <array>
#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <thread>

namespace
{

constexpr unsigned int kWriters = 8;
constexpr unsigned int kReaders = 2;
#ifdef FIRAIM_TEST_IS_EMULATED
constexpr unsigned int kInserts = 100; ///< few enough that no writer reaches its busy timeout
#else
constexpr unsigned int kInserts = 1000;
#endif

/// The acknowledgements of a writer.
struct Writing
{
    std::vector<unsigned long long> keys; ///< keys of the successful inserts
    unsigned int failed = 0;
    int status = -1;
};

/// The report of a reader.
struct Reading
{
    unsigned int reads = 0;
    unsigned int failures = 0;
    unsigned int halfRows = 0;
    unsigned int lostRows = 0;
    std::size_t rows = 0;
    int status = -1;
};

/// The parameter says whether the file is in write-ahead-log mode.
class ManyProcesses : public testing::TestWithParam<bool>
{
protected:
    ManyProcesses()
    {
        EXPECT_EQ(db.createDb(path, false), 0);
        if (GetParam())
        {
            EXPECT_EQ(RawDb(path).value("PRAGMA journal_mode=WAL"), "wal");
        }
        for (unsigned int i = 0; i < kReaders; ++i)
        {
            m_readers.push_back(std::make_unique<ChildProcess>(std::vector<std::string>{FIRAIM_TEST_READER, path}));
        }
    }

    /// Of each writer. Fewer with a log, to save time.
    static unsigned int inserts() { return GetParam() ? kInserts / 5 : kInserts; }

    /// Starts all writers and waits until they have ended.
    void write()
    {
        std::vector<std::thread> threads;
        for (unsigned int i = 0; i < kWriters; ++i)
        {
            threads.emplace_back([this, i] { writings[i] = runWriter(i); });
        }
        for (std::thread& thread : threads)
        {
            thread.join();
        }
    }

    /// Lets the readers read once more and returns their reports.
    std::vector<Reading> endReaders()
    {
        std::vector<Reading> readings;
        for (auto const& reader : m_readers)
        {
            reader->closeInput();
            Reading r;
            std::istringstream line(reader->readLine().value_or(""));
            line >> r.reads >> r.failures >> r.halfRows >> r.lostRows >> r.rows;
            r.status = reader->wait();
            readings.push_back(r);
        }
        return readings;
    }

    TempDir dir;
    std::string const path = dir.file("faults.db");
    Console console;
    FaultDb db;
    std::array<Writing, kWriters> writings;

private:
    Writing runWriter(unsigned int writer) const
    {
        ChildProcess process({FIRAIM_TEST_WRITER, "insert", path, std::to_string(writer), std::to_string(inserts())});
        Writing writing;
        for (auto line = process.readLine(); line; line = process.readLine())
        {
            std::istringstream acknowledgement(*line);
            int result = -1;
            unsigned long long key = 0;
            acknowledgement >> result >> key;
            if (result == RESULT_OK)
            {
                writing.keys.push_back(key);
            }
            else
            {
                ++writing.failed;
            }
        }
        writing.status = process.wait();
        return writing;
    }

    std::vector<std::unique_ptr<ChildProcess>> m_readers;
};

/// Number of returned keys that belong to another writer's row. This is documented behaviour; the test prints the
/// number.
unsigned int countForeignKeys(std::array<Writing, kWriters> const& writings, FaultTbl const& faults)
{
    std::map<unsigned long long, unsigned int> writerOfKey;
    for (Fault const& fault : faults)
    {
        writerOfKey[fault.EntryId] = fault.LoggerLifeTime;
    }
    unsigned int count = 0;
    for (unsigned int i = 0; i < kWriters; ++i)
    {
        for (unsigned long long const key : writings[i].keys)
        {
            auto const row = writerOfKey.find(key);
            EXPECT_NE(row, writerOfKey.end()) << "no row has the key " << key;
            count += row != writerOfKey.end() && row->second != i ? 1 : 0;
        }
    }
    return count;
}

} // namespace

TEST_P(ManyProcesses, AreAllServedAndNoneSeesHalfARow)
{
    write();
    for (Writing const& writing : writings)
    {
        EXPECT_EQ(writing.status, 0);
        EXPECT_EQ(writing.keys.size(), inserts());
        EXPECT_EQ(writing.failed, 0U);
    }
    unsigned int reads = 0;
    for (Reading const& reading : endReaders())
    {
        EXPECT_EQ(reading.status, 0);
        EXPECT_GT(reading.reads, 1U);
        EXPECT_EQ(reading.failures, 0U);
        EXPECT_EQ(reading.halfRows, 0U);
        EXPECT_EQ(reading.lostRows, 0U);
        EXPECT_EQ(reading.rows, kWriters * inserts());
        reads += reading.reads;
    }

    ASSERT_EQ(db.openDb(path, false), 0);
    FaultTbl faults;
    EXPECT_EQ(db.getFaultTbl(faults), static_cast<int>(kWriters * inserts()));
    EXPECT_EQ(db.closeDb(), 0);
    std::set<unsigned long long> found;
    for (Fault const& fault : faults)
    {
        Fault expected = numberedFault(fault.LoggerLifeTime, fault.LoggerUpTime);
        expected.EntryId = fault.EntryId;
        EXPECT_EQ(members(fault), members(expected));
        EXPECT_TRUE(found.insert(fault.TimeStampUTC).second) << "duplicate: " << fault.TimeStampUTC;
    }
    EXPECT_EQ(RawDb(path).value("PRAGMA integrity_check"), "ok");
    std::printf("many processes%s: %u writers of %u inserts, %u readers with %u reads; %u of the returned keys were "
                "another writer's\n",
                GetParam() ? " with a write-ahead log" : "", kWriters, inserts(), kReaders, reads,
                countForeignKeys(writings, faults));
}

INSTANTIATE_TEST_SUITE_P(EachJournal, ManyProcesses, testing::Bool(),
                         [](auto const& tested) { return tested.param ? "Log" : "Rollback"; });
