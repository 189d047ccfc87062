#pragma once

#include "FaultPlan.h"
#include "Ledger.h"
#include "TestSupport.h"

#include <fdb/FaultDb.h>

#include <cstddef>
#include <initializer_list>
#include <string>

/// Every operation of a fault database, run while calls below it fail as a plan says, and what must hold then and
/// after.
///
/// Expectations are checked on the way: codes are documented ones, only an operation below which something failed may
/// fail, what is read is true, the log lock is free. Use: `run`, clear the fault, `goOn`, `close`.
class FaultWorkload
{
public:
    enum Start
    {
        /// A file that was being written when its process died, with the journal of that, is overwritten by a new one.
        NEW_FILE,
        /// The same file is opened, which completes what its journal says.
        CRASHED_FILE,
        /// A file in write-ahead-log mode is opened.
        WAL_FILE
    };

    /// The possible effects of failing calls.
    enum Tolerance
    {
        FAILS,     ///< a code
        MAY_THROW, ///< a code or std::bad_alloc
        TOLERATES  ///< nothing: the operations succeed all the same
    };

    FaultWorkload(FaultPlan& plan, Start start, Tolerance tolerance, int dbgLevel);
    ~FaultWorkload();

    /// Creates or opens the file and runs every kind of operation on it. Stops short when there is no open database.
    void run();

    /// With the fault cleared: takes the documented way back where one is needed, and goes on with the same object.
    void goOn();

    /// Closes, once in vain where the plan can make that happen, and looks at the file without the library.
    void close();

    /// How many records the file holds that operations wrote which then failed, other than `insert(Fault&)`, whose
    /// failure may leave its row as documented.
    std::size_t unacknowledged() const { return m_unacknowledged; }

private:
    template <class Operation>
    int attempt(char const* name, Operation operation);
    template <class Operation>
    bool succeeds(char const* name, std::initializer_list<int> failureCodes, Operation operation);
    template <class Operation>
    void expectRefused(char const* name, Operation operation);
    template <class Table, class Record, class Operation>
    void readTable(char const* name, Ledger<Record> const& expected, Operation operation);
    template <class Record, class Operation>
    void readRecord(char const* name, Ledger<Record> const& expected, Operation operation);
    template <class Operation>
    void readCount(char const* name, Ledger<FaultStatistic> const& expected, Operation operation);

    void prepareFile();
    bool createFile();
    void write();
    void rewrite();
    void read();
    void readStatistics();
    void move();
    void callWithoutDatabase();
    void insert(Fault& fault);
    void insert(FaultStatistic const& statistic);
    void reopen();
    void expectDurable();
    void expectFileHolds();
    std::string readPragma(char const* name) const;

    TempDir m_dir;
    FaultPlan& m_plan;
    Start m_start;
    Tolerance m_tolerance;
    FaultDb m_db;
    std::string m_path = m_dir.file("faults.db");
    Ledger<Fault> m_faults;
    Ledger<FaultStatistic> m_statistics;
    Fault m_first;
    bool m_wasHit = false; ///< whether something failed below the last operation
    bool m_threw = false;  ///< whether it ended with std::bad_alloc
    bool m_isCreated = false;
    bool m_isOpen = false;
    std::size_t m_unacknowledged = 0;
};
