// Makes the storage of a program fail: preloaded into it, or linked to it. With FIRAIM_TEST_UNREADABLE="NAME:OFFSET",
// reading the byte at OFFSET of a file whose path ends in NAME fails, as a medium with a bad block does. With
// FIRAIM_TEST_KEPT="NAME", such files cannot be deleted, as in a folder that others own.

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace
{

std::string environment(char const* name)
{
    char const* const text = std::getenv(name);
    return text != nullptr ? text : "";
}

bool endsWith(std::string const& path, std::string const& name)
{
    return !name.empty() && path.size() >= name.size() &&
           path.compare(path.size() - name.size(), name.size(), name) == 0;
}

std::string pathOf(int descriptor)
{
    char path[PATH_MAX] = {};
    ssize_t const size = readlink(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), path, sizeof(path));
    return std::string(path, size < 0 ? 0 : static_cast<std::size_t>(size));
}

bool isUnreadable(int descriptor, std::size_t size, off64_t offset)
{
    std::string const unreadable = environment("FIRAIM_TEST_UNREADABLE");
    std::size_t const colon = unreadable.rfind(':');
    if (colon == std::string::npos)
    {
        return false;
    }
    long long const bad = std::atoll(unreadable.c_str() + colon + 1);
    return offset <= bad && bad - offset < static_cast<long long>(size) &&
           endsWith(pathOf(descriptor), unreadable.substr(0, colon));
}

ssize_t readAt(int descriptor, void* bytes, std::size_t size, off64_t offset)
{
    if (isUnreadable(descriptor, size, offset))
    {
        errno = EIO;
        return -1;
    }
    iovec const vector = {bytes, size};
    return preadv64(descriptor, &vector, 1, offset);
}

} // namespace

// Name the symbols explicitly, as the headers may map one name of a pair to the other. The offset of pread is a long.
extern "C"
{
    __attribute__((visibility("default"))) ssize_t replacedPread(int, void*, std::size_t, long) __asm__("pread");
    __attribute__((visibility("default"))) ssize_t replacedPread64(int, void*, std::size_t, off64_t) __asm__("pread64");
    __attribute__((visibility("default"))) int replacedUnlink(char const*) __asm__("unlink");

    ssize_t replacedPread(int descriptor, void* bytes, std::size_t size, long offset)
    {
        return readAt(descriptor, bytes, size, offset);
    }

    ssize_t replacedPread64(int descriptor, void* bytes, std::size_t size, off64_t offset)
    {
        return readAt(descriptor, bytes, size, offset);
    }

    int replacedUnlink(char const* path)
    {
        if (endsWith(path, environment("FIRAIM_TEST_KEPT")))
        {
            errno = EACCES;
            return -1;
        }
        return static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
    }
}
