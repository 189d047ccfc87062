#pragma once

#include "Ledger.h"
#include "Plan.h"
#include "Reader.h"
#include "Recorder.h"
#include "Stage.h"
#include "Trace.h"
#include "Watch.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace soak
{

/// The conductor breaks a promise itself, so that the soak can be seen to notice it.
enum class Sabotage
{
    NONE,
    LIE,      ///< a recorder acknowledges an event that it has not recorded
    ROW,      ///< an acknowledged row is removed behind the recorders' backs
    CELL,     ///< a row gets another status
    STATISTIC ///< a statistic counts a hundred more
};

/// Lets processes record and read against each other, does them harm, and compares the file with the model.
class Conductor
{
public:
    /// `canPull`: files are pulled while recorders have them open; otherwise only while none has.
    Conductor(std::uint64_t seed, Sabotage sabotage, bool canPull, bool isVerbose);

    /// Runs rounds for so many seconds, at least one. Throws Violation.
    void run(unsigned int seconds);

    /// The numbers of the soak, in one line.
    std::string summary() const;
    /// Ends all processes, copies the file system, and tells the circumstances of a violation.
    std::string diagnosis();

private:
    struct Numbers
    {
        unsigned int rounds = 0;
        unsigned int kills = 0;
        unsigned int fullDisks = 0;
        unsigned int pulls = 0;
        unsigned int logs = 0; ///< of the files
    };

    void startAll();
    void startRecorder(Recorder& recorder);
    void runRound(Round const& round);
    void act(Action const& action);
    void fill();
    void free();
    void pull();
    void changeFile();
    void exchange();
    void closePulled();
    void killRecorder(Recorder& recorder);
    void pauseAll();
    void checkFile();
    void goOn(Round const& round);
    void closeAll();
    bool isEach(bool (Recorder::*is)() const) const;
    void sabotageFile();
    void expectSteadyUse();
    void pumpUntil(Moment moment);
    template <class IsDone>
    void pumpUntilDone(char const* goal, IsDone isDone);
    void pump();
    void printRound();

    std::uint64_t const m_seed;
    Sabotage m_sabotage;
    bool const m_isVerbose;
    Stage m_stage;
    Plan m_plan;
    Timeline m_timeline;
    Trace m_trace;
    Ledger m_ledger;
    std::vector<std::unique_ptr<Recorder>> m_recorders;
    Watch m_watch;
    Reader m_reader;
    bool m_isFull = false;
    Numbers m_numbers;
};

} // namespace soak
