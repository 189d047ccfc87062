#pragma once

#include <chrono>
#include <string>

namespace firaim
{

/// Waits for others to change a file, without touching it.
class FileWatch
{
public:
    /// `canceller` tells whether a wait is to end; null: never.
    FileWatch(std::string path, bool (*canceller)());
    ~FileWatch();
    FileWatch(FileWatch const&) = delete;
    FileWatch& operator=(FileWatch const&) = delete;

    /// Looks anew which folder the file is in: its name may be a link that has got another target.
    void retarget();

    /// Waits until the file seems to have changed, the wait is cancelled or the time has passed; returns whether the
    /// file seems to have changed. Of changes by another machine the system does not tell.
    bool wait(std::chrono::milliseconds longest);
    /// Only waits, for so long or until that is cancelled.
    void pause(std::chrono::milliseconds longest) const;

private:
    bool isMeant(char const* name) const;
    bool isCancelled() const { return m_isCancelled != nullptr && m_isCancelled(); }
    bool hasEvent(int longestMs) const;
    bool takeEvents();

    std::string const m_path;
    bool (*const m_isCancelled)();
    std::string m_name; ///< of the file itself, where the path is a link, and without its folder
    int const m_descriptor;
    int m_watched = -1;
};

} // namespace firaim
