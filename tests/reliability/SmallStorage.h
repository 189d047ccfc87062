#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

// Storage that is full: limits and mounts that belong to one process.

constexpr int kFailed = 255; // Exit status of a child process; any other but 0 is an errno.

/// Runs `body` in a process of its own, whose limits and mounts end with it. The result is that of `body`, or `kFailed`
/// after a failed expectation.
template <class Body>
int runInChild(Body body)
{
    std::fflush(nullptr); // Otherwise both processes would write what is in the buffers.
    pid_t const child = fork();
    if (child == 0)
    {
        int const result = body();
        std::fflush(nullptr);
        _exit(testing::Test::HasFailure() ? kFailed : result);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    return WIFEXITED(status) ? WEXITSTATUS(status) : kFailed;
}

/// Limits what may be written to one file. What a write has room for is written; the rest fails with EFBIG.
void limitFileSize(rlim_t bytes);
void liftFileSize();

/// Mounts a file system of 320 KiB at `path`, for this process alone. 0, or the errno of what is not allowed.
int mountSmall(char const* path);

/// Runs `body` in a process of its own that has a file system of 320 KiB at `path`. Must be the last step of a test,
/// which is skipped where that is not allowed.
template <class Body>
void runOnSmallFileSystem(std::string const& path, Body body)
{
    int const result = runInChild(
        [&]
        {
            int const refusal = mountSmall(path.c_str());
            if (refusal == 0)
            {
                body();
            }
            return refusal;
        });
    if (result != 0 && result != kFailed)
    {
        GTEST_SKIP() << "no file system may be mounted here: " << std::strerror(result);
    }
    EXPECT_EQ(result, 0);
}

/// Writes a file for as long as there is room.
void fillUp(std::string const& path);
