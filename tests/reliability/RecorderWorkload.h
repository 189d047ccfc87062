#pragma once

#include "FaultPlan.h"
#include "TestSupport.h"

#include <history/FaultRecorder.h>

#include <string>
#include <vector>

/// One call of a recorder while what lies below it fails, and what the file must hold afterwards.
class RecorderWorkload
{
public:
    enum Call
    {
        OPEN_NEW,
        OPEN_OLD,
        OPEN_CRASHED, ///< with a transaction that a writer left half done
        RECORD,
        RAISE,
        CLEAR,
        RECORD_ALL,
        CLEAR_CODE,
        END_CYCLE,
        CALL_COUNT
    };

    /// Opens a file with a few rows, unless opening is what fails.
    RecorderWorkload(FaultPlan& plan, Call call);

    /// Makes the call; only meanwhile does the plan count. What it returned must agree with the file, which is looked
    /// at through SQLite, once `plan.clear()` has been called.
    void run();
    void expectFileAsReported();
    /// Whatever has happened, the recorder works on.
    void expectWorksOn();

    /// Whether the call could not say what became of it.
    bool isUnknown() const;
    bool isDone() const;

    static char const* name(Call call);

private:
    void leaveHalfWritten();
    void runCall();
    void expectStatistics();
    unsigned long long rowsOf(RawDb& raw, std::string const& module) const;

    FaultPlan& m_plan;
    Call m_call;
    TempDir m_dir;
    std::string const m_path = m_dir.file("faults.db");
    firaim::FaultRecorder m_recorder;
    std::vector<firaim::FaultEvent> m_events;
    std::vector<firaim::Receipt> m_receipts;
    std::vector<unsigned long long> m_keys;
};
