#pragma once

#include <string>

#include <sys/types.h>

namespace tool
{

/// Waits for others to change a file, without touching it.
class FileWatch
{
public:
    explicit FileWatch(std::string const& path);
    ~FileWatch();
    FileWatch(FileWatch const&) = delete;
    FileWatch& operator=(FileWatch const&) = delete;

    /// Waits until the file seems to have changed, a signal has come or `milliseconds` have passed. Changes that the
    /// system does not tell of, those of another machine, are there after the time has passed.
    void wait(int milliseconds);

    /// Whether another file has got the name since the last call, or the first since the beginning. A name may be a
    /// link that is given another target.
    bool isReplaced();
    /// Whether there is a file of that name.
    bool isThere() const;

private:
    bool isMeant(char const* name) const;
    void watchFolder();

    std::string const m_path;
    std::string m_name; ///< of the file itself, where the path is a link, and without its folder
    int const m_descriptor;
    int m_watched = -1;
    dev_t m_device = 0;
    ino_t m_inode = 0;
};

} // namespace tool
