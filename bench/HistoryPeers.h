#pragma once

#include "Files.h"

#include <fdb/FaultDb.h>
#include <history/FaultRecorder.h>

#include <string>
#include <vector>

/// The event of the fault `deviceFault(seed)`; the recorder fills in times and names.
firaim::FaultEvent deviceEvent(unsigned int seed);

/// How many different faults a side records in turn.
constexpr unsigned int kDifferentFaults = 64;

/// A way to record faults, each with the statistic of its code, into a file of `createFile`. One thread uses it.
class RecordingSide
{
public:
    virtual ~RecordingSide() = default;

    /// Records the next fault; it is on the storage then.
    virtual void record() = 0;
    void record(unsigned int faults);

protected:
    unsigned int nextTurn() { return m_turn = (m_turn + 1) % kDifferentFaults; }

private:
    unsigned int m_turn = 0;
};

/// A recorder that several sides may share.
class OpenRecorder
{
public:
    explicit OpenRecorder(std::string const& path, firaim::RecorderOptions const& options = {});

    /// Records so many faults, many in a call.
    void fill(unsigned int faults);
    firaim::FaultRecorder& get() { return m_recorder; }

private:
    firaim::FaultRecorder m_recorder;
};

class ByRecorder : public RecordingSide
{
public:
    explicit ByRecorder(OpenRecorder& recorder);
    using RecordingSide::record;
    void record() override;

private:
    firaim::FaultRecorder& m_recorder;
    std::vector<firaim::FaultEvent> m_events;
};

/// Bound, prepared statements in one transaction, as somebody would write them who needs no more than that: the texts
/// of a row are ready, and the statistic counts in SQL.
class ByHand : public RecordingSide
{
public:
    explicit ByHand(std::string const& path);
    ~ByHand() override;
    using RecordingSide::record;
    void record() override;

private:
    BareConnection m_connection;
    sqlite3_stmt* m_begin;
    sqlite3_stmt* m_insert;
    sqlite3_stmt* m_countActive;
    sqlite3_stmt* m_noteInactive;
    sqlite3_stmt* m_commit;
    std::vector<Fault> m_faults;
};

/// The facade's `insert` and `update`, each a transaction of its own. There is one at a time in a process.
class ByFacade : public RecordingSide
{
public:
    explicit ByFacade(std::string const& path);
    ~ByFacade() override;
    using RecordingSide::record;
    void record() override;

private:
    FaultDb& m_db;
    std::vector<Fault> m_faults;
    std::vector<FaultStatistic> m_statistics;
};

/// Adds rows with bound statements in one transaction.
void addFaults(std::string const& path, unsigned int faults);
