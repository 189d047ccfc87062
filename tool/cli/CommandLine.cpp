#include <tool/cli/CommandLine.h>

#include <tool/process/Problem.h>
#include <tool/terminal/Output.h>
#include <tool/terminal/SafeText.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <iostream>
#include <limits>
#include <sstream>

namespace tool
{

namespace
{

/// The width of a usual terminal.
constexpr std::size_t kHelpWidth = 80;

/// `text` in lines of at most `width` characters.
std::string wrapped(std::string const& text, std::size_t width)
{
    std::istringstream words(text);
    std::string lines;
    std::size_t used = 0;
    for (std::string word; words >> word;)
    {
        bool const isFitting = used + 1 + word.size() <= width;
        lines += (used == 0 ? "" : isFitting ? " " : "\n") + word;
        used = (used > 0 && isFitting ? used + 1 : 0) + word.size();
    }
    return lines;
}

/// Fits the help into a usual terminal. Leaves out which options exclude each other: the descriptions say it where it
/// matters.
class HelpFormatter : public CLI::Formatter
{
public:
    std::string make_option_desc(CLI::Option const* option) const override
    {
        return wrapped(option->get_description(), kHelpWidth - get_column_width());
    }

    std::string make_option_opts(CLI::Option const* option) const override
    {
        std::string text = option->get_type_name().empty() ? "" : " " + option->get_type_name();
        return text + (option->get_required() ? " REQUIRED" : "");
    }
};

/// The number type behind `Number`, which may be a std::optional.
template <class Number>
struct PlainNumberOf
{
    using type = Number;
};
template <class Number>
struct PlainNumberOf<std::optional<Number>>
{
    using type = Number;
};
template <class Number>
using PlainNumber = typename PlainNumberOf<Number>::type;

/// The number in `text`, the value of option `name`. Throws CLI::ValidationError unless it is a number of that width.
template <class Number>
Number requireNumber(std::string const& name, std::string const& text)
{
    Number number = 0;
    char const* const end = text.data() + text.size();
    auto const [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end)
    {
        throw CLI::ValidationError(
            name, "must be a whole number from " + std::to_string(std::numeric_limits<Number>::min()) + " to " +
                      std::to_string(std::numeric_limits<Number>::max()) + ", not '" + text + "'");
    }
    return number;
}

/// Prints help and version to `output`, errors to standard error; returns the exit status.
int printParseResult(CLI::App const& app, CLI::ParseError const& problem, Output& output)
{
    std::ostringstream results;
    std::ostringstream errors;
    int const code = app.exit(problem, results, errors);
    std::string text = results.str();
    if (!text.empty() && text.back() != '\n')
    {
        text += '\n'; // A footer has none at its end.
    }
    output.write(text);
    output.flush();
    std::cerr << errors.str() << std::flush;
    return code == 0 ? STATUS_DONE : STATUS_BAD_USAGE;
}

} // namespace

Option& Option::require()
{
    m_option->required();
    return *this;
}

Option& Option::exclude(Option const& other)
{
    m_option->excludes(other.m_option);
    return *this;
}

Option& Option::allow(std::vector<std::string> const& values)
{
    m_option->check(CLI::IsMember(values).description(""));
    return *this;
}

Option Command::argument(std::string const& name, std::string& value, std::string const& description)
{
    return text(name, value, description, "").require();
}

Option Command::text(std::string const& name, std::string& value, std::string const& description,
                     std::string const& type)
{
    return Option(*m_app->add_option(name, value, description)->type_name(type));
}

Option Command::text(std::string const& name, std::optional<std::string>& value, std::string const& description,
                     std::string const& type)
{
    return Option(*m_app->add_option(name, value, description)->type_name(type));
}

Option Command::text(std::string const& name, std::function<void(std::string const&)> const& take,
                     std::string const& description, std::string const& type)
{
    return Option(*m_app->add_option_function<std::string>(name, take, description)->type_name(type));
}

Option Command::flag(std::string const& name, bool& value, std::string const& description)
{
    return Option(*m_app->add_flag(name, value, description));
}

template <class Number>
Option Command::number(std::string const& name, Number& value, std::string const& description, std::string const& type)
{
    return text(
        name, [name, &value](std::string const& given) { value = requireNumber<PlainNumber<Number>>(name, given); },
        description, type);
}

template Option Command::number(std::string const&, unsigned int&, std::string const&, std::string const&);
template Option Command::number(std::string const&, long long&, std::string const&, std::string const&);
template Option Command::number(std::string const&, unsigned long long&, std::string const&, std::string const&);
template Option Command::number(std::string const&, std::optional<unsigned int>&, std::string const&,
                                std::string const&);
template Option Command::number(std::string const&, std::optional<long long>&, std::string const&, std::string const&);
template Option Command::number(std::string const&, std::optional<unsigned long long>&, std::string const&,
                                std::string const&);

void Command::whenChosen(std::function<void()> const& chosen)
{
    m_app->callback(chosen);
}

CommandLine::CommandLine(std::string const& program, std::string const& description, std::string const& footer,
                         std::string const& version)
    : m_app(std::make_unique<CLI::App>(description, program))
{
    m_app->formatter(std::make_shared<HelpFormatter>()); // Before commands are added: they inherit it.
    m_app->failure_message([](CLI::App const*, CLI::Error const& problem)
                           { return "firaim: " + escape(problem.what()) + "; see --help\n"; });
    m_app->require_subcommand(1);
    m_app->set_version_flag("--version", version);
    m_app->footer(footer);
}

CommandLine::~CommandLine() = default;

Command CommandLine::add(std::string const& name, std::string const& description, std::string const& examples)
{
    CLI::App& command = *m_app->add_subcommand(name, description);
    command.footer("Example:\n" + examples);
    return Command(command);
}

bool CommandLine::hasCommand(std::string const& name) const
{
    auto const commands = m_app->get_subcommands([](CLI::App const*) { return true; });
    return std::any_of(commands.begin(), commands.end(),
                       [&](CLI::App const* command) { return command->get_name() == name; });
}

std::optional<int> CommandLine::read(int argc, char const* const* argv, Output& output)
{
    try
    {
        m_app->parse(argc, argv);
        return std::nullopt;
    }
    catch (CLI::ParseError const& problem)
    {
        return printParseResult(*m_app, problem, output);
    }
}

} // namespace tool
