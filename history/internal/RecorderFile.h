#pragma once

#include <db/internal/Sqlite.h>
#include <history/FaultRecorder.h>

#include <string>

namespace firaim
{

/// Opens the fault database at `path` for recording, as described at FaultRecorder::open; creates it if there is none.
/// Throws Failure or sqlite::Error.
sqlite::Connection openForRecording(std::string const& path, RecorderOptions::Journal journal,
                                    sqlite::Waiting const& waiting);

/// Creates the missing tables, and the version row. Throws sqlite::Error.
void createContent(sqlite::Connection const& connection);

/// Requires that the file has the schema of a fault database and, if it can be read, the supported format version.
/// Throws Failure if it has others, and sqlite::Error if the schema cannot be read.
void requireFaultDatabase(std::string const& path, sqlite::Connection const& connection);

/// Whether the whole content can be read. Throws sqlite::Error if it cannot be read for a reason other than its
/// content.
bool isSound(sqlite::Connection const& connection);

} // namespace firaim
