// firaim record and firaim clear: record the beginning and the end of faults.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/formats/FaultJson.h>
#include <tool/store/FaultFile.h>
#include <tool/store/FaultRequest.h>
#include <tool/store/LineRecorder.h>
#include <tool/values/Codes.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tool
{

namespace
{

struct Options
{
    std::string path;
    std::string code;
    std::string time;
    TimeStyle style;
    firaim::FaultEvent event;
    std::optional<std::string> module; ///< for `clear`, an empty one differs from none
    std::optional<std::string> parameter;
    bool isInactive = false;
    bool isFromInput = false;
};

/// The fault that the options describe.
FaultRequest requestOf(Options const& options)
{
    FaultRequest request;
    request.event = options.event;
    request.event.code = requireCode(options.code);
    request.event.module = options.module.value_or("");
    request.event.parameter = options.parameter.value_or("");
    request.event.status = options.isInactive ? FAULT_INACTIVE : FAULT_ACTIVE;
    if (request.event.timeZone == "")
    {
        request.event.timeZone.reset();
    }
    if (!options.time.empty())
    {
        request.time = requireTime(options.time, options.style).begin;
        if (*request.time < 0)
        {
            throw Problem(STATUS_BAD_USAGE, "'" + options.time + "' lies before 1970, where time stamps begin");
        }
    }
    return request;
}

/// The event that the options describe, as it is to be recorded.
firaim::FaultEvent eventOf(Options const& options, FaultCompleter& completer)
{
    try
    {
        return completer.complete(requestOf(options));
    }
    catch (std::invalid_argument const& problem)
    {
        throw Problem(STATUS_BAD_USAGE, problem.what());
    }
}

/// A file that is open for recording, and the event that the options describe.
struct Recording
{
    explicit Recording(Options const& options) : completer(options.path, options.style)
    {
        static_cast<void>(requestOf(options)); // Reports bad usage before anything is opened.
        openRecorder(recorder, options.path, recorderOptions(options.style));
        event = eventOf(options, completer);
    }

    firaim::FaultRecorder recorder;
    FaultCompleter completer;
    firaim::FaultEvent event;
};

/// Prints the keys of the faults that were recorded.
void printKeys(std::vector<unsigned long long> const& keys, Output& output)
{
    std::string lines;
    for (unsigned long long const key : keys)
    {
        lines += std::to_string(key) + "\n";
    }
    try
    {
        output.write(lines);
        output.flush();
    }
    catch (...)
    {
        printMessage("the fault was recorded all the same, with the key " + std::to_string(keys.front()) +
                     (keys.size() > 1 ? " to " + std::to_string(keys.back()) : ""));
        throw;
    }
}

int recordOne(Options const& options, Output& output)
{
    Recording recording(options);
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
    if (options.code.empty())
    {
        throw Problem(STATUS_BAD_USAGE, "record: --code or --stdin is required");
    }
    return recordOne(options, output);
}

/// The message when there was nothing to clear.
std::string inactiveText(Options const& options)
{
    FaultFile file(options.path);
    FaultStatistic statistic;
    bool const isKnown = file.isFound(file.reader().statistic(requireCode(options.code), statistic));
    std::string const triple = (options.module ? " of the module '" + *options.module + "'" : "") +
                               (options.parameter ? " with the parameter '" + *options.parameter + "'" : "");
    return options.path + ": fault code " + options.code + triple +
           (isKnown ? " is not active" : " has never occurred") + "; nothing was recorded";
}

int clear(Options const& options, Output& output)
{
    Recording recording(options);
    std::vector<unsigned long long> keys;
    int result = firaim::HISTORY_OK;
    if (!options.module && !options.parameter)
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

/// Adds the options that describe a fault; returns them, so that others can exclude them.
std::vector<Option> addFaultOptions(Command& command, Options& options)
{
    firaim::FaultEvent& event = options.event;
    return {command.text("--module", options.module, "Module that reports the fault", "NAME"),
            command.text("--param", options.parameter, "Parameter of the fault", "TEXT"),
            command.text("--description", event.description, "Description of the fault", "TEXT"),
            command.number("--startup", event.startupId,
                           "Start-up id; default: the largest of the newest fault and the statistics"),
            command.text("--time", options.time, "Time, such as 2031-05-04T03:02:01Z; default: now", "TIME"),
            command.text("--time-zone", event.timeZone, "Time zone of the device, only stored; default: UTC", "TEXT"),
            command.text("--signals-file", event.signalsFile, "Name of the file with dumped signals", "NAME"),
            command.text("--config-backup", event.configBackup, "Name of the configuration backup", "NAME"),
            command.number("--up-time", event.upTime, "Up-time of the device, in its unit; default: 0"),
            command.number("--life-time", event.lifeTime, "Life-time of the device, in its unit; default: 0")};
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
        command.text("--code", options->code, "Fault code, by name or number", "CODE"),
        command.flag("--inactive", options->isInactive, "Record the fault as inactive; it is not counted")};
    for (Option const& option : addFaultOptions(command, *options))
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

void addClear(CommandLine& line, Request& request)
{
    Command command = line.add("clear", "Record that the active faults of a code are over",
                               "  firaim clear faults.db --code FC_BUS_OFF");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    command.text("--code", options->code, "Fault code, by name or number", "CODE").require();
    addFaultOptions(command, *options);
    addTimeStyle(command, options->style);
    runWith(command, request, options, clear);
}

} // namespace tool
