#pragma once

#include "ToolProcess.h"

#include <nlohmann/json.hpp>

using Json = nlohmann::json;

inline constexpr std::size_t kPage = 4096;

/// A sample file, and the new one that a rescue makes of it in another folder.
class RescueFixture : public ToolTest
{
protected:
    RescueFixture() { createSample(); }

    /// Adds sound faults, so that the table has about one page for each 50 of them.
    void fill(int count)
    {
        RawDb(path).exec(
            "INSERT INTO FdbFaultTbl SELECT NULL, s.DateTimeString, s.FaultCode, s.FaultCodeName, s.ModuleName, "
            "s.Parameter, s.TimeStampUTC, s.TimeZone, 'ErrorInactive', s.Description, "
            "s.DiagSignalsDumpFileName, s.LoggerUpTime, s.LoggerLifeTime, s.CfgBackupFile, s.RdbStartupId, "
            "s.SystemDateTimeString FROM FdbFaultTbl s, (WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 "
            "FROM n WHERE i < " +
            std::to_string(count) + ") SELECT i FROM n) WHERE s.EntryId = 1");
    }

    /// Adds a sound fault with this description, which no statistic has to count.
    void insertInactive(std::string const& description)
    {
        insertFault("Description, Status", description + ", 'ErrorInactive'");
    }

    Json rescue(int status, std::vector<std::string> const& options = {})
    {
        std::vector<std::string> arguments = {"rescue", path, rescued, "--json"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        Outcome const outcome = runTool(arguments);
        EXPECT_EQ(outcome.status, status) << outcome.output;
        EXPECT_EQ(outcome.errors, "");
        return Json::parse(outcome.output, nullptr, false);
    }

    /// Overwrites a page, counted from 1.
    void overwrite(std::size_t page, std::string const& content)
    {
        std::string bytes = readFile(path);
        bytes.replace((page - 1) * kPage, kPage, content);
        writeFile(path, bytes);
    }

    /// All faults of a file.
    static std::vector<RawDb::Row> faults(std::string const& file)
    {
        return RawDb(file).rows("SELECT * FROM FdbFaultTbl ORDER BY EntryId");
    }

    /// A page of the fault table, from 1 on, in the order of their keys.
    std::size_t leaf(int number) const
    {
        // Page 2 is the root; its cells name the leaves.
        std::string const bytes = readFile(path).substr(kPage, kPage);
        auto const byte = [&](std::size_t offset) { return static_cast<unsigned char>(bytes[offset]); };
        std::size_t const pointer = 12 + 2 * static_cast<std::size_t>(number - 1);
        std::size_t const cell = std::size_t{byte(pointer)} << 8 | byte(pointer + 1);
        return std::size_t{byte(cell + 2)} << 8 | byte(cell + 3);
    }

    TempDir elsewhere;
    std::string const rescued = elsewhere.file("new.db");
};
