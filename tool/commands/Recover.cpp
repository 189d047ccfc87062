// firaim recover: makes a file readable again after its writer was cut off.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/formats/Json.h>
#include <tool/store/Recovery.h>
#include <tool/terminal/Progress.h>

#include <optional>

namespace tool
{

namespace
{

struct Options
{
    std::string path;
    std::optional<std::string> copy;
    bool isJson = false;
};

std::string reportOf(Recovery const& recovery)
{
    std::string const log = std::to_string(recovery.pagesOfLog) + (recovery.pagesOfLog == 1 ? " page" : " pages") +
                            " of its write-ahead log moved into it";
    if (recovery.isRolledBack)
    {
        return "an unfinished transaction was rolled back" + (recovery.pagesOfLog > 0 ? ", and " + log : "");
    }
    return recovery.pagesOfLog > 0 ? log : "nothing to recover";
}

Json jsonOf(Recovery const& recovery, Options const& options)
{
    Json report = {{"File", options.path}};
    if (options.copy)
    {
        report["Copy"] = *options.copy;
    }
    report["RolledBack"] = recovery.isRolledBack;
    report["LogPages"] = recovery.pagesOfLog;
    return report;
}

Recovery recoverWith(Options const& options)
{
    if (!options.copy)
    {
        return recoverFile(options.path);
    }
    Progress progress("copying");
    return recoverCopy(options.path, *options.copy, [&](double share) { progress.show(share); });
}

int recover(Options const& options, Output& output)
{
    Recovery const recovery = recoverWith(options);
    if (options.isJson)
    {
        printJson(jsonOf(recovery, options), output);
    }
    else
    {
        reportDone(options.copy.value_or(options.path) + ": " + reportOf(recovery), output);
    }
    return STATUS_DONE;
}

} // namespace

void addRecover(CommandLine& line, Request& request)
{
    Command command =
        line.add("recover", "Roll back what a crashed writer left unfinished", "  firaim recover faults.db");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    command.text("--to", options->copy, "Leave FILE as it is, and recover a copy with this new name", "COPY");
    addJson(command, options->isJson);
    runWith(command, request, options, recover);
}

} // namespace tool
