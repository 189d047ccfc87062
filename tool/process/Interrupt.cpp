#include <tool/process/Interrupt.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <ctime>

#include <poll.h>

namespace tool::interrupt
{

namespace
{

constexpr std::array<int, 3> kSignals = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t pendingSignal = 0;

extern "C" void noteSignal(int signalNumber)
{
    pendingSignal = signalNumber;
}

sigset_t handledSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (int const signalNumber : kSignals)
    {
        sigaddset(&signals, signalNumber);
    }
    return signals;
}

} // namespace

void install()
{
    struct sigaction action = {};
    action.sa_handler = noteSignal;
    // Without SA_RESTART, a signal ends a waiting call. With SA_RESETHAND, the second signal ends the program.
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (int const signalNumber : kSignals)
    {
        struct sigaction inherited = {};
        sigaction(signalNumber, nullptr, &inherited);
        // Keep a signal ignored when the caller has ignored it, as nohup does.
        if (inherited.sa_handler != SIG_IGN)
        {
            sigaction(signalNumber, &action, nullptr);
        }
    }
    std::signal(SIGPIPE, SIG_IGN);
    // Beyond the file size limit, the write then fails.
    std::signal(SIGXFSZ, SIG_IGN);
}

bool isPending()
{
    return pendingSignal != 0;
}

void throwIfPending()
{
    if (isPending())
    {
        throw Interrupted();
    }
}

void terminateBySignal(int signalNumber)
{
    std::signal(signalNumber, SIG_DFL);
    static_cast<void>(std::raise(signalNumber));
    // Reached only if the signal is blocked. Shells give this status to a program that a signal ended.
    std::_Exit(128 + signalNumber);
}

void terminateByPendingSignal()
{
    terminateBySignal(pendingSignal);
}

bool waitFor(int descriptor, Direction direction, int milliseconds)
{
    // A signal that arrives between the check of the flag and the wait must end the wait as well.
    sigset_t const signals = handledSignals();
    sigset_t before;
    sigprocmask(SIG_BLOCK, &signals, &before);
    int const longest = isPending() ? 0 : milliseconds;
    pollfd waited = {descriptor, static_cast<short>(direction == READING ? POLLIN : POLLOUT), 0};
    timespec const timeout = {longest / 1000, (longest % 1000) * 1000000L};
    bool const isReady = ppoll(&waited, 1, longest < 0 ? nullptr : &timeout, &before) > 0;
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return isReady;
}

void pause(int milliseconds)
{
    static_cast<void>(waitFor(-1, READING, milliseconds));
}

} // namespace tool::interrupt
