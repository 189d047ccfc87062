#pragma once

#include <tool/files/SnapshotCopy.h>

#include <string>

namespace tool
{

/// The outcome of opening a copy with SQLite.
struct Opening
{
    std::string report; ///< one line
    /// The log of the copy still has to be read: SQLite has not taken it into the copy.
    bool isLogNeeded = false;
    /// How the tables differ from those that the library creates; empty if they do not, or SQLite cannot open the copy.
    std::string schemaProblems;
};

/// Lets SQLite roll back the journal of the copy at `path`, or take its log into it. If SQLite cannot, the bytes of the
/// file and its log are as they were, unless a journal was rolled back before SQLite gave up. Throws a Problem, and
/// interrupt::Interrupted.
Opening openCopy(std::string const& path, SnapshotCopy const& snapshot);

} // namespace tool
