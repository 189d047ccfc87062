#include "SmallStorage.h"

#include <cerrno>
#include <fstream>

#include <sched.h>
#include <sys/mount.h>

namespace
{

void writeText(char const* path, std::string const& text)
{
    std::ofstream(path) << text;
}

/// Gives the process mounts of its own, which without root takes a user namespace of its own.
bool leaveMounts()
{
    if (geteuid() == 0)
    {
        return unshare(CLONE_NEWNS) == 0;
    }
    std::string const user = std::to_string(geteuid());
    std::string const group = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
    {
        return false;
    }
    // Files on the new file system need an owner; without these each would have one that has no number.
    writeText("/proc/self/setgroups", "deny");
    writeText("/proc/self/uid_map", user + " " + user + " 1");
    writeText("/proc/self/gid_map", group + " " + group + " 1");
    return true;
}

} // namespace

void limitFileSize(rlim_t bytes)
{
    rlimit limit = {};
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    limit.rlim_cur = bytes;
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

void liftFileSize()
{
    rlimit limit = {};
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    limitFileSize(limit.rlim_max);
}

int mountSmall(char const* path)
{
    bool const isMounted = leaveMounts() && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                           mount("small", path, "tmpfs", 0, "size=320k") == 0;
    return isMounted ? 0 : errno;
}

void fillUp(std::string const& path)
{
    std::ofstream file(path, std::ios::binary);
    std::string const page(4096, 'x');
    while (file << page << std::flush)
    {
    }
}
