// Damaged files that other processes use, and files of other programs.

#include "DamageSupport.h"

#include <optional>

#include <sqlite3.h>

namespace
{

using namespace firaim;
using namespace std::chrono_literals;
using testing::SizeIs;

class FaultRecorderSharedDamageTest : public DamageTest
{
protected:
    void expectLeftAlone(std::string const& what,
                         std::vector<int> const& results = {HISTORY_DAMAGED, HISTORY_FOREIGN_FILE})
    {
        SCOPED_TRACE(what);
        std::string const bytes = readFile(path);
        int const result = recorder.open(path, settingAside(), 200ms);
        EXPECT_THAT(results, testing::Contains(result)) << recorder.lastProblem();
        EXPECT_TRUE(readFile(path) == bytes);
        EXPECT_THAT(copies(), SizeIs(0));
        if (result >= 0)
        {
            EXPECT_EQ(recorder.close(), HISTORY_OK);
        }
        std::filesystem::remove(path);
    }

    /// The write-ahead log that `statements` write for a file in that mode. Restores the file.
    std::string logOf(std::string const& statements) const
    {
        std::string const before = readFile(path);
        std::string log;
        {
            RawDb raw(path);
            raw.exec(statements);
            log = readFile(path + "-wal");
        }
        writeFile(path, before);
        return log;
    }

    void createForeign(std::string const& columns) const
    {
        exec("CREATE TABLE other (" + columns + ")");
        exec("INSERT INTO other(a) WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 3000) "
             "SELECT 'text ' || i FROM n");
    }
};

/// Lets another process try to record into a file whenever an in-memory database is opened, which happens between the
/// copy of a damaged file and its reset.
class RecordingMeanwhile
{
public:
    explicit RecordingMeanwhile(std::string const& path)
    {
        s_path = path;
        s_results.clear();
        EXPECT_EQ(sqlite3_auto_extension(reinterpret_cast<void (*)()>(onOpen)), SQLITE_OK);
    }
    ~RecordingMeanwhile() { sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(onOpen)); }
    RecordingMeanwhile(RecordingMeanwhile const&) = delete;
    RecordingMeanwhile& operator=(RecordingMeanwhile const&) = delete;

    /// The outcome of each try; true: the row was recorded.
    std::vector<bool> const& results() const { return s_results; }

private:
    static int onOpen(sqlite3* opened, char** /*message*/, sqlite3_api_routines const* /*api*/)
    {
        char const* const name = sqlite3_db_filename(opened, "main");
        if (name == nullptr || *name == '\0')
        {
            s_results.push_back(succeedsElsewhere(s_path, "INSERT INTO FdbFaultTbl(FaultCode) VALUES(1)"));
        }
        return SQLITE_OK;
    }

    static inline std::string s_path;
    static inline std::vector<bool> s_results;
};

constexpr char kForeignTable[] = "CREATE TABLE customers(name); INSERT INTO customers VALUES('somebody')";
constexpr char kRootOfFaults[] = "SELECT rootpage FROM sqlite_master WHERE name = 'FdbFaultTbl'";
constexpr char kRootOfStatistics[] = "SELECT rootpage FROM sqlite_master WHERE name = 'FdbFaultStatisticTbl'";
constexpr char kOtherVersion[] = "UPDATE FdbVersionTbl SET Version = '9.9'";

constexpr char kFewColumns[] = "id INTEGER PRIMARY KEY, a, b, c";
constexpr char kSixteenColumns[] = "id INTEGER PRIMARY KEY, a, b, c, d, e, f, g, h, i, j, k, l, m, n, o";

TEST_F(FaultRecorderSharedDamageTest, FilesOfOtherProgramsAreLeftAlone)
{
    createForeign(kFewColumns);
    expectLeftAlone("sound");
    createForeign(kFewColumns);
    destroyFirstPage();
    expectLeftAlone("first page destroyed");
    createForeign(kFewColumns);
    std::filesystem::resize_file(path, 3 * kPage);
    expectLeftAlone("cut off");
    createForeign(kSixteenColumns);
    std::filesystem::resize_file(path, 3 * kPage);
    expectLeftAlone("cut off, with as many columns as a fault");
    createForeign(kSixteenColumns);
    destroyPage(value("SELECT rootpage FROM sqlite_master"));
    expectLeftAlone("root page destroyed");
}

TEST_F(FaultRecorderSharedDamageTest, FileOfAnotherProgramWithATableLikeOursIsForeignAndLeftAlone)
{
    create();
    exec("DROP TABLE FdbFaultStatisticTbl; DROP TABLE FdbVersionTbl; PRAGMA application_id = 77");
    exec(kForeignTable);
    destroyPage(value(kRootOfFaults));
    expectLeftAlone("", {HISTORY_FOREIGN_FILE});
}

TEST_F(FaultRecorderSharedDamageTest, CutOffFileOfAnotherProgramWithATableLikeOursIsForeignAndLeftAlone)
{
    create();
    exec("DROP TABLE FdbFaultStatisticTbl; DROP TABLE FdbVersionTbl");
    exec(kForeignTable);
    std::filesystem::resize_file(path, 2 * kPage);
    expectLeftAlone("", {HISTORY_FOREIGN_FILE});
}

TEST_F(FaultRecorderSharedDamageTest, FileOfAnotherProgramWhoseSchemaIsInTheLogIsForeignAndLeftAlone)
{
    create();
    exec("PRAGMA journal_mode=WAL");
    std::string const log =
        logOf("DROP TABLE FdbFaultStatisticTbl; DROP TABLE FdbVersionTbl; CREATE TABLE customers(a)");
    destroyPage(value(kRootOfFaults));
    writeFile(path + "-wal", log);
    expectLeftAlone("", {HISTORY_FOREIGN_FILE});
}

TEST_F(FaultRecorderSharedDamageTest, DamagedFileOfAnotherFormatVersionIsLeftAlone)
{
    create();
    exec(kOtherVersion);
    destroyPage(value(kRootOfFaults));
    expectLeftAlone("root page destroyed", {HISTORY_VERSION_MISMATCH});
    create();
    exec(kOtherVersion);
    std::filesystem::resize_file(path, 6 * kPage);
    expectLeftAlone("cut off", {HISTORY_VERSION_MISMATCH});
}

TEST_F(FaultRecorderSharedDamageTest, FilesThatAreNoDatabasesAreLeftAlone)
{
    std::string lines;
    for (int i = 0; i < 10000; ++i)
    {
        lines += "a line of text with the number " + std::to_string(i) + "\n";
    }
    for (std::string const& content : {std::string("x"), std::string("hello\n"), lines, std::string(100000, '\0'),
                                       std::string(100000, '\x0d'), std::string(100000, '\xff')})
    {
        writeFile(path, content);
        expectLeftAlone(content.substr(0, 10));
    }
}

TEST_F(FaultRecorderSharedDamageTest, LockedFileIsNotResetAndCopiesDoNotAccumulate)
{
    create();
    RawDb reader(path);
    reader.exec("BEGIN");
    ASSERT_EQ(reader.value(kCountOfFaults), "200");
    destroyFirstPage();
    std::string const bytes = readFile(path);
    for (int i = 0; i < 5; ++i)
    {
        EXPECT_EQ(recorder.open(path, settingAside(), 20ms), HISTORY_BUSY) << recorder.lastProblem();
    }
    EXPECT_TRUE(readFile(path) == bytes);
    EXPECT_THAT(copies(), SizeIs(0));
    reader.exec("COMMIT");
    EXPECT_EQ(recorder.open(path, settingAside()), HISTORY_OK) << recorder.lastProblem();
    expectAnew("1");
}

TEST_F(FaultRecorderSharedDamageTest, ProcessThatHasTheFileOpenGoesOnInTheSameFile)
{
    create();
    ino_t const before = inode();
    Signal opened;
    Signal reset;
    pid_t const child = startChild(
        [&]
        {
            FaultRecorder own;
            EXPECT_EQ(own.open(path, settingAside()), HISTORY_OK);
            EXPECT_EQ(own.raise(eventOf(21)).result, HISTORY_OK);
            opened.give();
            reset.wait();
            EXPECT_EQ(own.record(eventOf(22)).result, HISTORY_OK) << own.lastProblem();
            EXPECT_EQ(own.raise(eventOf(21)).result, HISTORY_OK) << "its row is in the copy";
        });
    opened.wait();
    destroyFirstPage();
    open(settingAside());
    reset.give();
    expectSuccess(child);
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK);
    expectAnew("4");
    EXPECT_EQ(inode(), before);
    EXPECT_THAT(copies(), SizeIs(1));
}

TEST_F(FaultRecorderSharedDamageTest, TwoRecordersThatFindTheDamageSetItAsideOnce)
{
    create();
    Signal ready;
    Signal begin;
    std::vector<pid_t> children;
    for (std::uint64_t code = 1; code <= 3; ++code)
    {
        children.push_back(startChild(
            [&, code]
            {
                FaultRecorder own;
                ready.give();
                begin.wait();
                EXPECT_EQ(own.open(path, settingAside(), 30s), HISTORY_OK) << own.lastProblem();
                EXPECT_EQ(own.record(eventOf(code), 30s).result, HISTORY_OK) << own.lastProblem();
            }));
    }
    for (std::size_t i = 0; i < children.size(); ++i)
    {
        ready.wait();
    }
    destroyFirstPage();
    for (std::size_t i = 0; i < children.size(); ++i)
    {
        begin.give();
    }
    for (pid_t const child : children)
    {
        expectSuccess(child);
    }
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl WHERE FaultCode = 4711"), "1");
    EXPECT_EQ(value("SELECT count(*) FROM FdbFaultTbl WHERE FaultCode < 10"), "3");
    EXPECT_THAT(copies(), SizeIs(1));
}

TEST_F(FaultRecorderSharedDamageTest, DatabaseWithALogIsCopiedWithItAndStartsAnew)
{
    create();
    std::string log;
    std::string bytes;
    {
        RawDb raw(path);
        ASSERT_EQ(raw.value("PRAGMA journal_mode=WAL"), "wal");
        raw.exec("UPDATE FdbFaultTbl SET Description = 'in the log' WHERE EntryId < 5");
        log = readFile(path + "-wal");
        bytes = readFile(path);
    }
    writeFile(path, bytes);
    writeFile(path + "-wal", log);
    destroyPage(value("SELECT rootpage FROM sqlite_master WHERE name = 'FdbFaultStatisticTbl'"));
    writeFile(path + "-wal", log);
    std::string const damaged = readFile(path);
    open(settingAside());
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK) << recorder.lastProblem();
    expectAnew("2");
    bool isFileThere = false;
    bool isLogThere = false;
    for (auto const& [name, content] : copies())
    {
        isFileThere = isFileThere || (name.find("faults.db.aside-") == 0 && content == damaged);
        isLogThere = isLogThere || (name.find("faults.db-wal.aside-") == 0 && content == log);
    }
    EXPECT_TRUE(isFileThere);
    EXPECT_TRUE(isLogThere);
}

TEST_F(FaultRecorderSharedDamageTest, NoOtherProcessRecordsBetweenCopyAndReset)
{
    create();
    destroyPage(value(kRootOfStatistics));
    RecordingMeanwhile const meanwhile(path);
    open(settingAside());
    EXPECT_THAT(meanwhile.results(), testing::ElementsAre(false));
    expectAnew("1");
}

TEST_F(FaultRecorderSharedDamageTest, NoOtherProcessRecordsBetweenCopyAndResetOfAFileWithALog)
{
    create();
    exec("PRAGMA journal_mode=WAL");
    std::string const log = logOf("UPDATE FdbFaultTbl SET Description = 'in the log' WHERE EntryId < 5");
    destroyPage(value(kRootOfStatistics));
    writeFile(path + "-wal", log);
    RecordingMeanwhile const meanwhile(path);
    open(settingAside());
    EXPECT_THAT(meanwhile.results(), testing::ElementsAre(false));
    expectAnew("1");
}

TEST_F(FaultRecorderSharedDamageTest, FileWithALogThatAnotherProcessHasOpenIsNotReset)
{
    create();
    exec("PRAGMA journal_mode=WAL");
    std::string const log = logOf("UPDATE FdbFaultTbl SET Description = 'in the log' WHERE EntryId < 5");
    destroyPage(value(kRootOfStatistics));
    writeFile(path + "-wal", log);
    std::string const bytes = readFile(path);
    {
        RawDb idle(path);
        ASSERT_EQ(idle.value(kCountOfFaults), "200");
        EXPECT_EQ(recorder.open(path, settingAside(), 20ms), HISTORY_BUSY) << recorder.lastProblem();
        EXPECT_TRUE(readFile(path) == bytes);
        EXPECT_THAT(copies(), SizeIs(0));
    }
    open(settingAside());
    expectAnew("1");
}

} // namespace
