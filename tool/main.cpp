// firaim: records faults in a fault database, looks at it, follows it and hands it over.

#include "Command.h"
#include "Interrupt.h"
#include "Output.h"
#include "Problem.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>

namespace
{

using namespace tool;

constexpr char kFooter[] = R"(
Times are written and read as ISO 8601, in UTC unless --local is given. Results go to standard output, everything else
to standard error.

Exit status: 0 done; 1 the answer is no: there is no such fault, 'check' found something, not all could be done; 2 bad
usage; 3 the file cannot be used.)";

void declare(CLI::App& app, Request& request)
{
    setUpTexts(app);
    app.require_subcommand(1);
    app.set_version_flag("--version", "firaim " FIRAIM_VERSION);
    app.footer(kFooter);
    addCreate(app, request);
    addRecord(app, request);
    addClear(app, request);
    addList(app, request);
    addShow(app, request);
    addStats(app, request);
    addSummary(app, request);
    addWatch(app, request);
    addExport(app, request);
    addRenumber(app, request);
    addBackup(app, request);
    addTrim(app, request);
    addCheck(app, request);
    addRecover(app, request);
    addCodes(app, request);
}

/// After a problem, which is what matters.
void flushQuietly(Output& output)
{
    try
    {
        output.flush();
    }
    catch (Problem const&)
    {
    }
}

bool hasCommand(CLI::App& app, std::string const& name)
{
    auto const commands = app.get_subcommands([](CLI::App const*) { return true; });
    return std::any_of(commands.begin(), commands.end(),
                       [&](CLI::App const* command) { return command->get_name() == name; });
}

/// Help and version are results; what is wrong with the arguments is not.
int explain(CLI::App const& app, CLI::ParseError const& problem, Output& output)
{
    std::ostringstream results;
    std::ostringstream complaints;
    int const code = app.exit(problem, results, complaints);
    std::string text = results.str();
    if (!text.empty() && text.back() != '\n')
    {
        text += '\n'; // A footer ends without one.
    }
    output.write(text);
    output.flush();
    std::cerr << complaints.str() << std::flush;
    return code == 0 ? STATUS_DONE : STATUS_BAD_USAGE;
}

int run(int argc, char** argv, Output& output)
{
    CLI::App app("Records faults in a fault database, looks at it, follows it and hands it over.", "firaim");
    Request request = {output, nullptr};
    declare(app, request);
    if (argc > 1 && argv[1][0] != '-' && !hasCommand(app, argv[1]))
    {
        throw Problem(STATUS_BAD_USAGE,
                      "unknown command '" + std::string(argv[1]) + "'; --help lists those that there are");
    }
    try
    {
        app.parse(argc, argv);
    }
    catch (CLI::ParseError const& problem)
    {
        return explain(app, problem, output);
    }
    try
    {
        int const status = request.run();
        output.flush();
        return status;
    }
    catch (Problem const&)
    {
        flushQuietly(output); // Of a damaged file, all that could be read.
        throw;
    }
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        holdStandardDescriptors();
        interrupt::install();
        Output output;
        return run(argc, argv, output);
    }
    catch (interrupt::Interrupted const&)
    {
        interrupt::dieOfIt();
    }
    catch (ReaderGone const&)
    {
        interrupt::dieOf(SIGPIPE);
    }
    catch (Problem const& problem)
    {
        complain(problem.what());
        return problem.status();
    }
    catch (std::exception const& problem)
    {
        complain(problem.what());
        return STATUS_BAD_FILE;
    }
}
