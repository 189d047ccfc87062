#pragma once

#include "Files.h"
#include "Workloads.h"

#include <fdb/FaultDb.h>

#include <memory>
#include <string>

constexpr unsigned int kRecords = 64;      ///< different records that are written in turn
constexpr unsigned int kSmallTable = 1000; ///< faults in a table of which one is read or written

constexpr char kFaultTbl[] = "FdbFaultTbl";
constexpr char kStatisticTbl[] = "FdbFaultStatisticTbl";

/// The library's database, open for as long as the object lives.
class OpenDatabase
{
public:
    explicit OpenDatabase(std::string const& path) { require(db->openDb(path, false) == 0, "openDb"); }
    ~OpenDatabase() { db->closeDb(); }
    OpenDatabase(OpenDatabase const&) = delete;
    OpenDatabase& operator=(OpenDatabase const&) = delete;

    FaultDb* const db = FaultDb::getInstance();
};

/// A file for each side.
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

/// Both sides on files of their own.
class OnTwoFiles : public Workload
{
public:
    OnTwoFiles(std::string const& folder, unsigned int faults, BareConnection::Settings settings)
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

/// Both sides on one file that holds the same all the time.
class OnOneFile : public Workload
{
public:
    explicit OnOneFile(std::string const& path) : m_database(path), connection(path, BareConnection::AS_THE_LIBRARY) {}

private:
    OpenDatabase m_database;

protected:
    FaultDb& db = *m_database.db;
    BareConnection connection;
};

/// Counts up to the number of records and begins anew.
class Turn
{
public:
    unsigned int next() { return m_turn = (m_turn + 1) % kRecords; }

private:
    unsigned int m_turn = 0;
};

template <class Tbl>
std::unique_ptr<Tbl> makeTbl(char const* name)
{
    auto tbl = std::make_unique<Tbl>(name);
    tbl->init("");
    return tbl;
}
