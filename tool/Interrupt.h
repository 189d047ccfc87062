#pragma once

/// The signals that ask the program to end: SIGINT, SIGTERM and SIGHUP. The first one is noticed where a command can
/// end without leaving anything half done; the second one of a kind ends the program at once.
namespace tool::interrupt
{

/// Thrown by `check`. Not a std::exception: nothing but `main` is to catch it.
struct Interrupted
{
};

/// From now on the signals are noticed and no longer end the program; SIGPIPE is ignored, so that a reader that went
/// away is seen as a failed write.
void install();

/// Whether a signal has come.
bool isPending();

/// Throws Interrupted when a signal has come.
void check();

/// Ends the program as the signal that has come would have ended it.
[[noreturn]] void dieOfIt();

/// Ends the program as `signalNumber` ends programs that do not care for it.
[[noreturn]] void dieOf(int signalNumber);

/// Waits until `descriptor` can be read, a signal has come or `milliseconds` have passed; returns whether it can be
/// read. -1 as descriptor only waits.
bool waitFor(int descriptor, int milliseconds);

} // namespace tool::interrupt
