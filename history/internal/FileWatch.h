#pragma once

#include <chrono>
#include <string>

namespace firaim
{

/// Waits for other processes to change a file, without opening it.
class FileWatch
{
public:
    /// `canceller` returns true when a wait shall end early; may be null.
    FileWatch(std::string path, bool (*canceller)());
    ~FileWatch();
    FileWatch(FileWatch const&) = delete;
    FileWatch& operator=(FileWatch const&) = delete;

    /// Watches the folder in which the file is now: the path may be a link with a new target.
    void retarget();

    /// Waits until the file seems to have changed, the wait is cancelled or the time has passed. Returns true if the
    /// file seems to have changed. The system does not report changes by another machine.
    bool wait(std::chrono::milliseconds longest);
    /// Waits for that time, or until cancelled.
    void pause(std::chrono::milliseconds longest) const;

private:
    bool isWatchedName(char const* name) const;
    bool isCancelled() const { return m_isCancelled != nullptr && m_isCancelled(); }
    bool hasEvent(int longestMs) const;
    bool takeEvents();

    std::string const m_path;
    bool (*const m_isCancelled)();
    std::string m_name; ///< file name without its folder; of the target if the path is a link
    int const m_descriptor;
    int m_watched = -1;
};

} // namespace firaim
