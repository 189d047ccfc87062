#pragma once

#include "FaultFilter.h"
#include "Output.h"
#include "Times.h"

#include <CLI/CLI.hpp>

#include <functional>
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
void addBackup(CLI::App& app, Request& request);
void addCheck(CLI::App& app, Request& request);
void addClear(CLI::App& app, Request& request);
void addCodes(CLI::App& app, Request& request);
void addCreate(CLI::App& app, Request& request);
void addExport(CLI::App& app, Request& request);
void addList(CLI::App& app, Request& request);
void addRecord(CLI::App& app, Request& request);
void addRecover(CLI::App& app, Request& request);
void addRenumber(CLI::App& app, Request& request);
void addShow(CLI::App& app, Request& request);
void addStats(CLI::App& app, Request& request);
void addSummary(CLI::App& app, Request& request);
void addTrim(CLI::App& app, Request& request);
void addWatch(CLI::App& app, Request& request);

/// A command with its help: what it does and `examples`, a line each.
CLI::App* addCommand(CLI::App& app, std::string const& name, std::string const& description,
                     std::string const& examples);

/// An option with a number that is not negative: without this check a minus sign would make a huge one of it.
template <class Number>
CLI::Option* addNumber(CLI::App& command, std::string const& name, Number& number, std::string const& description)
{
    return command.add_option(name, number, description)
        ->check([](std::string const& text)
                { return text.find('-') == std::string::npos ? std::string() : "must not be negative: " + text; })
        ->type_name("N");
}

// What several commands have in common.
void addFile(CLI::App& command, std::string& path);
void addJson(CLI::App& command, bool& isJson);
void addTimeStyle(CLI::App& command, TimeStyle& style);
void addFilters(CLI::App& command, FilterOptions& filter);

/// Lets `request` run `run` with `options`, which must be shared with the options of the command.
template <class Options>
void runWith(CLI::App& command, Request& request, std::shared_ptr<Options> options, int (*run)(Options const&, Output&))
{
    command.callback([&request, options, run]
                     { request.run = [&request, options, run] { return run(*options, request.output); }; });
}

} // namespace tool
