#pragma once

#include "DiskModelVfs.h"
#include "PowerCutSupport.h"
#include "TestSupport.h"

#include <fdb/FaultDb.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

constexpr char kFileName[] = "faults.db";

/// The content of the two tables, by key. The contents after different steps of the workload share their rows.
struct Content
{
    std::map<unsigned long long, std::shared_ptr<Fault const>> faults;
    std::map<unsigned long long, std::shared_ptr<FaultStatistic const>> statistics;
};

template <class T>
bool isSame(std::map<unsigned long long, std::shared_ptr<T const>> const& expected, std::vector<T> const& found)
{
    auto const isSameRow = [](auto const& entry, T const& row) { return members(*entry.second) == members(row); };
    return std::equal(expected.begin(), expected.end(), found.begin(), found.end(), isSameRow);
}

/// One call of the workload.
struct Act
{
    std::string name;
    std::size_t end = 0; ///< number of operations on the disk until its return
    bool isCreation = false;
    std::vector<Content> contents; ///< before the call and after each of its statements; the last is the final content
};

/// Runs a random mixture of the library's operations, all of which succeed, and notes the content after each.
class Workload
{
public:
    /// Runs `pragmas` on each connection that stays open.
    Workload(std::string const& directory, std::string pragmas)
        : m_directory(directory), m_path(directory + "/" + kFileName), m_pragmas(std::move(pragmas))
    {
    }

    void run(int count)
    {
        start();
        create(false);
        open();
        for (int i = 0; i < count && !testing::Test::HasFailure(); ++i)
        {
            if (i == count / 2)
            {
                replaceFile();
            }
            actAtRandom();
        }
        close();
        m_vfs.stop();
    }

    /// Continues with the files that a power cut during `underWay` left: opens them, which includes recovery, or
    /// creates them again if that fails, and records one more fault.
    void resume(Act const& underWay)
    {
        start();
        begin("openDb after a cut");
        m_acts.back().contents = underWay.contents;
        m_acts.back().isCreation = underWay.isCreation;
        int const opened = m_db.openDb(m_path, false);
        if (underWay.isCreation && opened != RESULT_OK)
        {
            finish(RESULT_OK);
            create(true);
            open();
        }
        else
        {
            m_content = readContent();
            finish(opened);
        }
        insertFault();
        close();
        m_vfs.stop();
    }

    /// Continues with such files by replacing them without opening them.
    void replace(Act const& underWay)
    {
        start();
        begin("createDb after a cut");
        m_acts.back().contents = underWay.contents;
        m_acts.back().isCreation = true;
        end(m_db.createDb(m_path, true));
        open();
        insertFault();
        close();
        m_vfs.stop();
    }

    std::vector<Act> const& acts() const { return m_acts; }
    std::vector<DiskOperation> const& operations() const { return m_operations; }
    /// The content before the first operation.
    DiskModel const& firstDisk() const { return m_firstDisk; }

private:
    void start()
    {
        m_vfs.start(m_directory);
        takeOperations();
        m_disk.synchronise();
        m_firstDisk = m_disk;
        m_operations.clear();
    }

    /// Appends the operations that were recorded since the last call.
    void takeOperations()
    {
        auto const& recorded = m_vfs.operations();
        for (; m_taken < recorded.size(); ++m_taken)
        {
            m_operations.push_back(recorded[m_taken]);
            m_disk.apply(recorded[m_taken]);
        }
    }

    Content readContent()
    {
        Content content;
        FaultTbl faults;
        FaultStatisticTbl statistics;
        EXPECT_GE(m_db.getFaultTbl(faults), 0);
        EXPECT_GE(m_db.getFaultStatisticTbl(statistics), 0);
        for (Fault const& fault : faults)
        {
            content.faults[fault.EntryId] = std::make_shared<Fault const>(fault);
        }
        for (FaultStatistic const& statistic : statistics)
        {
            content.statistics[statistic.EntryId] = std::make_shared<FaultStatistic const>(statistic);
        }
        return content;
    }

    std::size_t below(std::size_t bound) { return static_cast<std::size_t>(m_random() % bound); }

    /// A text of random length, from empty to some overflow pages.
    std::string anyText()
    {
        constexpr std::size_t kLengths[] = {0, 5, 20, 20, 60, 60, 200, 600, 3000, 9000};
        std::size_t const length = below(kLengths[below(std::size(kLengths))] + 1);
        return std::string(length, static_cast<char>('a' + below(26)));
    }

    void begin(char const* name) { m_acts.push_back({name, 0, false, {m_content}}); }

    /// Marks the end of a statement within an operation.
    void step() { m_acts.back().contents.push_back(m_content); }

    void end(int result)
    {
        step();
        finish(result);
    }

    void finish(int result)
    {
        EXPECT_EQ(result, 0) << m_acts.back().name;
        takeOperations();
        m_acts.back().end = m_operations.size();
        expectThatTheModelFollows();
    }

    /// Expects that every change of the files was recorded, as otherwise the cuts would be at wrong places.
    void expectThatTheModelFollows()
    {
        EXPECT_TRUE(m_disk.current() == filesIn(m_directory)) << "after " << m_acts.size() << " operations";
    }

    void create(bool overwrite)
    {
        begin("createDb");
        m_acts.back().isCreation = true;
        int const result = m_db.createDb(m_path, overwrite);
        m_content = {};
        end(result);
    }

    void open()
    {
        begin("openDb");
        int const result = m_db.openDb(m_path, false);
        for (auto const& [handle, entry] : Sqlite3Db::getInstance(0)->m_dbHandles)
        {
            EXPECT_EQ(sqlite3_exec(entry.db, m_pragmas.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << m_pragmas;
        }
        end(result);
    }

    void close()
    {
        begin("closeDb");
        end(m_db.closeDb());
    }

    /// Replaces the file, while the journal of the old one still exists.
    void replaceFile()
    {
        close();
        create(true);
        open();
    }

    void actAtRandom()
    {
        std::size_t const dice = below(100);
        if (dice < 35 || m_content.faults.empty())
        {
            insertFault();
        }
        else if (dice < 50 || m_content.statistics.empty())
        {
            insertStatistic();
        }
        else if (dice < 70)
        {
            updateFault();
        }
        else if (dice < 85)
        {
            updateStatistic();
        }
        else if (dice < 92)
        {
            moveStartup();
        }
        else
        {
            close();
            open();
        }
    }

    Fault anyFault()
    {
        Fault fault = makeFault(++m_seed);
        fault.Description = anyText();
        fault.Parameter = anyText();
        fault.CfgBackupFile = anyText();
        fault.Status = below(2) == 0 ? FAULT_ACTIVE : FAULT_INACTIVE;
        fault.RdbStartupId = static_cast<unsigned int>(below(kStartups));
        return fault;
    }

    FaultStatistic anyStatistic()
    {
        FaultStatistic statistic = makeStatistic(++m_seed);
        statistic.FaultCodeName = anyText();
        statistic.TimeZoneFirstOccurred = anyText();
        statistic.FaultActive = below(2) == 0 ? FAULT_ACTIVE : FAULT_INACTIVE;
        statistic.RdbStartupId = static_cast<unsigned int>(below(kStartups));
        return statistic;
    }

    void insertFault()
    {
        begin("insert of a fault");
        Fault fault = anyFault();
        int const result = m_db.insert(fault);
        EXPECT_EQ(m_content.faults.count(fault.EntryId), 0U);
        m_content.faults[fault.EntryId] = std::make_shared<Fault const>(fault);
        end(result);
    }

    void insertStatistic()
    {
        begin("insert of a statistic");
        FaultStatistic statistic = anyStatistic();
        int const result = m_db.insert(statistic);
        statistic.EntryId = m_content.statistics.empty() ? 1 : m_content.statistics.rbegin()->first + 1;
        m_content.statistics[statistic.EntryId] = std::make_shared<FaultStatistic const>(statistic);
        end(result);
    }

    void updateFault()
    {
        begin("update of a fault");
        Fault fault = anyFault();
        fault.EntryId = std::next(m_content.faults.begin(), static_cast<long>(below(m_content.faults.size())))->first;
        int const result = m_db.update(fault);
        m_content.faults[fault.EntryId] = std::make_shared<Fault const>(fault);
        end(result);
    }

    void updateStatistic()
    {
        begin("update of a statistic");
        auto const row = std::next(m_content.statistics.begin(), static_cast<long>(below(m_content.statistics.size())));
        FaultStatistic statistic = anyStatistic();
        statistic.EntryId = row->first;
        statistic.FaultCode = row->second->FaultCode;
        int const result = m_db.update(statistic);
        row->second = std::make_shared<FaultStatistic const>(statistic);
        end(result);
    }

    void moveStartup()
    {
        begin("updateRdbStartup");
        auto const oldId = static_cast<unsigned int>(below(kStartups));
        auto const newId = static_cast<unsigned int>(below(kStartups));
        int const result = m_db.updateRdbStartup(newId, oldId);
        moveRows(m_content.faults, newId, oldId);
        moveRows(m_content.statistics, newId, oldId);
        end(result);
    }

    /// Updates row by row: each row is a separate statement, which is durable before the next one starts.
    template <class T>
    void moveRows(std::map<unsigned long long, std::shared_ptr<T const>>& rows, unsigned int newId, unsigned int oldId)
    {
        for (auto& [key, row] : rows)
        {
            if (row->RdbStartupId == oldId)
            {
                T moved = *row;
                moved.RdbStartupId = newId;
                row = std::make_shared<T const>(moved);
                step();
            }
        }
    }

    static constexpr std::size_t kStartups = 12;

    std::string const m_directory;
    std::string const m_path;
    std::string const m_pragmas;
    DiskModelVfs& m_vfs = DiskModelVfs::getInstance();
    FaultDb m_db;
    std::mt19937_64 m_random{20260301};
    unsigned int m_seed = 0;
    Content m_content;
    std::vector<Act> m_acts;
    std::vector<DiskOperation> m_operations;
    DiskModel m_firstDisk;
    DiskModel m_disk;
    std::size_t m_taken = 0;
};
