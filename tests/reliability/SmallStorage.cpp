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

/// Moves the process to a private mount namespace; without root, this also needs a private user namespace.
bool enterPrivateMounts()
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
    // Map the user and group, as files on the new file system need a valid owner.
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

int mountSmall(char const* path, unsigned int kib)
{
    std::string const options = "size=" + std::to_string(kib) + "k";
    bool const isMounted = enterPrivateMounts() && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                           mount("small", path, "tmpfs", 0, options.c_str()) == 0;
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
