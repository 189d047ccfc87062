#pragma once

#include "FaultFilter.h"
#include "Output.h"
#include "Times.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <functional>
#include <limits>
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

/// Sets up how the program writes its help and its complaints.
void setUpTexts(CLI::App& app);

/// A command with its help: what it does and `examples`, a line each.
CLI::App* addCommand(CLI::App& app, std::string const& name, std::string const& description,
                     std::string const& examples);

/// The type of a number that may be absent, or of one that may not.
template <class Number>
struct plainNumber
{
    using type = Number;
};
template <class Number>
struct plainNumber<std::optional<Number>>
{
    using type = Number;
};
template <class Number>
using plainNumber_t = typename plainNumber<Number>::type;

/// The number in `text`, the value of option `name`. Throws CLI::ValidationError when there is none of that width.
template <class Number>
Number requireNumber(std::string const& name, std::string const& text)
{
    Number number = 0;
    char const* const end = text.data() + text.size();
    auto const [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end)
    {
        throw CLI::ValidationError(
            name, "must be a whole number from " + std::to_string(std::numeric_limits<Number>::min()) + " to " +
                      std::to_string(std::numeric_limits<Number>::max()) + ", not '" + text + "'");
    }
    return number;
}

/// An option with a number that is not negative. The argument parser's own would take "-1" for a huge one, and an empty
/// text for 0.
template <class Number>
CLI::Option* addNumber(CLI::App& command, std::string const& name, Number& number, std::string const& description)
{
    return command
        .add_option_function<std::string>(
            name,
            [name, &number](std::string const& text) { number = requireNumber<plainNumber_t<Number>>(name, text); },
            description)
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
