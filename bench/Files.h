#pragma once

#include <fdb/records/Fault.h>
#include <fdb/records/FaultStatistic.h>

#include <cstddef>
#include <string>

#include <sqlite3.h>

/// A record as a device writes it: texts of 5 to 60 characters. `seed` tells several apart.
Fault deviceFault(unsigned int seed);
FaultStatistic deviceStatistic(unsigned int seed);

/// How many fault codes a device knows, and so how many statistics a file holds.
constexpr unsigned int kStatistics = 100;

/// A connection without the library.
class BareConnection
{
public:
    enum Settings
    {
        AS_THE_LIBRARY, ///< the settings of a connection that the library opened
        SQLITES_OWN     ///< what a user gets who sets nothing
    };

    BareConnection(std::string const& path, Settings settings);
    ~BareConnection();
    BareConnection(BareConnection const&) = delete;
    BareConnection& operator=(BareConnection const&) = delete;

    sqlite3* get() const { return m_db; }

    /// `sqlite3_exec`; ends the program when it fails.
    void exec(std::string const& sql) const;

    /// `sqlite3_get_table` and `sqlite3_free_table`.
    void getTable(std::string const& sql) const;

private:
    sqlite3* m_db = nullptr;
};

/// A folder of its own, removed with all that is in it.
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

/// The bytes of an INSERT text, on average.
std::size_t meanStatementSize();

/// Ends the program with a message unless `isGood`: what is measured must have worked.
void require(bool isGood, char const* what);
