#pragma once

#include "ToolProcess.h"

#include <string>

/// A file of many pages, and copies of it with damaged ones.
class DamagedFile : public ToolTest
{
protected:
    static constexpr int kFaults = 600;
    static constexpr std::size_t kPageSize = 4096;

    /// Creates a file with faults of the keys 1 to `kFaults`, a hundred for each start-up, and their statistic.
    DamagedFile()
    {
        create();
        RawDb(path).exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                         std::to_string(kFaults) +
                         ") INSERT INTO FdbFaultTbl SELECT NULL, '', 1025, 'FC_BUS_OFF', 'can0', 'p', 1935630121000, "
                         "'UTC', 'ErrorActive', 'some text of some length ' || i, '', 1, 2, '', i / 100, '' FROM n;"
                         "INSERT INTO FdbFaultStatisticTbl VALUES(NULL, 1025, 'FC_BUS_OFF', 1935630121000, "
                         "1935630121000, 'UTC', 'UTC', " +
                         std::to_string(kFaults) + ", 'active', 1, " + std::to_string(kFaults) + ", 6)");
        m_bytes = readFile(path);
    }

    std::size_t pageCount() const { return m_bytes.size() / kPageSize; }
    std::string page(std::size_t number) const { return m_bytes.substr((number - 1) * kPageSize, kPageSize); }

    /// Overwrites a page of the file as it is now.
    void overwritePage(std::size_t number, std::string const& content)
    {
        std::string bytes = readFile(path);
        writeFile(path, bytes.replace((number - 1) * kPageSize, kPageSize, content));
    }
    void damagePage(std::size_t number) { overwritePage(number, std::string(kPageSize, '\x55')); }
    void cutOff(std::size_t size) { writeFile(path, m_bytes.substr(0, size)); }
    /// The root page of a table of the sound file.
    std::size_t rootOf(std::string const& table)
    {
        writeFile(dir.file("sound.db"), m_bytes);
        return std::stoul(
            RawDb(dir.file("sound.db")).value("SELECT rootpage FROM sqlite_master WHERE name = '" + table + "'"));
    }

private:
    std::string m_bytes; ///< of the sound file
};
