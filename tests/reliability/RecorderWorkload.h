#pragma once

#include "FaultPlan.h"
#include "TestSupport.h"

#include <history/FaultRecorder.h>

#include <string>
#include <vector>

/// Makes a call of a recorder while calls below it fail, and checks the content of the file afterwards.
class RecorderWorkload
{
public:
    enum Call
    {
        OPEN_NEW,
        OPEN_OLD,
        OPEN_CRASHED, ///< a file with a hot journal, or with a log that ends in an unfinished transaction
        RECORD,
        RAISE,
        CLEAR,
        RECORD_ALL,
        CLEAR_CODE,
        END_CYCLE,
        CALL_COUNT
    };

    /// Opens a file with a few rows, unless `call` is the opening itself. `hasLog`: in write-ahead-log mode.
    RecorderWorkload(FaultPlan& plan, Call call, bool hasLog = false);

    /// Makes the call; the plan counts only during it. After `plan.clear()`, `expectFileAsReported` expects that the
    /// file, read through SQLite, agrees with the result.
    void run();
    void expectFileAsReported();
    /// Expects that the recorder works, whatever the result of the call was.
    void expectWorksOn();

    /// Returns true when the result of the call does not say whether the events were stored.
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
    bool m_hasLog;
    TempDir m_dir;
    std::string const m_path = m_dir.file("faults.db");
    firaim::FaultRecorder m_recorder;
    std::vector<firaim::FaultEvent> m_events;
    std::vector<firaim::Receipt> m_receipts;
    std::vector<unsigned long long> m_keys;
};
