#pragma once

#include "TestSupport.h"

#include <history/FaultReader.h>

#include <map>
#include <string>
#include <vector>

/// A fault database created by the library, and a reader that is not open yet.
class HistoryTest : public testing::Test
{
protected:
    HistoryTest();

    /// Adds faults with the descriptions "fault 1", "fault 2" and so on. The code is 1000 + number modulo 3; 100 faults
    /// share a start-up.
    void addFaults(int count) const;
    void exec(std::string const& sql) const { RawDb(path).exec(sql); }
    /// The keys of the faults that match a query. A failing cursor fails the test.
    std::vector<unsigned long long> keys(firaim::FaultQuery const& query);
    /// The content of every file in the folder, by name.
    std::map<std::string, std::string> folder() const;
    /// Copies the file and its journal during an unfinished transaction, so that the journal is hot. Returns the path
    /// of the copy.
    std::string makeHotJournal() const;

    TempDir dir;
    Console console; ///< captures the library's log lines
    std::string const path = dir.file("faults.db");
    firaim::FaultReader reader;
};

/// Removes write permission from a folder and its files while the object lives.
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
