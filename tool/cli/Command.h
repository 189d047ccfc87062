#pragma once

#include <tool/cli/CommandLine.h>
#include <tool/process/Problem.h>
#include <tool/recording/FaultRecording.h>
#include <tool/store/FaultFilter.h>
#include <tool/terminal/Output.h>
#include <tool/values/Times.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tool
{

/// The parsed command line.
struct Request
{
    Output& output;
    std::function<int()> run; ///< runs the chosen command; returns the exit status
};

// Options that several commands share.
void addFile(Command& command, std::string& path);
void addJson(Command& command, bool& isJson);
void addTimeStyle(Command& command, TimeStyle& style);
/// All options that describe a fault, but not its code. Returns them, so that others can exclude them.
std::vector<Option> addFaultOptions(Command& command, FaultOptions& options);
void addFilters(Command& command, FilterOptions& filter);

/// Makes `request` call `run` with `options` when the command is chosen. The options declared for the command must
/// store their values in the same `options`.
template <class Options>
void runWith(Command& command, Request& request, std::shared_ptr<Options> options, int (*run)(Options const&, Output&))
{
    command.whenChosen([&request, options, run]
                       { request.run = [&request, options, run] { return run(*options, request.output); }; });
}

} // namespace tool
