// The copy of a database with its journal and log, also while somebody writes to them.

#include "TestSupport.h"

#include <tool/process/Problem.h>
#include <tool/rescue/RawCopy.h>

#include <gmock/gmock.h>

#include <fstream>

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using tool::RawCopy;

class RawCopyTest : public testing::Test
{
protected:
    RawCopyTest() { writeFile(path, std::string(1000000, 'd')); }

    /// Copies the files and calls `duringCopy` with the number of the call while they are copied.
    template <class During>
    RawCopy copy(During const& duringCopy)
    {
        int calls = 0;
        return RawCopy(path, to.file("copy.db"), [&](double) { duringCopy(++calls); });
    }
    RawCopy copy()
    {
        return copy([](int) {});
    }
    void append() { std::ofstream(path, std::ios::app) << "more"; }

    TempDir dir;
    TempDir to;
    std::string const path = dir.file("faults.db");
};

} // namespace

TEST_F(RawCopyTest, CopiesFileJournalAndLog)
{
    writeFile(path + "-journal", "journal");
    writeFile(path + "-wal", "log");
    RawCopy const raw = copy();
    EXPECT_TRUE(raw.isConsistent());
    EXPECT_TRUE(raw.hasJournal());
    EXPECT_TRUE(raw.hasLog());
    EXPECT_TRUE(raw.gaps().empty());
    EXPECT_THAT(filesIn(to.path()), ElementsAre(Pair("copy.db", readFile(path)), Pair("copy.db-journal", "journal"),
                                                Pair("copy.db-wal", "log")));
}

TEST_F(RawCopyTest, LeavesOutEmptyAndMissingFiles)
{
    writeFile(path + "-wal", "");
    RawCopy const raw = copy();
    EXPECT_FALSE(raw.hasJournal());
    EXPECT_FALSE(raw.hasLog());
    EXPECT_EQ(filesIn(to.path()).size(), 1u);
}

TEST_F(RawCopyTest, CopiesAgainWhenTheFileHasChanged)
{
    RawCopy const raw = copy([&](int call) { call == 1 ? append() : void(); });
    EXPECT_TRUE(raw.isConsistent());
    EXPECT_EQ(filesIn(to.path()).at("copy.db"), readFile(path));
}

TEST_F(RawCopyTest, IsNotConsistentWhenTheFileChangesAllTheTime)
{
    EXPECT_FALSE(copy([&](int) { append(); }).isConsistent());
}

TEST_F(RawCopyTest, IsNotConsistentWhenJournalsAppearAllTheTime)
{
    RawCopy const raw =
        copy([&](int call) { writeFile(path + "-wal", std::string(static_cast<std::size_t>(call), 'x')); });
    EXPECT_FALSE(raw.isConsistent());
}

TEST_F(RawCopyTest, RefusesWhatIsNoFile)
{
    EXPECT_THROW(RawCopy(dir.path(), to.file("copy.db"), [](double) {}), tool::Problem);
    EXPECT_THROW(RawCopy(dir.file("none"), to.file("copy.db"), [](double) {}), tool::Problem);
    EXPECT_THROW(RawCopy("/dev/null", to.file("copy.db"), [](double) {}), tool::Problem);
}
