// Every file of the damaged set is rescued, checked and listed by the command, and compared with the sound file: what
// lies on no damaged page comes back, nothing wrong comes back, and the file keeps its bytes.

#include "RescueJudge.h"

#include <tool/ToolProcess.h>

#include <cstdio>

#include <sys/resource.h>

namespace
{

#if defined(FIRAIM_TEST_IS_EMULATED)
constexpr std::size_t kEvery = 10;
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kEvery = 3; // A program starts slowly there.
#else
constexpr std::size_t kEvery = 1;
#endif
constexpr rlim_t kMostSeconds = 20; // Of the processor; any file of the set takes a fraction of a second.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(FIRAIM_TEST_IS_EMULATED)
constexpr long kMostMemory = 1024L * 1024; // In KiB. The sanitizers and the emulator need most of it.
#else
constexpr long kMostMemory = 40L * 1024;
#endif

class RescueDamagedSet : public testing::Test
{
protected:
    /// Rescues, checks and lists each file.
    void examineAll(DamagedSet const& files);
    void TearDown() override;

private:
    std::string run(std::vector<std::string> const& arguments);
    std::string examine(DamagedFile const& file);
    void expectsUnchanged(std::string const& what);
    void complain(std::string const& text) { m_problems += "  " + text + "\n"; }

    std::optional<TempDir> m_dir; ///< a new one for each file
    std::string m_damaged;
    std::map<std::string, std::string> m_before; ///< the damaged file, and those beside it
    std::string m_problems;
    int m_status = 0;
    std::size_t m_files = 0;
    std::size_t m_rows = 0;
    std::size_t m_doubtful = 0;
    std::size_t m_lost = 0;
};

std::string folderIn(TempDir const& dir, std::string const& name)
{
    std::filesystem::create_directory(dir.file(name));
    return dir.file(name);
}

/// Whether `check` of a new file finds anything but the damaged file's own: its version and, unless the file is
/// complete, statistics that refer to faults which are lost.
bool hasOwnFindings(std::string const& findings, bool isComplete, bool hasOtherVersion)
{
    std::istringstream lines(findings);
    for (std::string line; std::getline(lines, line);)
    {
        bool const isKnown = (!isComplete && line.rfind("reference:", 0) == 0) || line.rfind("removed:", 0) == 0 ||
                             line.rfind("doubtful:", 0) == 0 || line.rfind("what to do", 0) == 0 || line[0] == '/' ||
                             (hasOtherVersion && line.rfind("version:", 0) == 0);
        if (!isKnown)
        {
            return true;
        }
    }
    return false;
}

/// Runs the command and returns its standard output. It may not take long, need much memory or die of a signal.
std::string RescueDamagedSet::run(std::vector<std::string> const& arguments)
{
    ToolProcess process(arguments);
    rlimit const limit = {kMostSeconds, kMostSeconds};
    EXPECT_EQ(prlimit(process.pid(), RLIMIT_CPU, &limit, nullptr), 0);
    m_status = process.finish();
    if (m_status != 0 && m_status != 1 && m_status != 3)
    {
        complain(arguments[0] + " ends with " + std::to_string(m_status) + ": " + process.errors);
    }
    if (process.peakMemory > kMostMemory)
    {
        complain(arguments[0] + " needs " + std::to_string(process.peakMemory) + " KiB");
    }
    if (m_status != 0 && process.errors.empty() && process.output.empty())
    {
        complain(arguments[0] + " says nothing with exit status " + std::to_string(m_status));
    }
    expectsUnchanged(arguments[0]);
    return process.output;
}

void RescueDamagedSet::expectsUnchanged(std::string const& what)
{
    std::map<std::string, std::string> after = filesIn(m_dir->file("damaged"));
    if (what != "rescue" && m_before.count("faults.db-wal") != 0)
    {
        after.erase("faults.db-shm"); // Every reader of a log needs its index.
    }
    if (after != m_before)
    {
        complain(what + " changes the damaged file or a file beside it");
    }
}

std::string RescueDamagedSet::examine(DamagedFile const& file)
{
    m_dir.emplace();
    m_problems.clear();
    std::string const damaged = folderIn(*m_dir, "damaged") + "/faults.db";
    std::string const rescued = folderIn(*m_dir, "rescued") + "/faults.db";
    writeWithSidecars(file.make(), damaged);
    m_before = filesIn(m_dir->file("damaged"));
    std::string const json = run({"rescue", damaged, rescued, "--json"});
    RescueOutcome result;
    result.status = m_status;
    run({"list", damaged});
    run({"check", damaged});
    for (auto const& [name, bytes] : filesIn(m_dir->file("rescued")))
    {
        if (name != "faults.db")
        {
            complain("rescue leaves " + name + " beside the new file");
        }
    }
    result.read(rescued, json);
    RescueJudge judge(file, result);
    m_problems += judge.problems();
    m_rows += result.faults.size();
    m_doubtful += result.doubtful.size();
    m_lost += judge.lostRows();
    if (result.isThere)
    {
        std::string const findings = run({"check", rescued});
        if (m_status != 0 && hasOwnFindings(findings, result.status == 0, file.hasOtherVersion))
        {
            complain("check of the new file: " + findings);
        }
    }
    return m_problems;
}

void RescueDamagedSet::examineAll(DamagedSet const& files)
{
    for (std::size_t i = 0; i < files.size(); i += kEvery)
    {
        std::string const problems = examine(files[i]);
        if (!problems.empty())
        {
            ADD_FAILURE() << files[i].name << ": " << files[i].damage << "\n" << problems;
        }
        ++m_files;
    }
}

void RescueDamagedSet::TearDown()
{
    std::printf("damaged set: %s: %zu files, %zu rows rescued, %zu doubtful, %zu on damaged pages\n",
                testing::UnitTest::GetInstance()->current_test_info()->name(), m_files, m_rows, m_doubtful, m_lost);
}

TEST_F(RescueDamagedSet, SoundFilesComeBackComplete)
{
    examineAll(undamagedFiles());
}

TEST_F(RescueDamagedSet, AnyPageOfJunkCostsItsRowsOnly)
{
    examineAll(pagesOfJunk(SoundFile::plain()));
}

TEST_F(RescueDamagedSet, AnyPageOfZerosCostsItsRowsOnly)
{
    examineAll(pagesOfZeros(SoundFile::plain()));
}

TEST_F(RescueDamagedSet, AnyPageWithTheContentOfAnotherCostsItsRowsOnly)
{
    examineAll(pagesOfOthers(SoundFile::plain()));
}

TEST_F(RescueDamagedSet, AFileCutAnywhereKeepsTheRowsBeforeTheCut)
{
    examineAll(cutFiles(SoundFile::plain()));
}

TEST_F(RescueDamagedSet, ADamagedFirstPageCostsNoRow)
{
    examineAll(damagedFirstPages(SoundFile::plain()));
    examineAll(damagedFirstPages(SoundFile::longTexts()));
    examineAll(damagedFirstPages(SoundFile::threeLevels()));
}

TEST_F(RescueDamagedSet, LongTextsBesideAPageOfJunkAreNeverWrong)
{
    examineAll(pagesOfJunk(SoundFile::longTexts()));
}

TEST_F(RescueDamagedSet, LongTextsBesideAPageOfZerosAreNeverWrong)
{
    examineAll(pagesOfZeros(SoundFile::longTexts()));
}

TEST_F(RescueDamagedSet, LongTextsBesideAPageWithTheContentOfAnotherAreNeverWrong)
{
    examineAll(pagesOfOthers(SoundFile::longTexts()));
}

TEST_F(RescueDamagedSet, LongTextsOfACutFileAreNeverWrong)
{
    examineAll(cutFiles(SoundFile::longTexts()));
}

TEST_F(RescueDamagedSet, ALostPageInATreeOfThreeLevelsCostsItsRowsOnly)
{
    SoundFile const& sound = SoundFile::threeLevels();
    for (DamagedSet const& files : {pagesOfJunk(sound), pagesOfZeros(sound), pagesOfOthers(sound), cutFiles(sound)})
    {
        examineAll(files);
    }
}

TEST_F(RescueDamagedSet, RemovedRowsDoNotComeBack)
{
    examineAll(pagesOfZeros(SoundFile::withRemovedRows()));
}

TEST_F(RescueDamagedSet, CraftedPagesAndFilesMisleadNobody)
{
    examineAll(craftedPages());
    examineAll(craftedFiles());
}

TEST_F(RescueDamagedSet, JournalsAndLogsAreTakenIntoAccount)
{
    examineAll(unfinishedFiles());
}

} // namespace
