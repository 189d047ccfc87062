#pragma once

#include <tool/formats/Json.h>
#include <tool/terminal/Output.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tool
{

/// A kind of finding.
struct FindingKind
{
    char const* name;
    char const* advice;
    bool isProblem; ///< false: for information only
};

/// Prints the findings of a check as they are added, as text or as JSON, and a summary. As text, prints only the first
/// findings of a kind: a badly damaged file may have as many findings as cells.
class Findings
{
public:
    Findings(Output& output, bool isJson);

    /// `kind` must outlive this object.
    void add(FindingKind const& kind, std::string const& text);
    /// Prints the summary, or the end of the JSON list; `path` is the file.
    void end(std::string const& path);

    /// The number of findings that are problems.
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
    std::vector<Tally> m_tallies; ///< in the order of their first findings
    std::size_t m_problems = 0;
};

} // namespace tool
