#include "HistorySupport.h"

#include <fdb/FaultDb.h>

#include <filesystem>

#include <sys/stat.h>

HistoryTest::HistoryTest()
{
    FaultDb db;
    EXPECT_EQ(db.createDb(path, false), 0);
    console.take();
}

void HistoryTest::addFaults(int count) const
{
    exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(count) +
         ") INSERT INTO FdbFaultTbl SELECT NULL, 'date', 1000 + i % 3, 'name', 'module', 'parameter', "
         "1772366400000 + i, 'UTC', 'ErrorActive', 'fault ' || i, 'dump', 1, 2, 'backup', i / 100, 'system' FROM n");
}

std::vector<unsigned long long> HistoryTest::keys(firaim::FaultQuery const& query)
{
    std::vector<unsigned long long> found;
    firaim::FaultCursor cursor = reader.faults(query);
    Fault fault;
    int result = firaim::HISTORY_OK;
    while ((result = cursor.next(fault)) == firaim::HISTORY_OK)
    {
        found.push_back(fault.EntryId);
    }
    EXPECT_EQ(result, firaim::HISTORY_END) << reader.lastProblem();
    return found;
}

std::map<std::string, std::string> HistoryTest::folder() const
{
    std::map<std::string, std::string> files;
    for (auto const& entry : std::filesystem::directory_iterator(dir.path()))
    {
        files[entry.path().filename()] = readFile(entry.path());
    }
    return files;
}

std::string HistoryTest::makeHotJournal() const
{
    addFaults(2000);
    RawDb raw(path);
    raw.exec("PRAGMA cache_size=5; BEGIN; UPDATE FdbFaultTbl SET Description = 'half done'");
    std::string crashed = dir.file("crashed.db");
    std::filesystem::copy(path, crashed);
    std::filesystem::copy(path + "-journal", crashed + "-journal");
    raw.exec("ROLLBACK");
    EXPECT_NE(readFile(crashed).find("half done"), std::string::npos);
    return crashed;
}

ReadOnlyMedium::ReadOnlyMedium(std::string const& folder) : m_folder(folder)
{
    for (auto const& entry : std::filesystem::directory_iterator(folder))
    {
        EXPECT_EQ(chmod(entry.path().c_str(), 0444), 0);
    }
    EXPECT_EQ(chmod(folder.c_str(), 0555), 0);
}

ReadOnlyMedium::~ReadOnlyMedium()
{
    EXPECT_EQ(chmod(m_folder.c_str(), 0755), 0);
}
