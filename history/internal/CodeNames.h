#pragma once

#include <history/FaultEvent.h>
#include <history/internal/FaultState.h>

#include <cstdint>
#include <map>
#include <string>

namespace firaim
{

/// Chooses the name of a code for rows and statistics: that of the event, else of this build, else of the statistic,
/// else of the newest fault with a name.
class CodeNames
{
public:
    /// `state` must outlive this object.
    explicit CodeNames(FaultState const& state) : m_state(state) {}
    CodeNames(CodeNames const&) = delete;
    CodeNames& operator=(CodeNames const&) = delete;

    /// Whether the name of the event's code must be looked up in the fault rows.
    bool needsFaults(FaultEvent const& event);
    /// The name of the event's code. If `needsFaults`, it requires FaultState::areSourcesKnown.
    std::string const& nameOf(FaultEvent const& event, FaultStatistic const& statistic);

private:
    std::string const& builtInNameOf(std::uint32_t code);

    FaultState const& m_state;
    std::map<std::uint32_t, std::string> m_builtInNames;
};

} // namespace firaim
