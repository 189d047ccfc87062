#pragma once

#include <tool/terminal/Terminal.h>

#include <chrono>
#include <string>

namespace tool
{

/// A bar on standard error that shows how far a long command has come. There is none unless standard error is a
/// terminal that may be decorated, nor where results stream to `resultsTerminal` at the same time.
class Progress
{
public:
    Progress(std::string what, Terminal const& resultsTerminal = Terminal());
    ~Progress();
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

    /// Whether it can be shown at all.
    bool isVisible() const { return m_terminal.isDecorated; }
    /// Shows `share`, between 0 and 1; not more often than the eye can follow.
    void show(double share);
    /// The same where nobody knows how much there will be: what has been done.
    void show(std::string const& amount);
    /// Takes the bar away, so that something else can be written.
    void clear();
    /// The same for the one that is shown, if there is one.
    static void clearShown();

private:
    bool isDue();
    void write(std::string const& text);

    std::string const m_what;
    Terminal m_terminal;
    std::chrono::steady_clock::time_point m_next;
    static Progress* shown;
};

} // namespace tool
