#pragma once

#include <db/Export.h>
#include <db/FaultCode.h>
#include <fdb/records/FaultStatus.h>

#include <ostream>
#include <string>

/// One recorded fault: a row of the table FdbFaultTbl. The members are named like the columns.
///
/// A plain value that owns its texts. Times and counters are stored and returned in the caller's units; the library
/// does not interpret them. Texts are bytes of any encoding without a zero byte; a single quote is written as a pair
/// (see FaultDb::insert). Numbers above 2^63 - 1 do not fit SQLite's integers and come back changed.
///
/// The order of declaration is not the order of columns: file and statements follow the column ids of FdbSqlFaultTbl.
class FIRAIM_EXPORT Fault
{
public:
    Fault() = default;
    /// Declared to suppress the move operations: an object that was passed on keeps its values.
    Fault(Fault const&) = default;
    /// As the copy constructor.
    Fault& operator=(Fault const&) = default;
    virtual ~Fault() = default;

    unsigned long long EntryId = 0; ///< row key, 64 bits; assigned by the database on insert
    std::string DateTimeString;     ///< date and time of the fault as text, UTC; format of the caller
    faultCode_t FaultCode = static_cast<faultCode_t>(0); ///< fault code, 32 bits
    std::string FaultCodeName;                           ///< name of the fault code
    std::string Parameter;                               ///< parameter of the fault
    unsigned long long TimeStampUTC =
        0; ///< time of the fault, UTC, 64 bits of which SQLite keeps 63; unit of the caller
    faultStatus_t Status = FAULT_INACTIVE; ///< whether the error is active, 32 bits
    std::string Description;               ///< description
    std::string DiagSignalsDumpFileName;   ///< file into which diagnostic signals were dumped
    std::string ModuleName;                ///< module that reported the fault
    std::string TimeZone;                  ///< time zone; format of the caller
    unsigned int LoggerUpTime = 0;         ///< up-time of the device, 32 bits; unit of the caller
    unsigned int LoggerLifeTime = 0;       ///< life-time of the device, 32 bits; unit of the caller
    std::string CfgBackupFile;             ///< configuration backup file
    unsigned int RdbStartupId = 0;         ///< start-up under which the fault was recorded, 32 bits
    std::string SystemDateTimeString;      ///< system date and time as text, UTC; format of the caller
};

/// Writes the one-line text used in log lines, without a line end. The stream's flags are neither set nor reset. The
/// text has the low 16 bits of the code and the symbolic name of the whole code; it lacks `FaultCodeName` and
/// `TimeZone`, and a status number without a name is empty.
inline std::ostream& operator<<(std::ostream& out, Fault const& fault)
{
    out << "[FAULT]: "
        << "DbId=" << fault.EntryId;
    out << ", TimeStamp=" << fault.TimeStampUTC;
    out << ", TimeStampDate[UTC]=" << fault.DateTimeString;
    out << ", SystemDate[UTC]=" << fault.SystemDateTimeString;
    out << ", FCode=" << static_cast<unsigned short>(fault.FaultCode);
    out << ", FCodeName=" << fault.FaultCode;
    out << ", Param=" << fault.Parameter;
    out << ", TxModule=" << fault.ModuleName;
    out << ", Status=";
    if (fault.Status == FAULT_INACTIVE)
    {
        out << "ErrorInactive";
    }
    else if (fault.Status == FAULT_ACTIVE)
    {
        out << "ErrorActive";
    }
    out << ", Des=" << fault.Description;
    out << ", DiagSigFile=" << fault.DiagSignalsDumpFileName;
    out << ", UpTime=" << fault.LoggerUpTime;
    out << ", LifeTime=" << fault.LoggerLifeTime;
    out << ", CfgBuFile=" << fault.CfgBackupFile;
    return out << ", RDB StartupId=" << fault.RdbStartupId;
}
