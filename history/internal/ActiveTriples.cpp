#include <history/internal/ActiveTriples.h>

namespace firaim
{

void ActiveTriples::set(std::uint32_t code, SourceView const& source, std::optional<std::int64_t> key)
{
    Sources& sources = m_active[code];
    auto const found = sources.find(source);
    if (!key && found != sources.end())
    {
        sources.erase(found);
    }
    else if (key && found != sources.end())
    {
        found->second = *key;
    }
    else if (key)
    {
        sources.emplace(Source(source), *key);
    }
}

void ActiveTriples::change(std::uint32_t code, SourceView const& source, std::optional<std::int64_t> key)
{
    m_changes.push_back({code, Source(source), keyOf(code, source)});
    set(code, source, key);
}

void ActiveTriples::rolledBack()
{
    for (auto change = m_changes.rbegin(); change != m_changes.rend(); ++change)
    {
        Sources& sources = m_active[change->code];
        if (change->before)
        {
            sources[change->source] = *change->before;
        }
        else
        {
            sources.erase(change->source);
        }
    }
    m_changes.clear();
}

void ActiveTriples::clear()
{
    m_active.clear();
    m_changes.clear();
}

std::optional<std::int64_t> ActiveTriples::keyOf(std::uint32_t code, SourceView const& source) const
{
    Sources const& sources = of(code);
    auto const found = sources.find(source);
    return found != sources.end() ? std::optional(found->second) : std::nullopt;
}

Sources const& ActiveTriples::of(std::uint32_t code) const
{
    auto const found = m_active.find(code);
    return found != m_active.end() ? found->second : m_none;
}

} // namespace firaim
