#include <db/FaultCode.h>

#include <ostream>
#include <string>

namespace
{

char const* symbolicName(faultCode_t code)
{
    switch (code)
    {
#define FIRAIM_FAULT_CODE(name, number)                                                                                \
    case name:                                                                                                         \
        return #name;
#include <db/FaultCodes.def>
#undef FIRAIM_FAULT_CODE
    }
    return nullptr;
}

} // namespace

std::ostream& operator<<(std::ostream& out, faultCode_t code)
{
    if (char const* const name = symbolicName(code))
    {
        return out << name;
    }
    // Written as one string, so that a field width set on the stream pads the whole text.
    return out << "UNKNOWN_FAULT_CODE(" + std::to_string(static_cast<unsigned int>(code)) + ")";
}
