#pragma once

#include <tool/store/FaultRequest.h>

#include <string>

namespace tool
{

/// Reads the fault in one line of JSON, an object whose fields are the columns of the fault table, or the names of the
/// options of `firaim record`. The key, which the file assigns, is passed over. Throws std::invalid_argument with what
/// is wrong.
FaultRequest readFault(std::string const& line, TimeStyle const& style);

} // namespace tool
