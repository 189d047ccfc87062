#pragma once

#include <string>

namespace tool
{

// A journal or a log with content that lies beside the name of a new file is the remains of a database of that name.
// SQLite would remove it, or roll it back into the new file, although it may hold faults. A journal with a zeroed head
// lies beside every file that was ever written to, and holds nothing.

/// Throws a Problem if there are remains beside the new file `path`. `advice` ends its text.
void requireNoRemains(std::string const& path, std::string const& advice);

/// Removes the remains and says on standard error what goes. Their removal is on the storage before the new file
/// appears: otherwise a power cut could bring them back beside it. Throws a Problem.
void removeRemains(std::string const& path);

/// Throws a Problem if SQLite would take a file named `copy` for the journal or the log of the file at `path`.
void requireNoJournalName(std::string const& path, std::string const& copy);

} // namespace tool
