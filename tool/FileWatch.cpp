#include "FileWatch.h"

#include "Interrupt.h"

#include <chrono>
#include <climits>
#include <cstdlib>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool
{

namespace
{

constexpr std::size_t kEventsSize = 64 * (sizeof(inotify_event) + NAME_MAX + 1);

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

} // namespace

FileWatch::FileWatch(std::string const& path) : m_path(path), m_descriptor(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    static_cast<void>(isReplaced());
}

void FileWatch::watchFolder()
{
    std::string const real = resolved(m_path);
    m_name = real.substr(real.find_last_of('/') + 1);
    if (m_watched >= 0)
    {
        static_cast<void>(inotify_rm_watch(m_descriptor, m_watched));
    }
    // The folder and not the file: another file may get its name. Without success there is still the time that passes.
    std::string const folder = real.substr(0, real.find_last_of('/') + 1) + ".";
    m_watched = inotify_add_watch(m_descriptor, folder.c_str(),
                                  IN_MODIFY | IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM);
}

FileWatch::~FileWatch()
{
    static_cast<void>(close(m_descriptor));
}

bool FileWatch::isMeant(char const* name) const
{
    return name == m_name || name == m_name + "-wal";
}

void FileWatch::wait(int milliseconds)
{
    using namespace std::chrono;
    steady_clock::time_point const end = steady_clock::now() + std::chrono::milliseconds(milliseconds);
    bool isChanged = false;
    while (!isChanged && !interrupt::isPending())
    {
        auto const left = duration_cast<std::chrono::milliseconds>(end - steady_clock::now()).count();
        if (left <= 0 || !interrupt::waitFor(m_descriptor, interrupt::READING, static_cast<int>(left)))
        {
            return;
        }
        alignas(inotify_event) char events[kEventsSize];
        ssize_t const size = read(m_descriptor, events, sizeof events);
        for (ssize_t offset = 0; offset < size;)
        {
            auto const* const event = reinterpret_cast<inotify_event const*>(events + offset);
            isChanged = isChanged || event->len == 0 || isMeant(event->name);
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
}

bool FileWatch::isReplaced()
{
    struct stat status = {};
    if (stat(m_path.c_str(), &status) != 0 || (status.st_dev == m_device && status.st_ino == m_inode))
    {
        return false;
    }
    m_device = status.st_dev;
    m_inode = status.st_ino;
    watchFolder();
    return true;
}

bool FileWatch::isThere() const
{
    struct stat status = {};
    return stat(m_path.c_str(), &status) == 0;
}

} // namespace tool
