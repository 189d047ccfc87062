#pragma once

#include <db/FaultCode.h>
#include <fdb/records/FaultStatus.h>

#include <cstdint>
#include <optional>
#include <string>

namespace firaim
{

/// A fault as the application reports it; a plain value. The recorder fills in what is left out.
///
/// Texts are taken as they are: quotes, line ends, bytes of any encoding. A zero byte in one is refused.
struct FaultEvent
{
    std::uint64_t code = 0;              ///< a faultCode_t, or any number of 32 bits; a larger one is refused
    faultStatus_t status = FAULT_ACTIVE; ///< what `raise` and `clear` set themselves
    std::string module;                  ///< module that reports the fault
    std::string parameter;               ///< parameter of the fault
    std::string description;             ///< description
    std::string signalsFile;             ///< file into which diagnostic signals were dumped
    std::string configBackup;            ///< configuration backup file

    std::optional<unsigned long long> time; ///< stamp in the unit of the file, at most 2^63 - 1; now unless given
    std::optional<std::string> timeZone;    ///< that of the recorder's options unless given
    std::optional<unsigned int> upTime;     ///< seconds since the machine's start unless given
    std::optional<unsigned int> lifeTime;   ///< 0 unless given

    // For histories that are brought in from elsewhere.
    std::optional<unsigned int> startupId;     ///< that of the recorder unless given
    std::optional<std::string> codeName;       ///< the name that the file or this build has for the code unless given
    std::optional<std::string> dateTimeText;   ///< the ISO 8601 text of `time` in UTC unless given
    std::optional<std::string> systemTimeText; ///< the ISO 8601 text of the moment of recording in UTC unless given
};

} // namespace firaim
