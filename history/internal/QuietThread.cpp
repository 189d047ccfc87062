#include <history/internal/QuietThread.h>

#include <csignal>
#include <utility>

namespace firaim
{

namespace
{

/// A thread inherits the signals that are blocked when it is started.
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

} // namespace

std::thread startQuietThread(std::function<void()> body)
{
    BlockSignals const blocked;
    return std::thread(std::move(body));
}

} // namespace firaim
