#include <history/internal/CodeNames.h>

#include <db/FaultCode.h>

#include <sstream>

namespace firaim
{

bool CodeNames::needsFaults(FaultEvent const& event)
{
    auto const code = static_cast<std::uint32_t>(event.code);
    auto const& statistics = m_state.statistics().all();
    auto const statistic = statistics.find(code);
    return !event.codeName && !isName(builtInNameOf(code)) &&
           !(statistic != statistics.end() && isName(statistic->second.FaultCodeName));
}

std::string const& CodeNames::nameOf(FaultEvent const& event, FaultStatistic const& statistic)
{
    if (event.codeName)
    {
        return *event.codeName;
    }
    std::string const& builtIn = builtInNameOf(static_cast<std::uint32_t>(event.code));
    if (isName(builtIn))
    {
        return builtIn;
    }
    if (isName(statistic.FaultCodeName))
    {
        return statistic.FaultCodeName;
    }
    std::string const& inFaults = m_state.nameInFaults(static_cast<std::uint32_t>(event.code));
    return inFaults.empty() ? builtIn : inFaults;
}

std::string const& CodeNames::builtInNameOf(std::uint32_t code)
{
    std::string& name = m_builtInNames[code];
    if (name.empty())
    {
        std::ostringstream text;
        text << static_cast<faultCode_t>(code);
        name = text.str();
    }
    return name;
}

} // namespace firaim
