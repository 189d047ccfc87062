#pragma once

/// The signals that ask the program to end: SIGINT, SIGTERM and SIGHUP. The first one is noticed where a command can
/// end without leaving anything half done; the second one of a kind ends the program at once.
namespace tool::interrupt
{

/// Thrown by `check`. Not a std::exception: nothing but `main` is to catch it.
struct Interrupted
{
};

/// From now on the signals are noticed and no longer end the program; SIGPIPE and SIGXFSZ are ignored, so
/// that what they tell of is seen as a failed write.
void install();

/// Whether a signal has come.
bool isPending();

/// Throws Interrupted when a signal has come.
void check();

/// Ends the program as the signal that has come would have ended it.
[[noreturn]] void dieOfIt();

/// Ends the program as `signalNumber` ends programs that do not care for it.
[[noreturn]] void dieOf(int signalNumber);

enum Direction
{
    READING,
    WRITING
};

/// Waits until `descriptor` is ready, a signal has come or `milliseconds` have passed (-1: never); returns whether it
/// is ready. Once a signal has come it only polls. -1 as descriptor only waits.
bool waitFor(int descriptor, Direction direction, int milliseconds);

/// Only waits, for so long or until a signal has come.
void pause(int milliseconds);

} // namespace tool::interrupt
