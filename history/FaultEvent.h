#pragma once

#include <db/FaultCode.h>
#include <fdb/records/FaultStatus.h>

#include <cstdint>
#include <optional>
#include <string>

namespace firaim
{

/// A fault as the application reports it; a plain value. The recorder fills in the members left out.
///
/// Texts are stored as they are: quotes, line ends, bytes of any encoding. A zero byte in a text is refused.
struct FaultEvent
{
    std::uint64_t code = 0;              ///< a faultCode_t or any other 32-bit number; a larger one is refused
    faultStatus_t status = FAULT_ACTIVE; ///< `raise` and `clear` ignore it
    std::string module;                  ///< module that reports the fault
    std::string parameter;               ///< parameter of the fault
    std::string description;             ///< description
    std::string signalsFile;             ///< file into which diagnostic signals were dumped
    std::string configBackup;            ///< configuration backup file

    std::optional<unsigned long long> time; ///< time stamp in the unit of the file, at most 2^63 - 1; default: now
    std::optional<std::string> timeZone;    ///< default: that of the recorder's options
    std::optional<unsigned int> upTime;     ///< seconds; default: since the machine's start
    std::optional<unsigned int> lifeTime;   ///< default: 0

    // For histories imported from elsewhere.
    std::optional<unsigned int> startupId;     ///< default: that of the recorder
    std::optional<std::string> codeName;       ///< default: the name that this build or the file has for the code
    std::optional<std::string> dateTimeText;   ///< default: the ISO 8601 text of `time` in UTC
    std::optional<std::string> systemTimeText; ///< default: the ISO 8601 text of the moment of the call in UTC
};

} // namespace firaim
