#pragma once

#include <csignal>

/// Blocks all signals of the calling thread for its lifetime: they stay pending, and threads started meanwhile get
/// none.
class BlockSignals
{
public:
    BlockSignals()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~BlockSignals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    BlockSignals(BlockSignals const&) = delete;
    BlockSignals& operator=(BlockSignals const&) = delete;

private:
    sigset_t m_before;
};
