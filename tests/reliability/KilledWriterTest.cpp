// A writer process is killed at random times. The file holds all acknowledged operations; the operation under way is
// stored whole or not at all, or row by row if it is documented to work row by row.

#include "ChildProcess.h"
#include "OperationScript.h"
#include "TableModel.h"
#include "TestSupport.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <random>

#include <sys/wait.h>

namespace
{

constexpr unsigned int kSeed = 20260301;
constexpr unsigned int kRounds = 320;
constexpr unsigned int kRoundsPerFile = 16;
constexpr unsigned int kMaxAcknowledgements = 24;
constexpr unsigned int kMaxExtraUs = 3000; ///< longer than most operations take

struct Counts
{
    unsigned int rounds = 0;
    unsigned int acknowledged = 0;
    unsigned int underWayStored = 0; ///< the operation under way was stored whole
    unsigned int underWayAbsent = 0; ///< the operation under way was not stored
    unsigned int movesInPart = 0;    ///< a move had changed some of its rows
    unsigned int hotJournals = 0;    ///< a commit was interrupted and had to be rolled back
    unsigned int killedCreating = 0;
};

/// The journal of an unfinished commit starts with the magic number, that of a finished one with zeros.
bool isJournalHot(std::string const& path)
{
    std::string const journal = path + "-journal";
    return exists(journal) && readFile(journal).substr(0, 2) == "\xd9\xd5";
}

class KilledWriter : public testing::Test
{
protected:
    /// Continues with another file, which the next writer creates.
    void beginFile(std::string const& name);
    void round();

    Counts counts;

private:
    void expectNewFile();
    void runWriter();
    void readUntil(ChildProcess& writer, std::chrono::steady_clock::time_point deadline);
    bool takeAcknowledgement(std::string const& line);
    void expectRecovered();
    void applyOperationUnderWay(Tables const& found);
    void applyMoveUnderWay(Tables const& found);
    unsigned int below(unsigned int limit) { return static_cast<unsigned int>(m_random()) % limit; }

    TempDir dir;
    Console console;
    std::string path;
    TableModel model;
    std::mt19937 m_random{kSeed};
    bool m_isCreated = false; ///< the creation of the file was acknowledged
    bool m_isOpened = false;  ///< the writer of this round acknowledged that it opened the file
    Operation m_underWay;
    std::unique_ptr<OperationScript> m_script;
};

void KilledWriter::beginFile(std::string const& name)
{
    path = dir.file(name);
    expectNewFile();
}

void KilledWriter::expectNewFile()
{
    model = TableModel();
    FdbVersion version;
    version.Component = "FormatVersion";
    version.Version = "1.0.0";
    model.insert(version);
    m_isCreated = false;
}

/// Applies an acknowledgement of the writer to the model; returns false when it reports a failure.
bool KilledWriter::takeAcknowledgement(std::string const& line)
{
    if (!m_isCreated || !m_isOpened)
    {
        (m_isCreated ? m_isOpened : m_isCreated) = true;
        return line == "0 0";
    }
    EXPECT_TRUE(model.apply(m_underWay));
    unsigned long long const key =
        m_underWay.kind == Operation::INSERT_FAULT ? model.lastFaultKey : m_underWay.fault.EntryId;
    m_underWay = m_script->next();
    ++counts.acknowledged;
    return line == "0 " + std::to_string(key);
}

/// Runs a writer for a random time and kills it.
void KilledWriter::runWriter()
{
    unsigned int const seed = below(1U << 30U);
    m_script = std::make_unique<OperationScript>(seed, model.lastFaultKey);
    m_underWay = m_script->next();
    m_isOpened = false;
    ChildProcess writer({FIRAIM_TEST_WRITER, "script", path, std::to_string(seed), std::to_string(model.lastFaultKey)});
    for (unsigned int left = below(kMaxAcknowledgements); left > 0; --left)
    {
        auto const line = writer.readLine();
        ASSERT_TRUE(line && takeAcknowledgement(*line)) << line.value_or("the writer has ended");
    }
    // Wait a little longer, to kill the writer in the middle of an operation.
    auto const extra = std::chrono::microseconds(below(kMaxExtraUs));
    ASSERT_NO_FATAL_FAILURE(readUntil(writer, std::chrono::steady_clock::now() + extra));
    writer.kill();
    int const status = writer.wait();
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    for (auto line = writer.readLine(); line; line = writer.readLine())
    {
        ASSERT_TRUE(takeAcknowledgement(*line)) << *line;
    }
}

void KilledWriter::readUntil(ChildProcess& writer, std::chrono::steady_clock::time_point deadline)
{
    auto const left = [deadline]
    {
        auto const time = deadline - std::chrono::steady_clock::now();
        return std::max<long long>(0, std::chrono::duration_cast<std::chrono::microseconds>(time).count());
    };
    for (auto line = writer.readLine(left()); line; line = writer.readLine(left()))
    {
        ASSERT_TRUE(takeAcknowledgement(*line)) << *line;
        if (left() == 0)
        {
            return; // A fast writer would never stop writing lines.
        }
    }
}

/// Determines how much of the operation under way was stored, and updates the model.
void KilledWriter::applyOperationUnderWay(Tables const& found)
{
    std::string const before = difference(model, found);
    if (before.empty())
    {
        ++counts.underWayAbsent;
        return;
    }
    ASSERT_TRUE(m_isOpened) << before;
    if (m_underWay.kind != Operation::MOVE)
    {
        EXPECT_TRUE(model.apply(m_underWay));
        ++counts.underWayStored;
        ASSERT_EQ(difference(model, found), "") << "without the operation under way: " << before;
        return;
    }
    ASSERT_NO_FATAL_FAILURE(applyMoveUnderWay(found));
}

/// A move works row by row, so the file holds some number of its first steps.
void KilledWriter::applyMoveUnderWay(Tables const& found)
{
    TableModel moved;
    bool isWhole = false;
    std::size_t steps = 0;
    do
    {
        moved = model;
        isWhole = moved.move(m_underWay.newId, m_underWay.oldId, ++steps);
    } while (!isWhole && !difference(moved, found).empty());
    ++(isWhole ? counts.underWayStored : counts.movesInPart);
    model = moved;
    ASSERT_EQ(difference(model, found), "") << "after all steps of the move";
}

void KilledWriter::expectRecovered()
{
    FaultDb db;
    int const result = db.openDb(path, false);
    if (!m_isCreated && result != RESULT_OK)
    {
        ++counts.killedCreating;
        ASSERT_EQ(result, RESULT_FAILED);
        ASSERT_EQ(db.createDb(path, true), RESULT_OK);
        ASSERT_EQ(db.openDb(path, false), RESULT_OK);
    }
    else
    {
        ASSERT_EQ(result, RESULT_OK);
    }
    m_isCreated = true;
    ASSERT_NO_FATAL_FAILURE(applyOperationUnderWay(readTables(db)));
    ASSERT_EQ(db.closeDb(), RESULT_OK);
    ASSERT_EQ(RawDb(path).value("PRAGMA integrity_check"), "ok");
}

void KilledWriter::round()
{
    if (model.lastFaultKey == 0)
    {
        expectNewFile(); // The next writer creates a file without faults anew.
    }
    ASSERT_NO_FATAL_FAILURE(runWriter());
    counts.hotJournals += isJournalHot(path) ? 1 : 0;
    ASSERT_NO_FATAL_FAILURE(expectRecovered());
    ++counts.rounds;
}

} // namespace

TEST_F(KilledWriter, LosesNoAcknowledgedOperation)
{
    for (unsigned int round = 0; round < kRounds; ++round)
    {
        SCOPED_TRACE("round " + std::to_string(round) + " of seed " + std::to_string(kSeed));
        if (round % kRoundsPerFile == 0)
        {
            beginFile("faults-" + std::to_string(round) + ".db");
        }
        ASSERT_NO_FATAL_FAILURE(this->round());
    }
    std::printf(
        "killed writers: %u rounds, %u operations acknowledged; under way: %u stored whole, %u absent, %u moves in "
        "part; %u commits rolled back, %u killed while creating\n",
        counts.rounds, counts.acknowledged, counts.underWayStored, counts.underWayAbsent, counts.movesInPart,
        counts.hotJournals, counts.killedCreating);
    EXPECT_GT(counts.hotJournals, 0U) << "no commit was interrupted";
}
