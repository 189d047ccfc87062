#pragma once

#include <tool/recording/FaultRequest.h>
#include <tool/terminal/Output.h>
#include <tool/values/Times.h>

#include <history/FaultEvent.h>
#include <history/FaultRecorder.h>

#include <optional>
#include <string>
#include <vector>

namespace tool
{

/// The options on the command line that describe a fault.
struct FaultOptions
{
    std::string code;
    std::string time;                  ///< empty: now
    std::optional<std::string> module; ///< for `clear`, an empty one differs from none
    std::optional<std::string> parameter;
    firaim::FaultEvent event; ///< the values of the other options
};

/// A file that is open for recording, and the event that the options describe.
struct FaultRecording
{
    /// Opens the existing fault database at `path`. Throws a Problem; for options that are invalid in any file, before
    /// it opens this one.
    FaultRecording(std::string const& path, FaultOptions const& options, TimeStyle const& style);

    firaim::FaultRecorder recorder;
    FaultCompleter completer;
    firaim::FaultEvent event;
};

/// Prints the keys of recorded faults, at least one, each on a line. If that fails, prints the first and the last one
/// to standard error before it throws: the faults are recorded nevertheless.
void printKeys(std::vector<unsigned long long> const& keys, Output& output);

} // namespace tool
