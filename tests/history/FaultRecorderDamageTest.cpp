// Damaged fault databases: they are refused, or set aside and started anew.

#include "DamageSupport.h"

#include <csignal>

#include <sys/resource.h>

namespace
{

using namespace firaim;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::SizeIs;

class FaultRecorderDamageTest : public DamageTest
{
protected:
    /// Expects the first call to report damage and to change nothing, and recording to work by the third call.
    void recordUntilSetAside(FaultEvent const& event, bool isRaise = false)
    {
        auto const record = [&] { return isRaise ? recorder.raise(event) : recorder.record(event); };
        EXPECT_EQ(record().result, HISTORY_DAMAGED);
        EXPECT_EQ(copies().size(), 0U) << "damage must be seen twice";
        if (record().result != HISTORY_OK)
        {
            EXPECT_EQ(record().result, HISTORY_OK) << recorder.lastProblem();
        }
    }
};

TEST_F(FaultRecorderDamageTest, WithoutTheOptionADamagedFileIsRefusedAndLeftAsItIs)
{
    create();
    destroyFirstPage();
    std::string const bytes = readFile(path);
    EXPECT_EQ(recorder.open(path), HISTORY_DAMAGED);
    EXPECT_THAT(recorder.lastProblem(), HasSubstr(path));
    EXPECT_TRUE(readFile(path) == bytes);
    EXPECT_THAT(copies(), SizeIs(0));
}

TEST_F(FaultRecorderDamageTest, SoundFileIsNeverSetAside)
{
    create();
    open(settingAside());
    EXPECT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK);
    EXPECT_EQ(value(kCountOfFaults), "201");
    EXPECT_THAT(copies(), SizeIs(0));
}

TEST_F(FaultRecorderDamageTest, FileWithADestroyedFirstPageIsCopiedAndStartsAnewInPlace)
{
    create();
    destroyFirstPage();
    std::string const bytes = readFile(path);
    ino_t const before = inode();
    open(settingAside());
    EXPECT_EQ(recorder.record(eventOf(1)).key, 2U);
    expectAnew("2");
    EXPECT_EQ(inode(), before);
    auto const found = copies();
    ASSERT_THAT(found, SizeIs(1));
    EXPECT_TRUE(found.begin()->second == bytes);
    EXPECT_THAT(found.begin()->first, testing::MatchesRegex("faults.db.aside-[0-9]{4}-[0-9]{2}-[0-9]{2}-1"));
}

TEST_F(FaultRecorderDamageTest, TruncatedFileStartsAnew)
{
    for (std::size_t const pages : {1U, 3U, 9U})
    {
        SCOPED_TRACE(pages);
        std::filesystem::remove_all(path);
        create();
        std::filesystem::resize_file(path, pages * kPage);
        ASSERT_EQ(recorder.open(path, settingAside()), HISTORY_OK) << recorder.lastProblem();
        expectAnew("1");
        EXPECT_EQ(recorder.close(), HISTORY_OK);
    }
    EXPECT_THAT(copies(), SizeIs(3));
}

TEST_F(FaultRecorderDamageTest, FileWithPagesOfAnotherSizeStartsAnew)
{
    for (std::string const size : {"512", "65536"})
    {
        for (std::size_t const page : {0U, 1U})
        {
            SCOPED_TRACE(size + " bytes, page " + std::to_string(page));
            std::filesystem::remove_all(path);
            create(2000);
            exec("PRAGMA page_size=" + size + "; VACUUM");
            overwrite(path, page * std::stoul(size), std::string(std::stoul(size), '\x5a'));
            std::string const bytes = readFile(path);
            ASSERT_EQ(recorder.open(path, settingAside()), HISTORY_OK) << recorder.lastProblem();
            expectAnew("1");
            EXPECT_EQ(recorder.close(), HISTORY_OK);
            auto const found = copies();
            EXPECT_TRUE(
                std::any_of(found.begin(), found.end(), [&](auto const& copy) { return copy.second == bytes; }));
            EXPECT_LT(std::filesystem::file_size(path), bytes.size());
        }
    }
}

TEST_F(FaultRecorderDamageTest, IncidentsOfOneDayAreNumbered)
{
    std::vector<std::string> contents;
    for (int number = 1; number <= 12; ++number)
    {
        create(10 * number);
        destroyFirstPage();
        contents.push_back(readFile(path));
        ASSERT_EQ(recorder.open(path, settingAside()), HISTORY_OK) << recorder.lastProblem();
        ASSERT_EQ(recorder.close(), HISTORY_OK);
        std::filesystem::remove(path);
    }
    auto const found = copies();
    EXPECT_EQ(found.size(), contents.size());
    if (std::count_if(found.begin(), found.end(),
                      [](auto const& copy) {
                          return copy.first.size() > 2 && copy.first.compare(copy.first.size() - 2, 2, "-1") == 0;
                      }) != 1)
    {
        GTEST_SKIP() << "the date changed during the test";
    }
    for (auto const& [name, bytes] : found)
    {
        auto const number = std::stoul(name.substr(name.rfind('-') + 1));
        ASSERT_LE(number, contents.size());
        EXPECT_TRUE(bytes == contents[number - 1]) << name;
    }
}

TEST_F(FaultRecorderDamageTest, CopyHasThePermissionsOfTheFile)
{
    create();
    destroyFirstPage();
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    open(settingAside());
    auto const found = copies();
    ASSERT_THAT(found, SizeIs(1));
    struct stat status = {};
    ASSERT_EQ(stat(dir.file(found.begin()->first).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(FaultRecorderDamageTest, DamageOfTheLastLeafIsFoundWhenRecording)
{
    create();
    open(settingAside());
    ASSERT_EQ(recorder.record(eventOf(1)).result, HISTORY_OK);
    ASSERT_EQ(recorder.close(), HISTORY_OK);
    std::string const leaf = value("SELECT max(pageno) FROM dbstat WHERE name = 'FdbFaultStatisticTbl'");
    open(settingAside());
    destroyPage(leaf);
    exec("PRAGMA user_version = 1"); // Changes the file, so that the recorder reads it again.
    std::string const bytes = readFile(path);
    recordUntilSetAside(eventOf(2));
    expectAnew("2");
    ASSERT_THAT(copies(), SizeIs(1));
    EXPECT_TRUE(copies().begin()->second == bytes);
}

TEST_F(FaultRecorderDamageTest, DamageOfAnInteriorPageIsFoundWhenRecording)
{
    create();
    open(settingAside());
    destroyPage(value("SELECT rootpage FROM sqlite_master WHERE name = 'FdbFaultTbl'"));
    exec("PRAGMA user_version = 1");
    recordUntilSetAside(eventOf(2));
    expectAnew("2");
}

TEST_F(FaultRecorderDamageTest, DamageOfAnOldLeafIsFoundWhenTheStateIsRead)
{
    create();
    open(settingAside());
    destroyPage(value("SELECT min(pageno) FROM dbstat WHERE name = 'FdbFaultTbl' AND pagetype = 'leaf'"));
    exec("PRAGMA user_version = 1");
    recordUntilSetAside(eventOf(2), true);
    expectAnew("2");
    EXPECT_EQ(recorder.raise(eventOf(2)).result, HISTORY_UNCHANGED);
}

TEST_F(FaultRecorderDamageTest, StateOfTheOldContentIsForgotten)
{
    create();
    open(settingAside());
    ASSERT_EQ(recorder.raise(eventOf(1)).result, HISTORY_OK);
    destroyFirstPage();
    recordUntilSetAside(eventOf(2), true);
    EXPECT_EQ(recorder.raise(eventOf(1)).result, HISTORY_OK);
    EXPECT_EQ(statistic(1, "OccurenceCnt"), "1");
}

TEST_F(FaultRecorderDamageTest, PostedEventsArriveInTheNewContent)
{
    create();
    open(settingAside());
    destroyFirstPage();
    EXPECT_EQ(recorder.post(eventOf(1)), HISTORY_QUEUED);
    std::uint64_t left = 0;
    EXPECT_EQ(recorder.flush(left, 30s), HISTORY_OK) << recorder.lastProblem();
    expectAnew("2");
}

TEST_F(FaultRecorderDamageTest, HotJournalThatRepairsTheFileIsRolledBack)
{
    create(2000);
    std::string const whole = readFile(path);
    std::string journal;
    {
        RawDb raw(path);
        raw.exec("PRAGMA cache_size=5; BEGIN; UPDATE FdbFaultTbl SET Description = hex(zeroblob(150))");
        journal = readFile(path + "-journal");
        raw.exec("ROLLBACK");
    }
    writeFile(path, whole);
    writeFile(path + "-journal", journal);
    destroyFirstPage(); // The journal holds this page.
    open(settingAside());
    EXPECT_EQ(value(kCountOfFaults), "2000");
    EXPECT_EQ(value("PRAGMA integrity_check"), "ok");
    EXPECT_THAT(copies(), SizeIs(0)) << "nothing was reset";
}

TEST_F(FaultRecorderDamageTest, HotJournalThatDoesNotRepairTheFileIsRolledBackBeforeTheCopy)
{
    create(2000);
    std::string const root = value("SELECT rootpage FROM sqlite_master WHERE name = 'FdbFaultStatisticTbl'");
    std::string journal;
    std::string halfDone;
    {
        RawDb raw(path);
        raw.exec("PRAGMA cache_size=5; BEGIN; UPDATE FdbFaultTbl SET Description = hex(zeroblob(150))");
        journal = readFile(path + "-journal");
        halfDone = readFile(path);
        raw.exec("ROLLBACK");
    }
    destroyPage(root);
    std::string const before = readFile(path);
    writeFile(path, halfDone);
    destroyPage(root);
    ASSERT_FALSE(readFile(path) == before) << "the file was not written before the crash";
    writeFile(path + "-journal", journal);
    open(settingAside());
    expectAnew("1");
    ASSERT_THAT(copies(), SizeIs(1));
    EXPECT_TRUE(copies().begin()->second == before);
}

TEST_F(FaultRecorderDamageTest, WithoutRoomForTheCopyNothingIsReset)
{
    create(2000);
    destroyFirstPage();
    std::string const bytes = readFile(path);
    expectSuccess(startChild(
        [this]
        {
            std::signal(SIGXFSZ, SIG_IGN);
            rlimit limit = {};
            ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
            limit.rlim_cur = 100'000;
            ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
            FaultRecorder own;
            EXPECT_EQ(own.open(path, settingAside()), HISTORY_FAILED);
            EXPECT_THAT(own.lastProblem(), HasSubstr("aside"));
        }));
    EXPECT_TRUE(readFile(path) == bytes);
    EXPECT_THAT(copies(), SizeIs(0)) << "a partial copy must be removed";
}

TEST_F(FaultRecorderDamageTest, FolderThatCannotBeWrittenToKeepsTheFile)
{
    create();
    destroyFirstPage();
    std::string const bytes = readFile(path);
    {
        WithoutRoot const withoutRoot;
        ASSERT_EQ(chmod(dir.path().c_str(), 0555), 0);
        EXPECT_EQ(recorder.open(path, settingAside()), HISTORY_FAILED);
        ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
    }
    EXPECT_TRUE(readFile(path) == bytes);
}

} // namespace
