#pragma once

#include <tool/terminal/Terminal.h>

#include <chrono>
#include <string>

namespace tool
{

/// A progress bar on standard error. It is shown only if standard error is a terminal that may be decorated, and not if
/// results are printed to a `resultsTerminal` at the same time.
class Progress
{
public:
    Progress(std::string label, Terminal const& resultsTerminal = Terminal());
    ~Progress();
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

    /// Whether it is shown at all.
    bool isVisible() const { return m_terminal.isDecorated; }
    /// Shows `share`, between 0 and 1. Skips calls that follow too fast for the eye.
    void show(double share);
    /// Shows how much has been done, for an unknown total.
    void show(std::string const& amount);
    /// Removes the bar, so that something else can be written.
    void clear();
    /// Removes the bar that is shown, if there is one.
    static void clearShown();

private:
    bool isDue();
    void write(std::string const& text);

    std::string const m_label;
    Terminal m_terminal;
    std::chrono::steady_clock::time_point m_next;
    static Progress* shown;
};

} // namespace tool
