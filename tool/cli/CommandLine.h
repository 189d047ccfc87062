#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI
{
class App;
class Option;
} // namespace CLI

/// The commands of the program and their options. Only CommandLine.cpp includes the argument parser, which takes longer
/// to compile than any command.
namespace tool
{

class Output;

/// A declared option, owned by the CommandLine.
class Option
{
public:
    explicit Option(CLI::Option& option) : m_option(&option) {}

    /// Makes the option mandatory.
    Option& require();
    /// Makes it bad usage to give both this option and `other`.
    Option& exclude(Option const& other);
    /// Makes any other value bad usage; the message lists `values` in this order.
    Option& allow(std::vector<std::string> const& values);

private:
    CLI::Option* m_option;
};

/// Declares the options of a command. Their values are stored while the command line is read, so the variables must
/// live until then; a variable whose option is not given keeps its value. `type` is the name of the value in the help.
class Command
{
public:
    explicit Command(CLI::App& app) : m_app(&app) {}

    /// A mandatory positional argument.
    Option argument(std::string const& name, std::string& value, std::string const& description);

    Option text(std::string const& name, std::string& value, std::string const& description, std::string const& type);
    Option text(std::string const& name, std::optional<std::string>& value, std::string const& description,
                std::string const& type);
    Option text(std::string const& name, std::function<void(std::string const&)> const& take,
                std::string const& description, std::string const& type);

    Option flag(std::string const& name, bool& value, std::string const& description);

    /// A whole number within the range of its type, for the types that CommandLine.cpp lists. The argument parser's own
    /// conversion would read "-1" as a huge number and an empty text as 0.
    template <class Number>
    Option number(std::string const& name, Number& value, std::string const& description,
                  std::string const& type = "N");

    /// Calls `chosen` when the command line asks for this command.
    void whenChosen(std::function<void()> const& chosen);

private:
    CLI::App* m_app;
};

/// The command line of a program with subcommands.
class CommandLine
{
public:
    /// `footer` ends the program's help; `version` is what --version prints.
    CommandLine(std::string const& program, std::string const& description, std::string const& footer,
                std::string const& version);
    ~CommandLine();
    CommandLine(CommandLine const&) = delete;
    CommandLine& operator=(CommandLine const&) = delete;

    /// Adds a command with its help: `description`, and `examples` with one per line.
    Command add(std::string const& name, std::string const& description, std::string const& examples);

    bool hasCommand(std::string const& name) const;

    /// Stores the values and calls the `whenChosen` function of the command; returns nothing then. Otherwise prints
    /// help or version to `output`, or the problem with the arguments to standard error, and returns the exit status.
    std::optional<int> read(int argc, char const* const* argv, Output& output);

private:
    std::unique_ptr<CLI::App> m_app;
};

} // namespace tool
