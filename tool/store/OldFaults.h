#pragma once

#include <tool/values/Times.h>

#include <cstdint>
#include <optional>
#include <string>

namespace tool
{

/// Tells which faults are not old. Exactly one of `keep` and `since` is set.
struct Retention
{
    std::optional<unsigned int> keep; ///< so many of the newest faults
    /// Faults from this time on, in milliseconds since 1970, and those without a time.
    std::optional<std::int64_t> since;
    TimeUnit unit = TimeUnit::GUESSED; ///< of the time stamps in the file
};

/// The numbers of old faults.
struct OldFaultCounts
{
    unsigned long long removed = 0; ///< or removable
    unsigned long long kept = 0;    ///< needed to tell what is active, or an active statistic refers to them
};

/// Counts the faults that `removeOldFaults` would remove from the file at `path`, which it only reads. Throws a
/// Problem.
OldFaultCounts countOldFaults(std::string const& path, Retention const& retention);

/// Removes the old faults that nothing active needs in one durable transaction. Throws like `changeFile`.
OldFaultCounts removeOldFaults(std::string const& path, Retention const& retention);

} // namespace tool
