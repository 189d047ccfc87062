// Storage that is really full: a limit on the file size, and a small file system.

#include "Ledger.h"
#include "LongRecords.h"
#include "SilentConsole.h"
#include "SmallStorage.h"

#include <db/Sqlite3Db.h>
#include <fdb/FaultDb.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <utility>

namespace
{

constexpr unsigned int kMostRecords = 200;

/// A database whose storage gets full and has room again later.
class FilledDatabase
{
public:
    FilledDatabase(char const* storage, std::string path) : m_storage(storage), m_path(std::move(path)) {}

    void open()
    {
        EXPECT_EQ(m_db.createDb(m_path, true), 0);
        EXPECT_EQ(m_db.openDb(m_path, false), 0);
    }

    /// Records until the storage is full.
    void fill()
    {
        int code = 0;
        unsigned int seed = 0;
        while (code == 0 && seed < kMostRecords)
        {
            code = insert(++seed);
        }
        EXPECT_EQ(code, RESULT_FAILED) << "the storage was never full";
        EXPECT_GT(seed, 3U) << "the storage was full from the start";
        std::printf("full disk: %s, %u faults acknowledged before -2\n", m_storage, seed - 1);
    }

    /// Expects that reads succeed, and that writes fail and change nothing.
    void useWhileFull()
    {
        Fault grown = m_first;
        grown.Description.append(100000, '+');
        EXPECT_EQ(m_db.update(grown), RESULT_FAILED);
        m_faults.updated(grown, false);
        FaultTbl found;
        int const count = m_db.getFaultTbl(found);
        EXPECT_EQ(count, static_cast<int>(found.size()));
        m_faults.expectHolds(found);
        EXPECT_EQ(insert(kMostRecords), RESULT_FAILED);
    }

    void goOn()
    {
        EXPECT_EQ(insert(kMostRecords + 1), 0);
        m_first.Parameter = "rewritten";
        EXPECT_EQ(m_db.update(m_first), 0);
        m_faults.updated(m_first, true);
        EXPECT_EQ(m_db.closeDb(), 0);
        RawDb raw(m_path);
        EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
        m_faults.expectHolds(storedFaults(raw));
        EXPECT_EQ(m_faults.countUnacknowledged(storedFaults(raw)), 0U);
    }

    FaultDb m_db;

private:
    int insert(unsigned int seed)
    {
        Fault fault = longFault(seed);
        int const code = m_db.insert(fault);
        m_faults.inserted(fault, code == 0);
        if (m_first.Description.empty())
        {
            m_first = fault;
        }
        return code;
    }

    char const* m_storage;
    std::string m_path;
    Fault m_first;
    Ledger<Fault> m_faults;
};

TEST(FullDiskTest, FileSizeLimitLosesNothingAcknowledgedAndLeavesTheObjectUsable)
{
    TempDir const dir;
    int const result = runInChild(
        [&]
        {
            SilentConsole const console;
            std::signal(SIGXFSZ, SIG_IGN);
            FilledDatabase filled("file-size limit of 200 KiB", dir.file("faults.db"));
            filled.open();
            limitFileSize(200 * 1024);
            filled.fill();
            filled.useWhileFull();
            liftFileSize();
            filled.goOn();
            return 0;
        });
    EXPECT_EQ(result, 0);
}

TEST(FullDiskTest, SmallFileSystemLosesNothingAcknowledgedAndLeavesTheObjectUsable)
{
    TempDir const dir;
    runOnSmallFileSystem(dir.path(),
                         [&]
                         {
                             SilentConsole const console;
                             std::string const ballast = dir.file("ballast");
                             writeFile(ballast, std::string(64 * 1024, 'x'));
                             FilledDatabase filled("file system of 320 KiB", dir.file("faults.db"));
                             filled.open();
                             filled.fill();
                             filled.useWhileFull();
                             EXPECT_EQ(std::remove(ballast.c_str()), 0);
                             filled.goOn();
                         });
}

TEST(FullDiskTest, CreateDbOnAFullFileSystemFailsUntilThereIsRoom)
{
    TempDir const dir;
    runOnSmallFileSystem(dir.path(),
                         [&]
                         {
                             SilentConsole const console;
                             std::string const ballast = dir.file("ballast");
                             fillUp(ballast);
                             FilledDatabase filled("file system of 320 KiB", dir.file("faults.db"));
                             EXPECT_EQ(filled.m_db.createDb(dir.file("faults.db"), true), RESULT_FAILED);
                             EXPECT_EQ(filled.m_db.createDb(dir.file("faults.db"), true), RESULT_FAILED);
                             EXPECT_EQ(std::remove(ballast.c_str()), 0);
                             filled.open();
                             filled.fill();
                         });
}

} // namespace
