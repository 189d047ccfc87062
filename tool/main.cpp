// firaim: records, lists, follows, checks and exports the faults of a fault database.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/process/Interrupt.h>
#include <tool/process/Problem.h>
#include <tool/terminal/Output.h>

#include <csignal>
#include <exception>
#include <string>

namespace
{

using namespace tool;

constexpr char kFooter[] = R"(
'firaim COMMAND --help' lists the options of a command.

Times are printed and read as ISO 8601, in UTC unless --local is given. Results
go to standard output, everything else to standard error.

Exit status: 0 done; 1 nothing found, a finding of 'check', a line that
'record' refused, or a partial 'rescue'; 2 bad usage; 3 a file, standard input
or standard output cannot be used.)";

void addCommands(CommandLine& line, Request& request)
{
    addCreate(line, request);
    addRecord(line, request);
    addClear(line, request);
    addList(line, request);
    addShow(line, request);
    addStats(line, request);
    addSummary(line, request);
    addWatch(line, request);
    addExport(line, request);
    addRenumber(line, request);
    addBackup(line, request);
    addTrim(line, request);
    addJournal(line, request);
    addCheck(line, request);
    addRecover(line, request);
    addRescue(line, request);
    addCodes(line, request);
}

/// After a problem: a failure to flush must not hide it.
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

int run(int argc, char** argv, Output& output)
{
    CommandLine line("firaim", "Record, list, follow, check and export the faults of a fault database.", kFooter,
                     "firaim " FIRAIM_VERSION);
    Request request = {output, nullptr};
    addCommands(line, request);
    if (argc > 1 && argv[1][0] != '-' && !line.hasCommand(argv[1]))
    {
        throw Problem(STATUS_BAD_USAGE,
                      "unknown command '" + std::string(argv[1]) + "'; 'firaim --help' lists the commands");
    }
    if (auto const status = line.read(argc, argv, output))
    {
        return *status;
    }
    try
    {
        int const status = request.run();
        output.flush();
        return status;
    }
    catch (Problem const&)
    {
        flushQuietly(output); // Print all that could be read of a damaged file.
        throw;
    }
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        reserveStandardDescriptors();
        interrupt::install();
        Output output;
        return run(argc, argv, output);
    }
    catch (interrupt::Interrupted const&)
    {
        interrupt::terminateByPendingSignal();
    }
    catch (BrokenPipe const&)
    {
        interrupt::terminateBySignal(SIGPIPE);
    }
    catch (Problem const& problem)
    {
        printMessage(problem.what());
        return problem.status();
    }
    catch (std::exception const& problem)
    {
        printMessage(problem.what());
        return STATUS_BAD_FILE;
    }
}
