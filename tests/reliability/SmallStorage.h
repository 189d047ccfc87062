#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

// Full storage: limits and mounts that apply to a single process.

constexpr int kFailed = 255; // Exit status after a failed expectation; any other status but 0 is an errno.

/// Runs `body` in a child process, whose limits and mounts end with it. Returns the result of `body`, or `kFailed`
/// after a failed expectation.
template <class Body>
int runInChild(Body body)
{
    std::fflush(nullptr); // Otherwise both processes would write the buffered output.
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

/// Limits the size of each file. A write up to the limit succeeds; a write beyond it fails with EFBIG.
void limitFileSize(rlim_t bytes);
void liftFileSize();

constexpr unsigned int kSmallKib = 320; ///< size of a small file system, unless another one is given

/// Mounts a file system at `path`, for this process and those that it starts only. Returns 0 or an errno.
int mountSmall(char const* path, unsigned int kib = kSmallKib);

/// Runs `body` in a child process with a file system of 320 KiB at `path`. Must be the last step of a test: skips the
/// test where mounting is not allowed.
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
        GTEST_SKIP() << "mounting a file system is not allowed here: " << std::strerror(result);
    }
    EXPECT_EQ(result, 0);
}

/// Writes to a file until the storage is full.
void fillUp(std::string const& path);
