#pragma once

#include <tool/recording/FaultRequest.h>

#include <string>

namespace tool
{

/// Reads the fault in one line of JSON: an object whose fields are named like the columns of the fault table or the
/// options of `firaim record`. The key is ignored, because the file assigns a new one. Throws std::invalid_argument
/// with the problem as its text.
FaultRequest readFault(std::string const& line, TimeStyle const& style);

} // namespace tool
