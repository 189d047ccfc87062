#include "Progress.h"

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

Progress::Progress(std::string what, Terminal const& resultsTerminal)
    : m_what(std::move(what)), m_terminal(examineTerminal(STDERR_FILENO)), m_next(std::chrono::steady_clock::now())
{
    m_terminal.isDecorated = m_terminal.isDecorated && !resultsTerminal.isThere;
}

Progress::~Progress()
{
    clear();
}

void Progress::show(double share)
{
    auto const now = std::chrono::steady_clock::now();
    if (!m_terminal.isDecorated || now < m_next)
    {
        return;
    }
    m_next = now + kInterval;
    double const clamped = std::clamp(share, 0.0, 1.0);
    auto const filled = static_cast<std::size_t>(clamped * static_cast<double>(kBarWidth));
    std::string bar = std::string(filled, '#') + std::string(kBarWidth - filled, '.');
    std::cerr << "\r\x1b[K" + m_what + " [" + bar + "] " + std::to_string(static_cast<int>(clamped * 100)) + " %"
              << std::flush;
    m_isShown = true;
}

void Progress::clear()
{
    if (m_isShown)
    {
        std::cerr << "\r\x1b[K" << std::flush;
        m_isShown = false;
    }
}

} // namespace tool
