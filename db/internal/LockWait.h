#pragma once

#include <chrono>

/// Waiting for the locks of other processes.
namespace lockWait
{

/// How long a call waits for a lock unless its caller says otherwise.
constexpr std::chrono::seconds kBusyTimeout(5);

/// One wait for one lock.
///
/// SQLite's own handler pauses for up to 100 ms between two tries. A process that writes without a pause leaves gaps of
/// far less than that, and others could wait in vain for all of their time. Whoever has waited for long tries more
/// often, and so comes before those who have just begun.
class LockWait
{
public:
    /// Pauses before the next try, unless the wait has lasted for `limit`; returns whether it is to be tried again.
    /// `tries` is what SQLite passes to a busy handler: 0 begins a new wait.
    bool pause(int tries, std::chrono::milliseconds limit);

private:
    std::chrono::steady_clock::time_point m_begin;
    std::chrono::milliseconds m_slept{};
};

} // namespace lockWait
