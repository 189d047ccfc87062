// firaim clear: records that the active faults of a code are over.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/files/Failures.h>
#include <tool/recording/FaultRecording.h>
#include <tool/store/FaultFile.h>
#include <tool/values/Codes.h>

#include <string>
#include <vector>

namespace tool
{

namespace
{

struct Options
{
    std::string path;
    FaultOptions fault;
    TimeStyle style;
};

/// The message when there was nothing to clear.
std::string inactiveText(Options const& options)
{
    FaultFile file(options.path);
    FaultStatistic statistic;
    FaultOptions const& fault = options.fault;
    bool const isKnown = file.isFound(file.reader().statistic(requireCode(fault.code), statistic));
    std::string const triple = (fault.module ? " of the module '" + *fault.module + "'" : "") +
                               (fault.parameter ? " with the parameter '" + *fault.parameter + "'" : "");
    return options.path + ": fault code " + fault.code + triple + (isKnown ? " is not active" : " has never occurred") +
           "; nothing was recorded";
}

int clear(Options const& options, Output& output)
{
    FaultRecording recording(options.path, options.fault, options.style);
    std::vector<unsigned long long> keys;
    int result = firaim::HISTORY_OK;
    if (!options.fault.module && !options.fault.parameter)
    {
        result = recording.recorder.clearCode(recording.event, keys);
    }
    else
    {
        firaim::Receipt const receipt = recording.recorder.clear(recording.event);
        result = receipt.result;
        keys = {receipt.key};
    }
    if (result < 0)
    {
        throwFailure(result, recording.recorder.lastProblem());
    }
    if (result == firaim::HISTORY_UNCHANGED)
    {
        throw Problem(STATUS_NO, inactiveText(options));
    }
    recording.completer.warnOfSeveralStatistics(recording.event.code);
    printKeys(keys, output);
    return STATUS_DONE;
}

} // namespace

void addClear(CommandLine& line, Request& request)
{
    Command command = line.add("clear", "Record that the active faults of a code are over",
                               "  firaim clear faults.db --code FC_BUS_OFF");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    command.text("--code", options->fault.code, "Fault code, by name or number", "CODE").require();
    addFaultOptions(command, options->fault);
    addTimeStyle(command, options->style);
    runWith(command, request, options, clear);
}

} // namespace tool
