// Storage that really is full: a limit on the size of a file, and a small file system of the test's own.

#include "Ledger.h"
#include "LongRecords.h"
#include "SilentConsole.h"

#include <db/Sqlite3Db.h>
#include <fdb/FaultDb.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <utility>

#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr unsigned int kMostRecords = 200;
constexpr int kFailed = 255; // Of a child process; what is neither this nor 0 is an errno.

/// Runs `body` in a process of its own, whose limits and mounts end with it. The result is that of `body`, or `kFailed`
/// after a failed expectation.
template <class Body>
int runInChild(Body body)
{
    std::fflush(nullptr); // What waits in buffers would be written by both.
    pid_t const child = fork();
    if (child == 0)
    {
        int const result = body();
        std::fflush(nullptr);
        _exit(testing::Test::HasFailure() ? kFailed : result);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    return WIFEXITED(status) ? WEXITSTATUS(status) : kFailed;
}

/// A database whose storage fills up under it and is given back.
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
        EXPECT_EQ(code, RESULT_FAILED) << "the storage never was full";
        EXPECT_GT(seed, 3U) << "the storage was full from the beginning";
        std::printf("full disk: %s, %u faults acknowledged before -2\n", m_storage, seed - 1);
    }

    /// What works without room, and what fails and changes nothing.
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

/// Limits what may be written to one file. What a write has room for is written; the rest fails with EFBIG.
void limitFileSize(rlim_t bytes)
{
    rlimit limit = {};
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    limit.rlim_cur = bytes;
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

void liftFileSize()
{
    rlimit limit = {};
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    limitFileSize(limit.rlim_max);
}

void writeText(char const* path, std::string const& text)
{
    std::ofstream(path) << text;
}

/// Gives the process mounts of its own, which without root takes a user namespace of its own.
bool leaveMounts()
{
    if (geteuid() == 0)
    {
        return unshare(CLONE_NEWNS) == 0;
    }
    std::string const user = std::to_string(geteuid());
    std::string const group = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
    {
        return false;
    }
    // Files on the new file system need an owner; without these each would have one that has no number.
    writeText("/proc/self/setgroups", "deny");
    writeText("/proc/self/uid_map", user + " " + user + " 1");
    writeText("/proc/self/gid_map", group + " " + group + " 1");
    return true;
}

/// Mounts a file system of 320 KiB at `path`, for this process alone. 0, or the errno of what is not allowed.
int mountSmall(char const* path)
{
    bool const isMounted = leaveMounts() && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                           mount("small", path, "tmpfs", 0, "size=320k") == 0;
    return isMounted ? 0 : errno;
}

void fillUp(std::string const& path)
{
    std::ofstream file(path, std::ios::binary);
    std::string const page(4096, 'x');
    while (file << page << std::flush)
    {
    }
}

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
    int const result = runInChild(
        [&]
        {
            if (int const refusal = mountSmall(dir.path().c_str()))
            {
                return refusal;
            }
            SilentConsole const console;
            std::string const ballast = dir.file("ballast");
            writeFile(ballast, std::string(64 * 1024, 'x'));
            FilledDatabase filled("file system of 320 KiB", dir.file("faults.db"));
            filled.open();
            filled.fill();
            filled.useWhileFull();
            EXPECT_EQ(std::remove(ballast.c_str()), 0);
            filled.goOn();
            return 0;
        });
    if (result != 0 && result != kFailed)
    {
        GTEST_SKIP() << "no file system may be mounted here: " << std::strerror(result);
    }
    EXPECT_EQ(result, 0);
}

TEST(FullDiskTest, CreateDbOnAFullFileSystemFailsUntilThereIsRoom)
{
    TempDir const dir;
    int const result = runInChild(
        [&]
        {
            if (int const refusal = mountSmall(dir.path().c_str()))
            {
                return refusal;
            }
            SilentConsole const console;
            std::string const ballast = dir.file("ballast");
            fillUp(ballast);
            FilledDatabase filled("file system of 320 KiB", dir.file("faults.db"));
            EXPECT_EQ(filled.m_db.createDb(dir.file("faults.db"), true), RESULT_FAILED);
            EXPECT_EQ(filled.m_db.createDb(dir.file("faults.db"), true), RESULT_FAILED);
            EXPECT_EQ(std::remove(ballast.c_str()), 0);
            filled.open();
            filled.fill();
            return 0;
        });
    if (result != 0 && result != kFailed)
    {
        GTEST_SKIP() << "no file system may be mounted here: " << std::strerror(result);
    }
    EXPECT_EQ(result, 0);
}

} // namespace
