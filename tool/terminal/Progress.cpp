#include <tool/terminal/Progress.h>

#include <algorithm>
#include <iostream>
#include <utility>

#include <unistd.h>

namespace tool
{

namespace
{

constexpr std::chrono::milliseconds kInterval(100);
constexpr std::size_t kBarWidth = 30;

} // namespace

Progress* Progress::shown = nullptr;

Progress::Progress(std::string label, Terminal const& resultsTerminal)
    : m_label(std::move(label)), m_terminal(examineTerminal(STDERR_FILENO)), m_next(std::chrono::steady_clock::now())
{
    m_terminal.isDecorated = m_terminal.isDecorated && !resultsTerminal.isTerminal;
}

Progress::~Progress()
{
    clear();
}

bool Progress::isDue()
{
    auto const now = std::chrono::steady_clock::now();
    if (!m_terminal.isDecorated || now < m_next)
    {
        return false;
    }
    m_next = now + kInterval;
    return true;
}

void Progress::write(std::string const& text)
{
    auto const width = static_cast<std::size_t>(m_terminal.width) - 1;
    std::cerr << "\r\x1b[K" + text.substr(0, width) << std::flush;
    shown = this;
}

void Progress::show(double share)
{
    if (!isDue())
    {
        return;
    }
    double const clamped = std::clamp(share, 0.0, 1.0);
    std::size_t const others = m_label.size() + 10; // Brackets, blanks and percentage.
    auto const width = static_cast<std::size_t>(m_terminal.width);
    std::size_t const barWidth = std::min(kBarWidth, width > others ? width - others : 0);
    auto const filled = static_cast<std::size_t>(clamped * static_cast<double>(barWidth));
    std::string const bar = std::string(filled, '#') + std::string(barWidth - filled, '.');
    write(m_label + " [" + bar + "] " + std::to_string(static_cast<int>(clamped * 100)) + " %");
}

void Progress::show(std::string const& amount)
{
    if (isDue())
    {
        write(m_label + " " + amount);
    }
}

void Progress::clear()
{
    if (shown == this)
    {
        std::cerr << "\r\x1b[K" << std::flush;
        shown = nullptr;
    }
}

void Progress::clearShown()
{
    if (shown != nullptr)
    {
        shown->clear();
    }
}

} // namespace tool
