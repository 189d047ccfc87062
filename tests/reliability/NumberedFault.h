#pragma once

#include <fdb/records/Fault.h>

#include <string>

/// Fault number `index` of a writer. All members depend on these two numbers, so that a reader can detect a partial
/// row.
inline Fault numberedFault(unsigned int writer, unsigned int index)
{
    std::string const text = std::to_string(writer) + "/" + std::to_string(index);
    Fault fault;
    fault.DateTimeString = "date " + text;
    fault.FaultCode = static_cast<faultCode_t>(writer);
    fault.FaultCodeName = "name " + text;
    fault.Parameter = "parameter " + text;
    fault.TimeStampUTC = writer * 1000000ULL + index;
    fault.Status = index % 2 == 0 ? FAULT_ACTIVE : FAULT_INACTIVE;
    // Some span several pages.
    fault.Description = "description " + text + std::string(index % 8 == 0 ? 9000 : 0, '+');
    fault.DiagSignalsDumpFileName = "dump " + text;
    fault.ModuleName = "module " + text;
    fault.TimeZone = "zone " + text;
    fault.LoggerUpTime = index;
    fault.LoggerLifeTime = writer;
    fault.CfgBackupFile = "backup " + text;
    fault.RdbStartupId = index + writer;
    fault.SystemDateTimeString = "system " + text;
    return fault;
}
