// Preloaded into a program to make synchronisations fail. FIRAIM_TEST_FAILING_SYNC selects which, counted from 1: "3"
// is the third, "3+" the third and all later ones. Each failure appends a byte to the file named in
// FIRAIM_TEST_FAILED_SYNCS.

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

void noteFailure()
{
    char const* const path = std::getenv("FIRAIM_TEST_FAILED_SYNCS");
    int const descriptor = path != nullptr ? open(path, O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600) : -1;
    if (descriptor < 0 || write(descriptor, "x", 1) != 1)
    {
        std::abort();
    }
    close(descriptor);
}

int synchronise(long call, int descriptor)
{
    static long calls = 0;
    char const* const text = std::getenv("FIRAIM_TEST_FAILING_SYNC");
    if (text != nullptr)
    {
        char* end = nullptr;
        long const failing = std::strtol(text, &end, 10);
        ++calls;
        if (calls == failing || (calls > failing && *end == '+'))
        {
            noteFailure();
            errno = EIO;
            return -1;
        }
    }
    return static_cast<int>(syscall(call, descriptor));
}

} // namespace

extern "C" __attribute__((visibility("default"))) int fdatasync(int descriptor)
{
    return synchronise(SYS_fdatasync, descriptor);
}

extern "C" __attribute__((visibility("default"))) int fsync(int descriptor)
{
    return synchronise(SYS_fsync, descriptor);
}
