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
/// How soon a wait notices that another thread has cancelled it; a signal ends it at once. Somebody who waits for days
/// must not wake a sleeping processor all the time.
constexpr milliseconds kSlice(250);

/// The file itself, where `path` is a link.
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
    // Rounded up, so that the last wait does not become many of no length.
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
    // The folder and not the file: another file may get its name. Without success there is still the time that passes.
    std::string const folder = real.substr(0, real.find_last_of('/') + 1) + ".";
    int const watched = inotify_add_watch(m_descriptor, folder.c_str(),
                                          IN_MODIFY | IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM);
    // The same folder has the same number. To give that up and ask again would be told as a change.
    if (m_watched >= 0 && m_watched != watched)
    {
        static_cast<void>(inotify_rm_watch(m_descriptor, m_watched));
    }
    m_watched = watched;
}

bool FileWatch::isMeant(char const* name) const
{
    return name == m_name || name == m_name + "-wal";
}

bool FileWatch::wait(milliseconds longest)
{
    steady_clock::time_point const end = steady_clock::now() + longest;
    for (milliseconds left = longest; left.count() > 0 && !isCancelled(); left = leftUntil(end))
    {
        milliseconds const slice = m_isCancelled == nullptr ? left : std::min(left, kSlice);
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
        // A signal ends it, and it is seen at once whether that cancels the wait.
        static_cast<void>(poll(nullptr, 0, static_cast<int>(std::min(left, kSlice).count())));
    }
}

bool FileWatch::hasEvent(int longestMs) const
{
    pollfd waited = {m_descriptor, POLLIN, 0}; // Without a descriptor it only waits.
    return poll(&waited, 1, longestMs) > 0;
}

/// Takes what the system has told; returns whether any of it is of the file.
bool FileWatch::takeEvents()
{
    alignas(inotify_event) char events[kEventsSize];
    ssize_t const size = read(m_descriptor, events, sizeof events);
    bool isChanged = false;
    for (ssize_t offset = 0; offset < size;)
    {
        auto const* const event = reinterpret_cast<inotify_event const*>(events + offset);
        isChanged = isChanged || event->len == 0 || isMeant(event->name);
        offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
    return isChanged;
}

} // namespace firaim
