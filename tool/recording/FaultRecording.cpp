#include <tool/recording/FaultRecording.h>

#include <tool/process/Problem.h>
#include <tool/store/FaultFile.h>
#include <tool/values/Codes.h>

#include <stdexcept>
#include <utility>

namespace tool
{

namespace
{

FaultRequest requestOf(FaultOptions const& options, TimeStyle const& style)
{
    FaultRequest request;
    request.event = options.event;
    request.event.code = requireCode(options.code);
    request.event.module = options.module.value_or("");
    request.event.parameter = options.parameter.value_or("");
    if (request.event.timeZone == "")
    {
        request.event.timeZone.reset();
    }
    if (!options.time.empty())
    {
        request.time = requireTime(options.time, style).begin;
        if (*request.time < 0)
        {
            throw Problem(STATUS_BAD_USAGE, "'" + options.time + "' lies before 1970, where time stamps begin");
        }
    }
    return request;
}

} // namespace

FaultRecording::FaultRecording(std::string const& path, FaultOptions const& options, TimeStyle const& style)
    : completer(path, style)
{
    FaultRequest request = requestOf(options, style);
    openRecorder(recorder, path, recorderOptions(style));
    try
    {
        event = completer.complete(std::move(request));
    }
    catch (std::invalid_argument const& problem)
    {
        throw Problem(STATUS_BAD_USAGE, problem.what());
    }
}

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

} // namespace tool
