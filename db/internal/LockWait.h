#pragma once

#include <chrono>

/// Waiting for the locks of other processes.
namespace lockWait
{

/// Default busy timeout.
constexpr std::chrono::seconds kBusyTimeout(5);

/// One wait for one lock.
///
/// SQLite's own busy handler pauses for up to 100 ms between two tries. A process that writes without a pause leaves
/// far shorter gaps, and others could wait in vain for their whole timeout. Here, a call that has waited for long tries
/// more often, and so comes before calls that have just begun to wait.
class LockWait
{
public:
    /// Pauses before the next try; returns false if the wait has lasted for `limit`. `tries` is the argument of
    /// SQLite's busy handler: 0 begins a new wait.
    bool pause(int tries, std::chrono::milliseconds limit);

private:
    std::chrono::steady_clock::time_point m_begin;
    std::chrono::milliseconds m_slept{};
};

} // namespace lockWait
