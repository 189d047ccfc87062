#include "Command.h"

#include "Text.h"

#include <map>

namespace tool
{

namespace
{

/// The help without what an option excludes, which is said where it matters.
class HelpFormatter : public CLI::Formatter
{
public:
    std::string make_option_opts(CLI::Option const* option) const override
    {
        std::string text = option->get_type_name().empty() ? "" : " " + option->get_type_name();
        return text + (option->get_required() ? " REQUIRED" : "");
    }
};

} // namespace

void setUpTexts(CLI::App& app)
{
    app.formatter(std::make_shared<HelpFormatter>());
    app.failure_message([](CLI::App const*, CLI::Error const& problem)
                        { return "firaim: " + visible(problem.what()) + "; --help tells more\n"; });
}

CLI::App* addCommand(CLI::App& app, std::string const& name, std::string const& description,
                     std::string const& examples)
{
    CLI::App* const command = app.add_subcommand(name, description);
    command->footer("Example:\n" + examples);
    return command;
}

void addFile(CLI::App& command, std::string& path)
{
    command.add_option("FILE", path, "The fault database")->required()->type_name("");
}

void addJson(CLI::App& command, bool& isJson)
{
    command.add_flag("--json", isJson, "Print JSON and no table");
}

void addTimeStyle(CLI::App& command, TimeStyle& style)
{
    static std::map<std::string, timeUnit_t> const units = {{"auto", timeUnit_t::GUESSED},
                                                            {"s", timeUnit_t::SECONDS},
                                                            {"ms", timeUnit_t::MILLISECONDS},
                                                            {"us", timeUnit_t::MICROSECONDS},
                                                            {"ns", timeUnit_t::NANOSECONDS}};
    command.add_flag("--local", style.isLocal, "Times in the time zone of this machine and not in UTC");
    command
        .add_option_function<std::string>(
            "--time-unit", [&style](std::string const& name) { style.unit = units.at(name); },
            "Unit of the time stamps in the file: auto (by their size), s, ms, us, ns")
        ->check(CLI::IsMember(units).description(""))
        ->type_name("UNIT");
}

void addFilters(CLI::App& command, FilterOptions& filter)
{
    command.add_option("--code", filter.code, "Faults with this code, by name or number")->type_name("CODE");
    command.add_option("--module", filter.module, "Faults of this module")->type_name("NAME");
    addNumber(command, "--startup", filter.startup, "Faults recorded under this start-up id");
    command.add_flag("--active", filter.isActiveOnly, "Faults recorded as active");
    command.add_option("--since", filter.since, "Faults from this time on, such as 2031-05-04 or 2031-05-04T03:02Z")
        ->type_name("TIME");
    command.add_option("--until", filter.until, "Faults up to this time; a day counts to its end")->type_name("TIME");
    command.add_option("--grep", filter.grep, "Faults that mention this text; case does not matter")->type_name("TEXT");
    addNumber(command, "--after", filter.after, "Faults with a larger key")->type_name("ID");
}

} // namespace tool
