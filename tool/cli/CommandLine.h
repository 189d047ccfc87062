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

/// The commands of the program and their options. Only CommandLine.cpp includes the argument parser: that alone takes
/// longer to compile than any command.
namespace tool
{

class Output;

/// An option that was declared. It belongs to the CommandLine, as all of these do.
class Option
{
public:
    explicit Option(CLI::Option& option) : m_option(&option) {}

    /// Without it, the command is bad usage.
    Option& require();
    /// Bad usage beside `other`.
    Option& exclude(Option const& other);
    /// Any other value is bad usage, and the complaint lists `values` in this order.
    Option& allow(std::vector<std::string> const& values);

private:
    CLI::Option* m_option;
};

/// A command whose options are declared. Values are stored while the command line is read, so their places must live
/// until then; a place whose option is not given stays as it was. `type` is how the help names a value.
class Command
{
public:
    explicit Command(CLI::App& app) : m_app(&app) {}

    /// A text that has to be given, told by its place and not by a name.
    Option argument(std::string const& name, std::string& value, std::string const& description);

    Option text(std::string const& name, std::string& value, std::string const& description, std::string const& type);
    Option text(std::string const& name, std::optional<std::string>& value, std::string const& description,
                std::string const& type);
    Option text(std::string const& name, std::function<void(std::string const&)> const& take,
                std::string const& description, std::string const& type);

    Option flag(std::string const& name, bool& value, std::string const& description);

    /// A whole number within the range of its type, for the types that CommandLine.cpp lists. The argument parser's own
    /// would take "-1" for a huge one, and an empty text for 0.
    template <class Number>
    Option number(std::string const& name, Number& value, std::string const& description,
                  std::string const& type = "N");

    /// Calls `chosen` when the command line asks for this command.
    void whenChosen(std::function<void()> const& chosen);

private:
    CLI::App* m_app;
};

/// The command line of a program that is told what to do by a command.
class CommandLine
{
public:
    /// `footer` ends the program's help; `version` is what --version prints.
    CommandLine(std::string const& program, std::string const& description, std::string const& footer,
                std::string const& version);
    ~CommandLine();
    CommandLine(CommandLine const&) = delete;
    CommandLine& operator=(CommandLine const&) = delete;

    /// A command with its help: what it does and `examples`, a line each.
    Command add(std::string const& name, std::string const& description, std::string const& examples);

    bool hasCommand(std::string const& name) const;

    /// Stores the values and tells the command that it was chosen. Returns nothing then; otherwise the exit status,
    /// after help or version went to `output`, or what is wrong with the arguments to standard error.
    std::optional<int> read(int argc, char const* const* argv, Output& output);

private:
    std::unique_ptr<CLI::App> m_app;
};

} // namespace tool
