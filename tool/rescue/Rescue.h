#pragma once

#include <tool/rescue/RescueReport.h>

#include <functional>
#include <string>

namespace tool
{

/// A rescue to do.
struct RescueRequest
{
    std::string damaged;
    std::string target; ///< the new file
    bool areFreePagesTaken = false;
};

/// Shows how far a rescue is: its phase, and the share of it that is done, between 0 and 1.
using ShowPhase = std::function<void(char const* phase, double share)>;

/// Saves what can be read of a damaged fault database into a new one. Never writes to the damaged file or its folder.
/// The new file appears when it is whole and on the storage, and not at all if nothing can be saved. The caller checks
/// that its name is free. Throws a Problem, and interrupt::Interrupted; there is no new file then.
RescueReport rescueFile(RescueRequest const& request, ShowPhase const& show);

} // namespace tool
