#pragma once

#include <db/internal/LockWait.h>
#include <history/FaultRecorder.h>

#include <chrono>
#include <string>
#include <vector>

namespace tool
{

using Journal = firaim::RecorderOptions::Journal;

/// The names that commands take and print, the default first.
std::vector<std::string> const& journalNames();
std::string const& nameOf(Journal journal);
/// `name` must be one of the names.
Journal journalNamed(std::string const& name);

/// The journal of the fault database at `path`, which is only read. Throws a Problem.
Journal journalOf(std::string const& path);

/// Gives the fault database at `path` this journal, durably; a file that has it stays as it is. Nothing in a log is
/// lost: it is copied into the file first. Throws a Problem, also when the file is in use after `busyTimeout`: then
/// nothing has changed.
void changeJournal(std::string const& path, Journal journal,
                   std::chrono::milliseconds busyTimeout = lockWait::kBusyTimeout);

} // namespace tool
