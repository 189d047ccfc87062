#include <history/internal/QueryFilter.h>

#include <algorithm>
#include <utility>

namespace firaim
{

namespace
{

char lowered(char letter)
{
    // ASCII only and the same in every locale: the encoding of the texts is not known.
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool contains(std::string const& text, std::string const& lowerCaseText)
{
    auto const isSame = [](char letter, char wanted) { return lowered(letter) == wanted; };
    return std::search(text.begin(), text.end(), lowerCaseText.begin(), lowerCaseText.end(), isSame) != text.end() ||
           lowerCaseText.empty();
}

/// Whether `value` is one of `wanted`, or `wanted` is empty.
template <class Value>
bool isWanted(std::vector<Value> const& wanted, Value const& value)
{
    return wanted.empty() || std::find(wanted.begin(), wanted.end(), value) != wanted.end();
}

} // namespace

QueryFilter::QueryFilter(FaultQuery query) : m_query(std::move(query))
{
    if (m_query.text)
    {
        std::transform(m_query.text->begin(), m_query.text->end(), m_query.text->begin(), lowered);
    }
}

bool QueryFilter::accepts(Fault const& fault) const
{
    return isWanted(m_query.codes, static_cast<std::uint32_t>(fault.FaultCode)) &&
           isWanted(m_query.startups, fault.RdbStartupId) && (!m_query.isActiveOnly || fault.Status == FAULT_ACTIVE) &&
           isWanted(m_query.modules, fault.ModuleName) && isInTime(fault) && isMentionedIn(fault);
}

bool QueryFilter::isInTime(Fault const& fault) const
{
    if (!m_query.since && !m_query.until)
    {
        return true;
    }
    std::optional<std::int64_t> const time = timeOf(fault.TimeStampUTC, m_query.timeUnit);
    return time && (!m_query.since || *time >= *m_query.since) && (!m_query.until || *time < *m_query.until);
}

bool QueryFilter::isMentionedIn(Fault const& fault) const
{
    if (!m_query.text)
    {
        return true;
    }
    for (std::string const* const member : {&fault.Description, &fault.Parameter, &fault.ModuleName,
                                            &fault.FaultCodeName, &fault.DiagSignalsDumpFileName, &fault.CfgBackupFile})
    {
        if (contains(*member, *m_query.text))
        {
            return true;
        }
    }
    return false;
}

} // namespace firaim
