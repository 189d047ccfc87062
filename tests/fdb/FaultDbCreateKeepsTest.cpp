// createDb without overwriting keeps the content of a file that is not empty, and this process's locks on it.

#include "Fixtures.h"
#include "OpenSupport.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <sys/stat.h>

using testing::ElementsAre;
using testing::StartsWith;

namespace
{

class CreateDbKeeps : public FaultDbTest
{
protected:
    std::string debug(std::string const& message) const { return "[DEBUG] FDB::createDb() " + message; }

    /// Calls createDb while its `n`-th open fails with `error`. Sets `hasFailed` when it opened that many files.
    int createWithFailedOpen(unsigned int n, int error, bool& hasFailed)
    {
        hasFailed = false;
        unsigned int count = 0;
        OpenHook const hook(
            [&]
            {
                bool const isFailing = ++count == n;
                hasFailed = hasFailed || isFailing;
                return isFailing ? error : 0;
            });
        return db.createDb(path, false);
    }
};

constexpr char kInsertHere[] = "INSERT INTO FdbFaultTbl(Description) VALUES('here')";
constexpr char kInsertElsewhere[] = "INSERT INTO FdbFaultTbl(Description) VALUES('elsewhere')";
constexpr char kDescriptions[] = "SELECT group_concat(Description) FROM FdbFaultTbl";

} // namespace

TEST_F(CreateDbKeeps, FileThatExistsWhicheverOpenFails)
{
    createAndOpen();
    Fault fault = makeFault();
    ASSERT_EQ(db.insert(fault), 0);
    ASSERT_EQ(db.closeDb(), 0);
    std::string const before = readFile(path);
    for (int const error : {EMFILE, ENFILE, EIO, ENOMEM, EINTR, EAGAIN})
    {
        bool hasFailed = true;
        for (unsigned int n = 1; hasFailed; ++n)
        {
            EXPECT_EQ(createWithFailedOpen(n, error, hasFailed), -3) << std::strerror(error) << ", open " << n;
            ASSERT_TRUE(readFile(path) == before) << std::strerror(error) << ", open " << n;
        }
    }
}

TEST_F(CreateDbKeeps, ThePromiseOfItsCodeWhicheverOpenFailsOnTheWayToANewFile)
{
    for (int const error : {EMFILE, EIO})
    {
        unsigned int n = 0;
        for (bool hasFailed = true; hasFailed;)
        {
            std::filesystem::remove(path);
            std::filesystem::remove(path + "-journal");
            int const code = createWithFailedOpen(++n, error, hasFailed);
            EXPECT_TRUE(code == 0 || (hasFailed && code == -2)) << code << ", open " << n;
            EXPECT_EQ(db.createDb(path, code != 0), code == 0 ? -3 : 0) << "open " << n;
            EXPECT_EQ(RawDb(path).value("SELECT Version FROM FdbVersionTbl"), "1.0.0") << "open " << n;
        }
        EXPECT_GT(n, 3U) << "createDb opens the file, its journal and more";
    }
}

TEST_F(CreateDbKeeps, FileThatAppearsBeforeItIsCreated)
{
    int code = 0;
    {
        OpenHook const hook(
            [&]
            {
                writeFile(path, "precious");
                return 0;
            });
        code = db.createDb(path, false);
    }
    EXPECT_EQ(code, -2);
    EXPECT_EQ(readFile(path), "precious");
}

TEST_F(CreateDbKeeps, FileThatMayNotBeReadAndWritten)
{
    for (mode_t const mode : {0444U, 0222U, 0U})
    {
        for (bool const overwrite : {false, true})
        {
            writeFile(path, "precious");
            ASSERT_EQ(chmod(path.c_str(), mode), 0);
            db.setDbgLevel(1);
            {
                WithoutRoot const user;
                EXPECT_EQ(db.createDb(path, overwrite), -2) << mode;
            }
            EXPECT_THAT(console.takeLines(),
                        ElementsAre(debug("Rdb File doesn't exist. file:" + path), debug("Create RDB File: " + path)));
            ASSERT_EQ(chmod(path.c_str(), 0666), 0);
            EXPECT_EQ(readFile(path), "precious") << mode;
        }
    }
}

TEST_F(CreateDbKeeps, EmptyFileThatMayNotBeWrittenAsItIs)
{
    writeFile(path, "");
    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    {
        WithoutRoot const user;
        EXPECT_EQ(db.createDb(path, false), -2);
    }
    EXPECT_EQ(console.take(), "");
}

TEST_F(CreateDbKeeps, EmptyFileThatMayNotBeReadForSqliteToRefuse)
{
    writeFile(path, "");
    ASSERT_EQ(chmod(path.c_str(), 0222), 0);
    {
        WithoutRoot const user;
        EXPECT_EQ(db.createDb(path, false), -2);
    }
    EXPECT_THAT(console.take(), StartsWith("[ERROR] SQL3::openDb() Failed to open: " + path));
}

TEST_F(CreateDbKeeps, PipeThatMayNotBeReadAndWrittenWithoutWaitingForItsOtherEnd)
{
    for (mode_t const mode : {0444U, 0222U})
    {
        std::filesystem::remove(path);
        ASSERT_EQ(mkfifo(path.c_str(), mode), 0);
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        WithoutRoot const user;
        EXPECT_EQ(db.createDb(path, false), -2) << mode;
    }
    EXPECT_TRUE(std::filesystem::is_fifo(path));
}

TEST_F(CreateDbKeeps, LinksWhoseTargetIsMissingAndCreatesTheTarget)
{
    std::filesystem::create_directory(dir.file("data"));
    std::filesystem::create_symlink("data/next", path);
    std::filesystem::create_symlink(dir.file("data/target.db"), dir.file("data/next"));
    EXPECT_EQ(db.createDb(path, false), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    EXPECT_TRUE(std::filesystem::is_symlink(dir.file("data/next")));
    EXPECT_EQ(RawDb(dir.file("data/target.db")).value("SELECT Version FROM FdbVersionTbl"), "1.0.0");
}

TEST_F(CreateDbKeeps, LinksThatCannotBeFollowed)
{
    for (std::string const& target : {path, dir.file("missing/faults.db")})
    {
        std::filesystem::remove(path);
        std::filesystem::create_symlink(target, path);
        EXPECT_EQ(db.createDb(path, false), -2) << target;
        EXPECT_EQ(std::filesystem::read_symlink(path), target);
        EXPECT_EQ(console.take(), "") << target;
    }
}

TEST_F(CreateDbKeeps, TheLocksOfATransactionOnTheFile)
{
    ASSERT_EQ(db.createDb(path, false), 0);
    RawDb here(path);
    here.exec("BEGIN IMMEDIATE");
    here.exec(kInsertHere);
    EXPECT_EQ(db.createDb(path, false), -3);
    EXPECT_FALSE(succeedsElsewhere(path, kInsertElsewhere)) << "the file is locked";
    here.exec("COMMIT");
    EXPECT_TRUE(succeedsElsewhere(path, kInsertElsewhere));
    EXPECT_EQ(here.value(kDescriptions), "here,elsewhere");
    EXPECT_EQ(here.value("PRAGMA integrity_check"), "ok");
}

TEST_F(CreateDbKeeps, TheWriteAheadLogThatThisProcessUses)
{
    ASSERT_EQ(db.createDb(path, false), 0);
    {
        RawDb here(path);
        EXPECT_EQ(here.value("PRAGMA journal_mode=WAL"), "wal");
        here.exec(kInsertHere);
        EXPECT_EQ(db.createDb(path, false), -3);
        EXPECT_TRUE(succeedsElsewhere(path, kInsertElsewhere));
        EXPECT_TRUE(exists(path + "-wal")) << "only the last process that closes the file removes its log";
        here.exec(kInsertHere);
    }
    RawDb after(path);
    EXPECT_EQ(after.value(kDescriptions), "here,elsewhere,here");
    EXPECT_EQ(after.value("PRAGMA integrity_check"), "ok");
}
