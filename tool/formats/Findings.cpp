#include <tool/formats/Findings.h>

#include <tool/terminal/SafeText.h>
#include <tool/values/Text.h>

#include <algorithm>

namespace tool
{

namespace
{

constexpr std::size_t kMostOfAKind = 20;

} // namespace

Findings::Findings(Output& output, bool isJson) : m_output(output)
{
    if (isJson)
    {
        m_array.emplace(output);
    }
}

Findings::Tally& Findings::tallyOf(FindingKind const& kind)
{
    auto const found =
        std::find_if(m_tallies.begin(), m_tallies.end(), [&](Tally const& tally) { return tally.kind == &kind; });
    return found != m_tallies.end() ? *found : m_tallies.emplace_back(Tally{&kind, 0});
}

void Findings::add(FindingKind const& kind, std::string const& text)
{
    Tally& tally = tallyOf(kind);
    ++tally.count;
    m_problems += kind.isProblem ? 1 : 0;
    if (m_array)
    {
        m_array->add({{"Kind", kind.name}, {"Problem", kind.isProblem}, {"Finding", text}, {"Advice", kind.advice}});
    }
    else if (tally.count <= kMostOfAKind)
    {
        m_output.writeLine(std::string(kind.name) + ": " + escape(text, m_output.terminal().isAsciiOnly()));
    }
}

void Findings::end(std::string const& path)
{
    if (m_array)
    {
        m_array->endLine();
        return;
    }
    for (Tally const& tally : m_tallies)
    {
        if (tally.count > kMostOfAKind)
        {
            m_output.writeLine(std::string(tally.kind->name) + ": and " + grouped(tally.count - kMostOfAKind) +
                               " more");
        }
    }
    for (Tally const& tally : m_tallies)
    {
        m_output.writeLine("what to do (" + std::string(tally.kind->name) + "): " + tally.kind->advice);
    }
    m_output.writeLine(escape(path, m_output.terminal().isAsciiOnly()) + ": " +
                       (m_problems == 0 ? "nothing is wrong" : counted(m_problems, "finding")));
}

} // namespace tool
