#include <tool/cli/Command.h>

#include <map>
#include <vector>

namespace tool
{

void addFile(Command& command, std::string& path)
{
    command.argument("FILE", path, "Fault database");
}

void addJson(Command& command, bool& isJson)
{
    command.flag("--json", isJson, "Print JSON");
}

void addTimeStyle(Command& command, TimeStyle& style)
{
    static std::map<std::string, TimeUnit> const units = {{"auto", TimeUnit::GUESSED},
                                                          {"s", TimeUnit::SECONDS},
                                                          {"ms", TimeUnit::MILLISECONDS},
                                                          {"us", TimeUnit::MICROSECONDS},
                                                          {"ns", TimeUnit::NANOSECONDS}};
    std::vector<std::string> names;
    for (auto const& unit : units)
    {
        names.push_back(unit.first);
    }
    command.flag("--local", style.isLocal, "Times in the local time zone instead of UTC");
    command
        .text(
            "--time-unit", [&style](std::string const& name) { style.unit = units.at(name); },
            "Unit of the time stamps in the file: auto (by their size), s, ms, us, ns", "UNIT")
        .allow(names);
}

std::vector<Option> addFaultOptions(Command& command, FaultOptions& options)
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

void addFilters(Command& command, FilterOptions& filter)
{
    command.text("--code", filter.code, "Faults with this code, by name or number", "CODE");
    command.text("--module", filter.module, "Faults of this module", "NAME");
    command.number("--startup", filter.startup, "Faults recorded under this start-up id");
    command.flag("--active", filter.isActiveOnly, "Faults recorded as active");
    command.text("--since", filter.since, "Faults from this time on, such as 2031-05-04 or 2031-05-04T03:02Z", "TIME");
    command.text("--until", filter.until, "Faults up to this time; a date is a whole day", "TIME");
    command.text("--grep", filter.grep, "Faults that contain this text, ignoring case", "TEXT");
    command.number("--after", filter.after, "Faults with a key larger than ID", "ID");
}

} // namespace tool
