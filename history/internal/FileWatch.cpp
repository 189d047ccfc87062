#include <history/internal/FileWatch.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <utility>

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace firaim
{

namespace
{

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::size_t kEventsSize = 64 * (sizeof(inotify_event) + NAME_MAX + 1);
/// Interval of checks for cancellation by another thread; a signal ends a wait at once. Not shorter, so that a wait of
/// days does not keep waking a sleeping processor.
constexpr milliseconds kCancelPoll(250);

/// The target of `path` if that is a link.
std::string resolved(std::string const& path)
{
    char* const real = realpath(path.c_str(), nullptr);
    if (real == nullptr)
    {
        return path;
    }
    std::string result(real);
    std::free(real);
    return result;
}

milliseconds leftUntil(steady_clock::time_point end)
{
    // Round up, so that a wait does not end in many of length 0.
    return std::chrono::ceil<milliseconds>(end - steady_clock::now());
}

} // namespace

FileWatch::FileWatch(std::string path, bool (*canceller)())
    : m_path(std::move(path)), m_isCancelled(canceller), m_descriptor(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    retarget();
}

FileWatch::~FileWatch()
{
    static_cast<void>(close(m_descriptor));
}

void FileWatch::retarget()
{
    std::string const real = resolved(m_path);
    m_name = real.substr(real.find_last_of('/') + 1);
    // Watch the folder, not the file: another file may get its name. If this fails, the wait still ends by its timeout.
    std::string const folder = real.substr(0, real.find_last_of('/') + 1) + ".";
    int const watched = inotify_add_watch(m_descriptor, folder.c_str(),
                                          IN_MODIFY | IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM);
    // The same folder keeps its watch descriptor. Removing and adding the watch again would be reported as a change.
    if (m_watched >= 0 && m_watched != watched)
    {
        static_cast<void>(inotify_rm_watch(m_descriptor, m_watched));
    }
    m_watched = watched;
}

bool FileWatch::isWatchedName(char const* name) const
{
    return name == m_name || name == m_name + "-wal";
}

bool FileWatch::wait(milliseconds longest)
{
    steady_clock::time_point const end = steady_clock::now() + longest;
    for (milliseconds left = longest; left.count() > 0 && !isCancelled(); left = leftUntil(end))
    {
        milliseconds const slice = m_isCancelled == nullptr ? left : std::min(left, kCancelPoll);
        if (hasEvent(static_cast<int>(slice.count())) && takeEvents())
        {
            return true;
        }
    }
    return false;
}

void FileWatch::pause(milliseconds longest) const
{
    steady_clock::time_point const end = steady_clock::now() + longest;
    for (milliseconds left = longest; left.count() > 0 && !isCancelled(); left = leftUntil(end))
    {
        // A signal ends the poll, so a cancellation by its handler is noticed at once.
        static_cast<void>(poll(nullptr, 0, static_cast<int>(std::min(left, kCancelPoll).count())));
    }
}

bool FileWatch::hasEvent(int longestMs) const
{
    pollfd waited = {m_descriptor, POLLIN, 0}; // poll() ignores a negative descriptor and only waits.
    return poll(&waited, 1, longestMs) > 0;
}

/// Reads the pending events; returns whether any of them is for the file or its log.
bool FileWatch::takeEvents()
{
    alignas(inotify_event) char events[kEventsSize];
    ssize_t const size = read(m_descriptor, events, sizeof events);
    bool isChanged = false;
    for (ssize_t offset = 0; offset < size;)
    {
        auto const* const event = reinterpret_cast<inotify_event const*>(events + offset);
        isChanged = isChanged || event->len == 0 || isWatchedName(event->name);
        offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
    return isChanged;
}

} // namespace firaim
