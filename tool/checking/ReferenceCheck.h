#pragma once

#include <db/internal/Sqlite.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tool
{

/// A statistic whose fault is missing.
struct MissingReference
{
    std::string text;
    std::int64_t fault;
    /// The key was once used and no active statistic refers to it: 'firaim trim' may have removed the fault.
    bool isExplained;
};

/// Throws sqlite::Error, as the other one does.
void findMissingReferences(sqlite::Connection const& connection,
                           std::function<void(MissingReference const&)> const& take);

/// Hands a text to `take` for each code with several statistics.
void findSharedCodes(sqlite::Connection const& connection, std::function<void(std::string const&)> const& take);

/// The format versions in the file, of which there should be one.
std::vector<std::string> readFormatVersions(sqlite::Connection const& connection);

} // namespace tool
