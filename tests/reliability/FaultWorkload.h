#pragma once

#include "FaultPlan.h"
#include "Ledger.h"
#include "TestSupport.h"

#include <fdb/FaultDb.h>

#include <cstddef>
#include <initializer_list>
#include <string>

/// Runs every operation of a fault database while a plan makes calls below it fail, and checks the results.
///
/// It expects on the way that result codes are documented, that an operation fails only if a call below it failed, that
/// records are read correctly, and that the log lock is free. Use: `run`, clear the plan, `goOn`, `close`.
class FaultWorkload
{
public:
    enum Start
    {
        /// A new file replaces one with a hot journal, whose writer was killed.
        NEW_FILE,
        /// Such a file is opened, which rolls back its journal.
        CRASHED_FILE,
        /// A file in write-ahead-log mode is opened.
        WAL_FILE
    };

    /// The possible effects of failing calls.
    enum Tolerance
    {
        FAILS,     ///< the operation returns a code
        MAY_THROW, ///< the operation returns a code or throws std::bad_alloc
        TOLERATES  ///< none: the operation succeeds
    };

    FaultWorkload(FaultPlan& plan, Start start, Tolerance tolerance, int dbgLevel);
    ~FaultWorkload();

    /// Creates or opens the file and runs every kind of operation on it. Returns early when the database cannot be
    /// opened.
    void run();

    /// Call this after clearing the plan: recovers in the documented way if necessary, and continues with the same
    /// object.
    void goOn();

    /// Closes the database, first with a failure if the plan can cause one, and checks the file without the library.
    void close();

    /// Number of records in the file that were written by failed operations, except `insert(Fault&)`, for which this is
    /// documented.
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
    bool m_wasHit = false; ///< a call below the last operation failed
    bool m_threw = false;  ///< the last operation threw std::bad_alloc
    bool m_isCreated = false;
    bool m_isOpen = false;
    std::size_t m_unacknowledged = 0;
};
