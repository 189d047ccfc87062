#pragma once

#include <db/Export.h>
#include <db/FaultCode.h>
#include <fdb/records/FaultStatus.h>

#include <ostream>
#include <string>

/// The statistic of one fault code: a row of the table FdbFaultStatisticTbl. The members are named like the columns
/// (`OccurenceCnt` with one r, as in the file).
///
/// A plain value that owns its texts. Units, texts and large numbers are as for Fault.
class FIRAIM_EXPORT FaultStatistic
{
public:
    FaultStatistic() = default;
    /// Declared to suppress the move operations: an object that was passed on keeps its values.
    FaultStatistic(FaultStatistic const&) = default;
    /// As the copy constructor.
    FaultStatistic& operator=(FaultStatistic const&) = default;
    virtual ~FaultStatistic() = default;

    unsigned long long EntryId = 0;                      ///< row key, 64 bits; assigned by the database on insert
    faultCode_t FaultCode = static_cast<faultCode_t>(0); ///< the fault code counted here, 32 bits
    std::string FaultCodeName;                           ///< name of the fault code
    unsigned short OccurenceCnt = 0;                     ///< number of occurrences, 16 bits
    unsigned long long TimeFirstOccurredUTC =
        0; ///< first occurrence, UTC, 64 bits of which SQLite keeps 63; unit of the caller
    unsigned long long TimeLastOccurredUTC =
        0; ///< last occurrence, UTC, 64 bits of which SQLite keeps 63; unit of the caller
    faultStatus_t FaultActive = FAULT_INACTIVE; ///< whether the fault is active now, 32 bits
    std::string TimeZoneFirstOccurred;          ///< time zone of the first occurrence
    std::string TimeZoneLastOccurred;           ///< time zone of the last occurrence
    unsigned short FaultActiveCycleCnt = 0;     ///< cycles in which the fault was active, 16 bits
    unsigned long long FaultEntryId =
        0; ///< EntryId of the fault that this statistic refers to, 64 bits of which SQLite keeps 63
    unsigned int RdbStartupId = 0; ///< start-up under which the row was written, 32 bits
};

/// Writes the one-line text form used in log lines: values without labels and no line end. The stream's flags are
/// neither set nor reset. `EntryId`, `FaultCodeName` and the time zones do not appear; the code is shown in full, and
/// an unnamed activity number as nothing.
inline std::ostream& operator<<(std::ostream& out, FaultStatistic const& stat)
{
    out << "[FAULT_STATISTIC]: " << static_cast<unsigned int>(stat.FaultCode);
    out << ", " << stat.FaultCode;
    out << ", " << stat.TimeFirstOccurredUTC;
    out << ", " << stat.TimeLastOccurredUTC;
    out << ", " << stat.OccurenceCnt;
    out << ", ";
    if (stat.FaultActive == FAULT_INACTIVE)
    {
        out << "inactive";
    }
    else if (stat.FaultActive == FAULT_ACTIVE)
    {
        out << "active";
    }
    out << ", " << stat.FaultActiveCycleCnt;
    out << ", " << stat.FaultEntryId;
    return out << ", " << stat.RdbStartupId;
}
