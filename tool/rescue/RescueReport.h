#pragma once

#include <tool/rescue/MissingKeys.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tool
{

/// The outcome of a rescue.
struct RescueReport
{
    enum Result
    {
        COMPLETE, ///< every page of the tables was read, and nothing is doubtful or does not agree
        PARTIAL,
        NOTHING ///< there is no new file
    };

    struct Step
    {
        char const* name;
        std::string text; ///< one line
    };

    struct BadPage
    {
        PageNumber page; ///< 0: not known
        std::string table;
        KeyRange keys; ///< that its parents leave to it; all of them if nothing limits them
        bool isInterior;
        char const* reason;
    };

    Result result = NOTHING;
    std::vector<Step> steps;
    std::uint64_t recovered = 0;
    std::uint64_t doubtful = 0;
    MissingKeys missing;
    PageNumber pageCount = 0;
    PageNumber statedPageCount = 0;
    std::vector<BadPage> badPages;
    std::size_t keptStatistics = 0;
    std::size_t rebuiltStatistics = 0;
    std::vector<std::string> differences; ///< between the statistics, or the version, and the faults
};

} // namespace tool
