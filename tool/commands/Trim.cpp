// firaim trim: removes old faults.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/files/Failures.h>
#include <tool/store/FaultFile.h>
#include <tool/store/OldFaults.h>
#include <tool/values/Text.h>

#include <optional>
#include <string>

namespace tool
{

namespace
{

struct Options
{
    std::string path;
    std::optional<unsigned int> keep;
    std::optional<std::string> before;
    TimeStyle style;
    bool isVacuumed = false;
    bool isDryRun = false;
};

/// Throws a Problem for invalid options.
Retention retentionOf(Options const& options)
{
    if (!options.keep && !options.before)
    {
        throw Problem(STATUS_BAD_USAGE, "trim: --keep or --before is required");
    }
    Retention retention;
    retention.keep = options.keep;
    if (options.before)
    {
        retention.since = requireTime(*options.before, options.style).begin;
    }
    retention.unit = options.style.unit;
    return retention;
}

std::string reportOf(Options const& options, OldFaultCounts const& counts)
{
    std::string report = (options.isDryRun ? "would remove " : "removed ") + counted(counts.removed, "fault");
    if (counts.kept > 0)
    {
        report += "; " + counted(counts.kept, "old fault") +
                  (counts.kept == 1 ? " stays: it tells what is active, or an active statistic refers to it"
                                    : " stay: they tell what is active, or active statistics refer to them");
    }
    return report;
}

/// If this fails, the message includes `done`, the change already made.
void vacuum(std::string const& path, std::string const& done)
{
    try
    {
        sqlite::Connection const connection = openForChanging(path);
        usingSqlite(path, [&] { connection.run("VACUUM"); });
    }
    catch (...)
    {
        printMessage("this was done all the same: " + done);
        throw;
    }
}

int trim(Options const& options, Output& output)
{
    Retention const retention = retentionOf(options);
    if (options.isDryRun)
    {
        output.writeLine(reportOf(options, countOldFaults(options.path, retention)));
        return STATUS_DONE;
    }
    std::string const report = reportOf(options, removeOldFaults(options.path, retention));
    if (options.isVacuumed)
    {
        vacuum(options.path, report);
    }
    reportDone(report, output);
    return STATUS_DONE;
}

} // namespace

void addTrim(CommandLine& line, Request& request)
{
    Command command = line.add("trim", "Remove old faults that nothing active needs",
                               "  firaim trim faults.db --keep 10000 --dry-run\n"
                               "  firaim trim faults.db --before 2031-01-01 --vacuum");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    Option const keep = command.number("--keep", options->keep, "Keep the newest N faults");
    command.text("--before", options->before, "Remove faults before this time; faults without a time stay", "TIME")
        .exclude(keep);
    command.flag("--vacuum", options->isVacuumed, "Return the freed space to the file system");
    command.flag("--dry-run", options->isDryRun, "Only print how many faults would be removed");
    addTimeStyle(command, options->style);
    runWith(command, request, options, trim);
}

} // namespace tool
