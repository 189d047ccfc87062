#pragma once

/// Handles the signals that ask the program to end: SIGINT, SIGTERM and SIGHUP. After the first one, a command ends at
/// the next point where it leaves nothing half done. The second one of a kind ends the program at once.
namespace tool::interrupt
{

/// Thrown by `throwIfPending`. Not a std::exception, so that error handling does not catch it.
struct Interrupted
{
};

/// Installs the signal handlers. Ignores SIGPIPE and SIGXFSZ, so that the write fails instead.
void install();

/// Whether a signal has arrived.
bool isPending();

/// Throws Interrupted if a signal has arrived.
void throwIfPending();

/// Ends the program by the default action of the signal that has arrived.
[[noreturn]] void terminateByPendingSignal();

/// Ends the program by the default action of `signalNumber`.
[[noreturn]] void terminateBySignal(int signalNumber);

enum Direction
{
    READING,
    WRITING
};

/// Waits until `descriptor` is ready, a signal arrives or `milliseconds` have passed (-1: no timeout); returns whether
/// it is ready. Once a signal has arrived, it polls without waiting. The descriptor -1 is never ready.
bool waitFor(int descriptor, Direction direction, int milliseconds);

/// Sleeps for `milliseconds` or until a signal arrives.
void pause(int milliseconds);

} // namespace tool::interrupt
