#pragma once

#include <fdb/records/Fault.h>
#include <fdb/records/FaultStatistic.h>

#include <cstddef>
#include <string>

#include <sqlite3.h>

/// A record as a device writes it, with texts of 5 to 60 characters. Different seeds give different records.
Fault deviceFault(unsigned int seed);
FaultStatistic deviceStatistic(unsigned int seed);

/// Number of the device's fault codes, and so of the statistics in a file.
constexpr unsigned int kStatistics = 100;

/// A connection that uses SQLite directly, without the library.
class BareConnection
{
public:
    enum Settings
    {
        LIBRARY_SETTINGS, ///< the settings of a connection that the library opened
        SQLITE_DEFAULTS   ///< no settings beyond SQLite's defaults
    };

    BareConnection(std::string const& path, Settings settings);
    ~BareConnection();
    BareConnection(BareConnection const&) = delete;
    BareConnection& operator=(BareConnection const&) = delete;

    sqlite3* get() const { return m_db; }

    /// Calls `sqlite3_exec`; ends the program when it fails.
    void exec(std::string const& sql) const;

    /// Calls `sqlite3_get_table` and `sqlite3_free_table`; ends the program when it fails.
    void getTable(std::string const& sql) const;

private:
    sqlite3* m_db = nullptr;
};

/// A temporary folder, removed with its content.
class Folder
{
public:
    explicit Folder(std::string const& parent);
    ~Folder();
    Folder(Folder const&) = delete;
    Folder& operator=(Folder const&) = delete;

    std::string file(std::string const& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

/// Creates a database of the library with `faults` faults and the statistics. All faults have the start-up id 1.
void createFile(std::string const& path, unsigned int faults);

/// Mean size of an INSERT text, in bytes.
std::size_t meanStatementSize();

/// Ends the program with a message unless `isGood`: a failed operation must not be measured.
void require(bool isGood, char const* what);
