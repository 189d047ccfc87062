#pragma once

#include <tool/cli/CommandLine.h>
#include <tool/process/Problem.h>
#include <tool/store/FaultFilter.h>
#include <tool/terminal/Output.h>
#include <tool/values/Times.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tool
{

/// What the command line asks for, filled while that is read.
struct Request
{
    Output& output;
    std::function<int()> run; ///< of the one command; returns the program's exit status
};

// Each adds one command to the program.
void addBackup(CommandLine& line, Request& request);
void addCheck(CommandLine& line, Request& request);
void addClear(CommandLine& line, Request& request);
void addCodes(CommandLine& line, Request& request);
void addCreate(CommandLine& line, Request& request);
void addExport(CommandLine& line, Request& request);
void addList(CommandLine& line, Request& request);
void addRecord(CommandLine& line, Request& request);
void addRecover(CommandLine& line, Request& request);
void addRenumber(CommandLine& line, Request& request);
void addShow(CommandLine& line, Request& request);
void addStats(CommandLine& line, Request& request);
void addSummary(CommandLine& line, Request& request);
void addTrim(CommandLine& line, Request& request);
void addWatch(CommandLine& line, Request& request);

// What several commands have in common.
void addFile(Command& command, std::string& path);
void addJson(Command& command, bool& isJson);
void addTimeStyle(Command& command, TimeStyle& style);
void addFilters(Command& command, FilterOptions& filter);

/// Lets `request` run `run` with `options`, which must be shared with the options of the command.
template <class Options>
void runWith(Command& command, Request& request, std::shared_ptr<Options> options, int (*run)(Options const&, Output&))
{
    command.whenChosen([&request, options, run]
                       { request.run = [&request, options, run] { return run(*options, request.output); }; });
}

} // namespace tool
