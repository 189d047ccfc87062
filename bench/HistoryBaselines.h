#pragma once

#include "Files.h"

#include <fdb/FaultDb.h>
#include <history/FaultRecorder.h>

#include <string>
#include <vector>

/// The event of the fault `deviceFault(seed)`; the recorder fills in times and names.
firaim::FaultEvent deviceEvent(unsigned int seed);

/// Number of different faults that a side records in rotation.
constexpr unsigned int kDifferentFaults = 64;

/// One side of a comparison: records faults, each with the statistic of its code, into a file made by `createFile`.
/// Only one thread may use an object.
class RecordingSide
{
public:
    virtual ~RecordingSide() = default;

    /// Records the next fault durably: it is on the storage when the call returns.
    virtual void record() = 0;
    void record(unsigned int faults);

protected:
    unsigned int nextIndex() { return m_index = (m_index + 1) % kDifferentFaults; }

private:
    unsigned int m_index = 0;
};

/// An open recorder that several sides may share.
class OpenRecorder
{
public:
    explicit OpenRecorder(std::string const& path, firaim::RecorderOptions const& options = {});

    /// Records this number of faults, many in each call.
    void fill(unsigned int faults);
    firaim::FaultRecorder& get() { return m_recorder; }

private:
    firaim::FaultRecorder m_recorder;
};

class RecorderSide : public RecordingSide
{
public:
    explicit RecorderSide(OpenRecorder& recorder);
    using RecordingSide::record;
    void record() override;

private:
    firaim::FaultRecorder& m_recorder;
    std::vector<firaim::FaultEvent> m_events;
};

/// The baseline: prepared statements with bound values in one transaction, the least code that does the work. The texts
/// of a row exist beforehand, and SQL updates the statistic.
class BoundStatementSide : public RecordingSide
{
public:
    explicit BoundStatementSide(std::string const& path);
    ~BoundStatementSide() override;
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

/// The facade's `insert` and `update`, each in its own transaction. A process has only one facade.
class FacadeSide : public RecordingSide
{
public:
    explicit FacadeSide(std::string const& path);
    ~FacadeSide() override;
    using RecordingSide::record;
    void record() override;

private:
    FaultDb& m_db;
    std::vector<Fault> m_faults;
    std::vector<FaultStatistic> m_statistics;
};

/// Adds faults with bound statements in one transaction.
void addFaults(std::string const& path, unsigned int faults);
