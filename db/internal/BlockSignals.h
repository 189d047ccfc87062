#pragma once

#include <csignal>

/// Blocks all signals of the calling thread for as long as it lives: they wait, and threads that it starts get none.
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
