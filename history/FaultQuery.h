#pragma once

#include <history/TimeStamp.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace firaim
{

/// Selects faults and their order. A member left out selects all. No member ever becomes SQL text: decoded
/// values are compared.
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
    std::optional<std::int64_t> since;     ///< time of the fault, milliseconds since 1970-01-01 UTC, not before this
    std::optional<std::int64_t> until;     ///< time of the fault, milliseconds since 1970-01-01 UTC, before this
    TimeUnit timeUnit = TimeUnit::GUESSED; ///< unit of the time stamps in the file, for `since` and `until`
    /// Part of the description, parameter, module, code name, signals file or configuration backup; letters A to Z
    /// match in either case.
    std::optional<std::string> text;
    std::optional<std::int64_t> afterKey;  ///< a larger key
    std::optional<std::int64_t> beforeKey; ///< a smaller key
    std::optional<std::uint64_t> limit;    ///< at most so many faults
};

} // namespace firaim
