#pragma once

#include <tool/formats/Json.h>
#include <tool/terminal/Output.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tool
{

/// A kind of thing that a check can find.
struct FindingKind
{
    char const* name;
    char const* advice;
    bool isProblem; ///< or only worth knowing
};

/// Prints what a check finds as it finds it, as text or as JSON, and sums up. Prints only the first
/// findings of a kind as text: a badly damaged file would have as many findings as cells.
class Findings
{
public:
    Findings(Output& output, bool isJson);

    /// `kind` must outlive this object.
    void add(FindingKind const& kind, std::string const& what);
    /// Prints the last line; `path` is the file.
    void end(std::string const& path);

    /// How many of them are problems.
    std::size_t problems() const { return m_problems; }

private:
    struct Tally
    {
        FindingKind const* kind;
        std::size_t count;
    };

    Tally& tallyOf(FindingKind const& kind);

    Output& m_output;
    std::optional<JsonArray> m_array;
    std::vector<Tally> m_tallies; ///< in the order in which the kinds were met
    std::size_t m_problems = 0;
};

} // namespace tool
