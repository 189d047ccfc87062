// Replaces the C library's functions that open files, in the whole test program, to make a single open fail.

#include "OpenSupport.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

thread_local OpenHook* currentHook = nullptr;

bool isRefused()
{
    if (currentHook != nullptr)
    {
        if (int const error = currentHook->call())
        {
            errno = error;
            return true;
        }
    }
    return false;
}

int openFile(int folder, char const* path, int flags, va_list arguments)
{
    if (isRefused())
    {
        return -1;
    }
    bool const isCreating = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    unsigned int const mode = isCreating ? va_arg(arguments, unsigned int) : 0;
    return static_cast<int>(syscall(SYS_openat, folder, path, flags | O_LARGEFILE, mode));
}

FILE* openStream(char const* function, char const* path, char const* mode)
{
    if (isRefused())
    {
        return nullptr;
    }
    return reinterpret_cast<FILE* (*)(char const*, char const*)>(dlsym(RTLD_NEXT, function))(path, mode);
}

} // namespace

OpenHook::OpenHook(std::function<int()> onOpen) : m_onOpen(std::move(onOpen))
{
    currentHook = this;
}

OpenHook::~OpenHook()
{
    currentHook = nullptr;
}

int OpenHook::call()
{
    if (m_isCalled)
    {
        return 0;
    }
    m_isCalled = true;
    int const result = m_onOpen();
    m_isCalled = false;
    return result;
}

// Name the symbols explicitly, as the headers may map one name of a pair to the other.
extern "C"
{
    int replacedOpen(char const* path, int flags, ...) __asm__("open");
    int replacedOpen64(char const* path, int flags, ...) __asm__("open64");
    int replacedOpenat(int folder, char const* path, int flags, ...) __asm__("openat");
    int replacedOpenat64(int folder, char const* path, int flags, ...) __asm__("openat64");
    FILE* replacedFopen(char const* path, char const* mode) __asm__("fopen");
    FILE* replacedFopen64(char const* path, char const* mode) __asm__("fopen64");

    int replacedOpen(char const* path, int flags, ...)
    {
        va_list arguments;
        va_start(arguments, flags);
        int const descriptor = openFile(AT_FDCWD, path, flags, arguments);
        va_end(arguments);
        return descriptor;
    }

    int replacedOpen64(char const* path, int flags, ...)
    {
        va_list arguments;
        va_start(arguments, flags);
        int const descriptor = openFile(AT_FDCWD, path, flags, arguments);
        va_end(arguments);
        return descriptor;
    }

    int replacedOpenat(int folder, char const* path, int flags, ...)
    {
        va_list arguments;
        va_start(arguments, flags);
        int const descriptor = openFile(folder, path, flags, arguments);
        va_end(arguments);
        return descriptor;
    }

    int replacedOpenat64(int folder, char const* path, int flags, ...)
    {
        va_list arguments;
        va_start(arguments, flags);
        int const descriptor = openFile(folder, path, flags, arguments);
        va_end(arguments);
        return descriptor;
    }

    FILE* replacedFopen(char const* path, char const* mode)
    {
        return openStream("fopen", path, mode);
    }

    FILE* replacedFopen64(char const* path, char const* mode)
    {
        return openStream("fopen64", path, mode);
    }
}
