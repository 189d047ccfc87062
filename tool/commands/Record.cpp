// firaim record: records one fault, or many from standard input.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/files/Failures.h>
#include <tool/formats/FaultJson.h>
#include <tool/recording/FaultRecording.h>
#include <tool/recording/LineRecorder.h>
#include <tool/store/FaultFile.h>

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
    bool isInactive = false;
    bool isFromInput = false;
};

int recordOne(Options const& options, Output& output)
{
    FaultRecording recording(options.path, options.fault, options.style);
    recording.event.status = options.isInactive ? FAULT_INACTIVE : FAULT_ACTIVE;
    recording.completer.warnOfSeveralStatistics(recording.event.code);
    firaim::Receipt const receipt = recording.recorder.record(recording.event);
    if (receipt.result < 0)
    {
        throwFailure(receipt.result, recording.recorder.lastProblem());
    }
    printKeys({receipt.key}, output);
    return STATUS_DONE;
}

int record(Options const& options, Output& output)
{
    if (options.isFromInput)
    {
        return LineRecorder(options.path, options.style, readFault, output).run() ? STATUS_DONE : STATUS_NO;
    }
    if (options.fault.code.empty())
    {
        throw Problem(STATUS_BAD_USAGE, "record: --code or --stdin is required");
    }
    return recordOne(options, output);
}

} // namespace

void addRecord(CommandLine& line, Request& request)
{
    Command command = line.add("record", "Record a fault, count it and print its key",
                               "  firaim record faults.db --code FC_BUS_OFF --description \"no answer\"\n"
                               "  firaim export old.db --format jsonl | firaim record faults.db --stdin");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    std::vector<Option> described = {
        command.text("--code", options->fault.code, "Fault code, by name or number", "CODE"),
        command.flag("--inactive", options->isInactive, "Record the fault as inactive; it is not counted")};
    for (Option const& option : addFaultOptions(command, options->fault))
    {
        described.push_back(option);
    }
    Option input = command.flag("--stdin", options->isFromInput,
                                "Record many faults from standard input, one JSON object per line; its fields are "
                                "named like the columns of the file or these options");
    for (Option const& option : described)
    {
        input.exclude(option);
    }
    addTimeStyle(command, options->style);
    runWith(command, request, options, record);
}

} // namespace tool
