#pragma once

#include "TestSupport.h"

#include <history/FaultReader.h>

#include <map>
#include <string>
#include <vector>

/// A fault database that the library has created, and a reader of it that is not open yet.
class HistoryTest : public testing::Test
{
protected:
    HistoryTest();

    /// Adds rows with the descriptions "fault 1" and so on, of code 1000 + number modulo 3, each of which has a
    /// start-up of 100 faults.
    void addFaults(int count) const;
    void exec(std::string const& sql) const { RawDb(path).exec(sql); }
    /// The keys that a query gives; a cursor that fails fails the test.
    std::vector<unsigned long long> keys(firaim::FaultQuery const& query);
    /// The bytes of every file in the folder, by name.
    std::map<std::string, std::string> folder() const;
    /// Copies the file, with a journal beside it, out of an unfinished transaction; returns the name of the copy.
    std::string makeHotJournal() const;

    TempDir dir;
    Console console; ///< takes the library's log lines
    std::string const path = dir.file("faults.db");
    firaim::FaultReader reader;
};

/// Takes the rights to write to a folder and what is in it, for as long as it lives.
class ReadOnlyMedium
{
public:
    explicit ReadOnlyMedium(std::string const& folder);
    ~ReadOnlyMedium();
    ReadOnlyMedium(ReadOnlyMedium const&) = delete;
    ReadOnlyMedium& operator=(ReadOnlyMedium const&) = delete;

private:
    std::string const m_folder;
};
