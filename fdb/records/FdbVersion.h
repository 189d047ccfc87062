#pragma once

#include <db/Export.h>

#include <string>

/// The version of one component: a row of the table FdbVersionTbl. The members are named like the columns. The row with
/// the component "FormatVersion" holds the format of the file. A plain value that owns its texts.
class FIRAIM_EXPORT FdbVersion
{
public:
    FdbVersion() = default;
    /// Declared to suppress the move operations: an object that was passed on keeps its values.
    FdbVersion(FdbVersion const&) = default;
    /// As the copy constructor.
    FdbVersion& operator=(FdbVersion const&) = default;

    unsigned short VersionEntryId = 0; ///< row key, 16 bits; assigned by the database on insert
    std::string Component;             ///< name of the versioned item
    std::string Version;               ///< version text, for example "1.0.0"
};
