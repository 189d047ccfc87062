#pragma once

#include "RecorderFixtures.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <sys/stat.h>

/// A fault database that a test damages, and the copies that are set aside beside it.
class DamageTest : public FaultRecorderTest
{
protected:
    static constexpr std::uint32_t kIncident = 4711;
    static constexpr std::size_t kPage = 4096;

    static firaim::RecorderOptions settingAside()
    {
        firaim::RecorderOptions options;
        options.setAsideCode = kIncident;
        return options;
    }

    /// Creates a database with `count` inactive rows of code 7.
    void create(int count = 200) const
    {
        createWithFacade();
        exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(count) +
             ") INSERT INTO FdbFaultTbl SELECT NULL, 'date', 7, 'name', 'module', 'parameter', 1772366400000 + i, "
             "'UTC', 'ErrorInactive', 'fault ' || i || hex(zeroblob(100)), 'dump', 1, 2, 'backup', 1, 'system' FROM n");
    }

    static void overwrite(std::string const& file, std::size_t offset, std::string const& bytes)
    {
        std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
        stream.seekp(static_cast<std::streamoff>(offset));
        stream << bytes;
        ASSERT_TRUE(stream.flush());
    }
    void destroyFirstPage() const { overwrite(path, 0, std::string(kPage, '\x5a')); }
    void destroyPage(std::string const& number) const
    {
        overwrite(path, (std::stoul(number) - 1) * kPage, std::string(kPage, '\x5a'));
    }

    /// The content of the copies, by file name.
    std::map<std::string, std::string> copies() const
    {
        std::map<std::string, std::string> found;
        for (auto const& [name, bytes] : filesIn(dir.path()))
        {
            if (name.find(".aside-") != std::string::npos)
            {
                found[name] = bytes;
            }
        }
        return found;
    }

    ino_t inode() const
    {
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0);
        return status.st_ino;
    }

    /// Expects a new file with `rowCount` rows, the first of which reports the damage.
    void expectAnew(std::string const& rowCount) const
    {
        EXPECT_EQ(value("PRAGMA integrity_check"), "ok");
        EXPECT_EQ(value(kCountOfFaults), rowCount);
        EXPECT_EQ(value("SELECT FaultCode FROM FdbFaultTbl WHERE EntryId = 1"), std::to_string(kIncident));
        EXPECT_EQ(value("SELECT Description LIKE '%damaged%begins anew%/faults.db.aside-20__-__-__-%' FROM FdbFaultTbl "
                        "WHERE EntryId = 1"),
                  "1");
        EXPECT_EQ(statistic(kIncident, "OccurenceCnt"), "1");
    }
};
