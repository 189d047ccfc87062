#pragma once

#include "Files.h"
#include "Workloads.h"

#include <fdb/FaultDb.h>

#include <memory>
#include <string>

constexpr unsigned int kRecords = 64;      ///< different records, used in rotation
constexpr unsigned int kSmallTable = 1000; ///< faults in the table of a workload that reads or writes one row

constexpr char kFaultTbl[] = "FdbFaultTbl";
constexpr char kStatisticTbl[] = "FdbFaultStatisticTbl";

/// Keeps the library's database open for its lifetime.
class OpenDatabase
{
public:
    explicit OpenDatabase(std::string const& path) { require(db->openDb(path, false) == 0, "openDb"); }
    ~OpenDatabase() { db->closeDb(); }
    OpenDatabase(OpenDatabase const&) = delete;
    OpenDatabase& operator=(OpenDatabase const&) = delete;

    FaultDb* const db = FaultDb::getInstance();
};

/// Two equal files, one for the library and one for the baseline.
class TwoFiles
{
public:
    TwoFiles(std::string const& folder, unsigned int faults) : m_folder(folder)
    {
        createFile(ownFile(), faults);
        createFile(baselineFile(), faults);
    }

    std::string ownFile() const { return m_folder.file("library.db"); }
    std::string baselineFile() const { return m_folder.file("baseline.db"); }

private:
    Folder m_folder;
};

/// A workload whose sides write: each has its own file.
class TwoFileWorkload : public Workload
{
public:
    TwoFileWorkload(std::string const& folder, unsigned int faults, BareConnection::Settings settings)
        : m_files(folder, faults), m_database(m_files.ownFile()), connection(m_files.baselineFile(), settings)
    {
    }

private:
    TwoFiles m_files;
    OpenDatabase m_database;

protected:
    FaultDb& db = *m_database.db;
    BareConnection connection;
};

/// A workload whose sides share one file, whose content does not change.
class OneFileWorkload : public Workload
{
public:
    explicit OneFileWorkload(std::string const& path)
        : m_database(path), connection(path, BareConnection::LIBRARY_SETTINGS)
    {
    }

private:
    OpenDatabase m_database;

protected:
    FaultDb& db = *m_database.db;
    BareConnection connection;
};

/// Index of the next record, in rotation.
class Rotation
{
public:
    unsigned int next() { return m_index = (m_index + 1) % kRecords; }

private:
    unsigned int m_index = 0;
};

template <class Tbl>
std::unique_ptr<Tbl> makeTbl(char const* name)
{
    auto tbl = std::make_unique<Tbl>(name);
    tbl->init("");
    return tbl;
}
