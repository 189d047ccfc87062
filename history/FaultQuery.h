#pragma once

#include <history/TimeStamp.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace firaim
{

/// Which faults are wanted, and in what order; what is left out does not matter. Nothing of it ever becomes SQL text:
/// the decoded values are compared.
struct FaultQuery
{
    /// Order of the keys.
    enum Order
    {
        NEWEST_FIRST,
        OLDEST_FIRST
    };

    Order order = NEWEST_FIRST;            ///< by key
    std::vector<std::uint32_t> codes;      ///< any of these
    std::vector<std::string> modules;      ///< any of these, byte by byte
    std::vector<unsigned int> startups;    ///< any of these start-up ids
    bool isActiveOnly = false;             ///< recorded as active
    std::optional<std::int64_t> since;     ///< dated then or later, in milliseconds since 1970 UTC
    std::optional<std::int64_t> until;     ///< dated before then
    TimeUnit timeUnit = TimeUnit::GUESSED; ///< of the stamps in the file, for `since` and `until`
    /// Mentioned in description, parameter, module, code name, signals file or configuration backup, whatever the case
    /// of the letters A to Z.
    std::optional<std::string> text;
    std::optional<std::int64_t> afterKey;  ///< with a larger key
    std::optional<std::int64_t> beforeKey; ///< with a smaller key
    std::optional<std::uint64_t> limit;    ///< no more than the first so many of them
};

} // namespace firaim
