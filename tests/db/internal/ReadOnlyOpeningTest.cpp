#include "Fixtures.h"
#include "history/HistorySupport.h"

#include <db/internal/ReadOnlyOpening.h>

#include <gmock/gmock.h>

#include <filesystem>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;
using readOnlyOpening::Failure;
using readOnlyOpening::FailureKind;

namespace
{

class ReadOnlyOpening : public HistoryTest
{
protected:
    /// Opens `name` and returns a text that identifies the failure.
    static std::string failureOf(std::string const& name)
    {
        try
        {
            readOnlyOpening::open(name, {0ms});
        }
        catch (Failure const& failure)
        {
            return std::to_string(failure.failure()) + " " + failure.what();
        }
        catch (sqlite::Error const& error)
        {
            return "SQLite " + std::to_string(error.code());
        }
        return "none";
    }

    /// Makes a file whose last fault is only in its write-ahead log. Returns its path.
    std::string makeFileWithLog() const
    {
        RawDb raw(path);
        EXPECT_EQ(raw.value("PRAGMA journal_mode=WAL"), "wal");
        raw.exec("INSERT INTO FdbFaultTbl(Description) VALUES('in the log')");
        std::string left = dir.file("left.db");
        std::filesystem::copy(path, left);
        std::filesystem::copy(path + "-wal", left + "-wal");
        return left;
    }

    void putIntoWalMode() const { EXPECT_EQ(RawDb(path).value("PRAGMA journal_mode=WAL"), "wal"); }
};

std::string expected(FailureKind failure, std::string const& text)
{
    return std::to_string(failure) + " " + text;
}

/// Returns true when another process finds none of SQLite's locks on the file. Uses fcntl, as SQLite in a forked child
/// takes the parent's locks for its own.
bool isFreeForOthers(std::string const& path)
{
    int const child = fork();
    if (child == 0)
    {
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        lock.l_start = 0x40000000; // The position of SQLite's locks in every file.
        lock.l_len = 512;
        bool const isAsked = fcntl(open(path.c_str(), O_RDWR), F_GETLK, &lock) == 0;
        _exit(isAsked && lock.l_type == F_UNLCK ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status == 0;
}

} // namespace

TEST_F(ReadOnlyOpening, ReportsThatAPathIsNotAFileWithoutOpeningIt)
{
    using namespace readOnlyOpening;
    std::string const fifo = dir.file("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    std::string const link = dir.file("link");
    ASSERT_EQ(symlink("nowhere", link.c_str()), 0);
    std::string const loop = dir.file("loop");
    ASSERT_EQ(symlink("loop", loop.c_str()), 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::string const socketName = dir.file("socket");
    socketName.copy(address.sun_path, sizeof address.sun_path - 1);
    int const descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(descriptor, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
    close(descriptor);
    std::string const missing = dir.file("missing.db");
    std::string const below = path + "/below";

    EXPECT_EQ(failureOf(missing), expected(NO_FILE, missing + ": No such file or directory"));
    EXPECT_EQ(failureOf(":memory:"), expected(NO_FILE, ":memory:: No such file or directory"));
    EXPECT_EQ(failureOf(below), expected(BAD_PATH, below + ": Not a directory"));
    EXPECT_EQ(failureOf(dir.path()), expected(BAD_PATH, dir.path() + ": is a folder"));
    EXPECT_EQ(failureOf("/dev/zero"), expected(BAD_PATH, "/dev/zero: is no regular file"));
    EXPECT_EQ(failureOf(fifo), expected(BAD_PATH, fifo + ": is no regular file"));
    EXPECT_EQ(failureOf(socketName), expected(BAD_PATH, socketName + ": is no regular file"));
    EXPECT_EQ(failureOf(link), expected(BAD_PATH, link + ": is a link to nowhere"));
    EXPECT_EQ(failureOf(loop), expected(BAD_PATH, loop + ": Too many levels of symbolic links"));
    EXPECT_EQ(failureOf(""), expected(BAD_PATH, "the name of the file is empty"));
    EXPECT_EQ(failureOf(path + std::string(1, '\0') + "x"), expected(BAD_PATH, path + ": the name has a zero byte"));
}

TEST_F(ReadOnlyOpening, FollowsALinkToAFile)
{
    std::string const link = dir.file("link");
    ASSERT_EQ(symlink("faults.db", link.c_str()), 0);
    EXPECT_EQ(failureOf(link), "none");
}

TEST_F(ReadOnlyOpening, ReportsTheJournalOfACrashedWriter)
{
    EXPECT_EQ(failureOf(makeHotJournal()), "SQLite " + std::to_string(SQLITE_READONLY_ROLLBACK));
}

TEST_F(ReadOnlyOpening, KnowsTheModeOfAFileFromItsHeader)
{
    EXPECT_FALSE(readOnlyOpening::isInWalMode(readOnlyOpening::open(path)));
    putIntoWalMode();
    EXPECT_TRUE(readOnlyOpening::isInWalMode(readOnlyOpening::open(path)));
}

TEST_F(ReadOnlyOpening, ReadsAnEmptyLogsFileAsImmutableWhereNothingCanBeWritten)
{
    putIntoWalMode();
    ReadOnlyMedium const medium(dir.path());
    WithoutRoot const nobody;
    EXPECT_EQ(readOnlyOpening::open(path).access(), sqlite::Connection::IMMUTABLE);
}

TEST_F(ReadOnlyOpening, IsNotImmutableWhereTheLogCanBeUsed)
{
    putIntoWalMode();
    EXPECT_EQ(readOnlyOpening::open(path).access(), sqlite::Connection::READ_ONLY);
}

TEST_F(ReadOnlyOpening, ReportsALogThatCannotBeReadWhereNothingCanBeWritten)
{
    std::string const left = makeFileWithLog();
    ReadOnlyMedium const medium(dir.path());
    WithoutRoot const nobody;
    EXPECT_EQ(failureOf(left).substr(0, 2), std::to_string(readOnlyOpening::LOG_UNREADABLE) + " ");
}

TEST_F(ReadOnlyOpening, RefusesAnEmptiedFileAndLeavesItsLog)
{
    std::string const left = makeFileWithLog();
    for (std::string const content : {"", "S"}) // SQLite takes a file of one byte for empty, too.
    {
        writeFile(left, content);
        auto const before = folder();
        EXPECT_EQ(failureOf(left).substr(0, 2), std::to_string(readOnlyOpening::EMPTIED) + " ");
        EXPECT_TRUE(folder() == before) << content.size();
    }
}

TEST_F(ReadOnlyOpening, RefusesAnEmptiedFileBesideAHotJournalAndLeavesThat)
{
    std::string const left = makeHotJournal();
    for (std::string const content : {"", "S"})
    {
        writeFile(left, content);
        auto const before = folder();
        EXPECT_EQ(failureOf(left).substr(0, 2), std::to_string(readOnlyOpening::EMPTIED) + " ");
        EXPECT_THROW(readOnlyOpening::requireNothingBesideEmptyFile(left), Failure);
        EXPECT_TRUE(folder() == before) << content.size();
    }
}

TEST_F(ReadOnlyOpening, AcceptsTheJournalOfAProcessThatIsCreatingTheFile)
{
    std::string const created = dir.file("created.db");
    RawDb creator(created);
    creator.exec("PRAGMA journal_mode=PERSIST; BEGIN IMMEDIATE; CREATE TABLE t(a)");
    ASSERT_TRUE(exists(created + "-journal"));
    EXPECT_EQ(failureOf(created), "none");
    creator.exec("COMMIT");
    EXPECT_EQ(failureOf(created), "none");
}

TEST_F(ReadOnlyOpening, LooksForTheLogBesideTheTargetOfALink)
{
    std::string const left = makeFileWithLog();
    TempDir const other;
    std::string const link = other.file("link.db");
    ASSERT_EQ(symlink(left.c_str(), link.c_str()), 0);
    ASSERT_EQ(chmod(other.path().c_str(), 0755), 0);
    {
        ReadOnlyMedium const medium(dir.path());
        WithoutRoot const nobody;
        std::string const failure = failureOf(link);
        EXPECT_EQ(failure.substr(0, 2), std::to_string(readOnlyOpening::LOG_UNREADABLE) + " ");
        EXPECT_THAT(failure, testing::HasSubstr(link + ": faults that belong to it are still in its write-ahead log"));
    }
    writeFile(left, "");
    auto const before = folder();
    EXPECT_EQ(failureOf(link).substr(0, 2), std::to_string(readOnlyOpening::EMPTIED) + " ");
    EXPECT_TRUE(folder() == before);
}

TEST_F(ReadOnlyOpening, FindsTheJournalBesideTheTargetOfALink)
{
    std::string const crashed = makeHotJournal();
    std::string const link = dir.file("link.db");
    ASSERT_EQ(symlink(crashed.c_str(), link.c_str()), 0);
    try
    {
        readOnlyOpening::open(link);
        FAIL() << "a hot journal was ignored";
    }
    catch (sqlite::Error const& error)
    {
        EXPECT_EQ(error.code(), SQLITE_READONLY_ROLLBACK);
        std::string const text = readOnlyOpening::problemText(link, error);
        EXPECT_THAT(text, testing::StartsWith(link + ": a writer was cut off"));
        EXPECT_THAT(text, testing::HasSubstr("'firaim recover FILE --to COPY'"));
    }
}

TEST_F(ReadOnlyOpening, ReportsAFileThatMayNotBeRead)
{
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
    WithoutRoot const nobody;
    EXPECT_EQ(failureOf(path), "SQLite " + std::to_string(SQLITE_CANTOPEN));
}

TEST_F(ReadOnlyOpening, LeavesTheLocksOfThisProcessOnTheFile)
{
    RawDb raw(path);
    raw.exec("BEGIN IMMEDIATE");
    ASSERT_FALSE(isFreeForOthers(path));
    EXPECT_FALSE(readOnlyOpening::isInWalMode(readOnlyOpening::open(path)));
    EXPECT_FALSE(isFreeForOthers(path));
    raw.exec("ROLLBACK");
    EXPECT_TRUE(isFreeForOthers(path));
}

TEST_F(ReadOnlyOpening, OfALockedFileLeavesTheLocksOfThisProcess)
{
    RawDb raw(path);
    raw.exec("BEGIN EXCLUSIVE");
    EXPECT_EQ(failureOf(path), "SQLite " + std::to_string(SQLITE_BUSY));
    EXPECT_FALSE(isFreeForOthers(path));
    raw.exec("ROLLBACK");
}

TEST_F(ReadOnlyOpening, ImmutableLeavesTheLocksOfThisProcess)
{
    RawDb raw(path);
    raw.exec("BEGIN IMMEDIATE");
    EXPECT_EQ(sqlite::Connection(path, sqlite::Connection::IMMUTABLE).number("SELECT count(*) FROM FdbVersionTbl"), 1);
    EXPECT_FALSE(isFreeForOthers(path));
    raw.exec("ROLLBACK");
}
