#pragma once

#include <db/Export.h>

#include <iosfwd>

/// The fault codes of the device, 32 bits wide and unsigned. Names and numbers come from db/FaultCodes.def, which the
/// device's maker can replace when configuring. A variable may hold any 32-bit number, with a name or without: the
/// library stores and returns it unchanged.
enum faultCode_t : unsigned int
{
#define FIRAIM_FAULT_CODE(name, number) name = (number),
// In angle brackets: the include path, not this folder, selects the table.
#include <db/FaultCodes.def>
#undef FIRAIM_FAULT_CODE
};

/// Writes the symbolic name of `code`; without a name, "UNKNOWN_FAULT_CODE(n)" with the whole 32-bit number in decimal,
/// whatever the stream's base and locale.
FIRAIM_EXPORT std::ostream& operator<<(std::ostream& out, faultCode_t code);
