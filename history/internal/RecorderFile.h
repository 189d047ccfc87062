#pragma once

#include <db/internal/Sqlite.h>

#include <string>

namespace firaim
{

/// Opens the fault database at `path` for recording, as FaultRecorder::open promises, and creates it where there is
/// none. Throws Failure or sqlite::Error.
sqlite::Connection openForRecording(std::string const& path, sqlite::Waiting const& waiting);

/// Creates the tables that are missing, and the version row. Throws sqlite::Error.
void createContent(sqlite::Connection const& connection);

/// Makes sure that the schema of the file is that of a fault database, and its format version ours, if that can be
/// read. Throws Failure where one of them is another's, and sqlite::Error where the schema cannot be read.
void requireFaultDatabase(std::string const& path, sqlite::Connection const& connection);

/// Whether all that the file holds can be read. Throws sqlite::Error when something else than the content keeps it from
/// being read.
bool isSound(sqlite::Connection const& connection);

} // namespace firaim
