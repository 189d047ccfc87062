#pragma once

#include "FaultPlan.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

/// A file system for SQLite that hands every call to the real one and can fail the n-th call of one kind.
///
/// Once installed it is the default of the process: connections opened by name go through it. It synchronises nothing
/// (a fault needs no real disk behind it), and it does not wait: what SQLite sleeps for a lock is only added up.
/// Threads: one at a time.
class FailingVfs
{
public:
    enum Kind
    {
        OPEN,
        READ,
        SHORT_READ, ///< the system delivers half; a caller has to ask for the rest
        WRITE,
        SHORT_WRITE, ///< the system takes half; a caller has to offer the rest
        FULL_DISK,
        FULL_DISK_MIDWAY, ///< half of the bytes still find room
        TRUNCATE,
        SYNC,
        LOCK_BUSY,
        LOCK_ERROR,
        CHECK_LOCK,
        UNLOCK,
        REMOVE,
        ACCESS,
        FILE_SIZE,
        KIND_COUNT
    };

    /// Makes it the default. The first call has to come before SQLite opens anything, another one after each
    /// `sqlite3_shutdown`.
    static void install();

    /// The calls that fail are those of `kind`, as `plan()` says.
    static void select(Kind kind);
    static FaultPlan& plan();

    static char const* name(Kind kind);
    /// The same in the form that the name of a test must have.
    static std::string testName(Kind kind);
    static std::string testNameOf(testing::TestParamInfo<Kind> const& info) { return testName(info.param); }

    /// What SQLite would have slept since the last call of this function, in milliseconds.
    static long long takeSleptMs();

    /// Calls `action` once, in the `n`-th sleep from now.
    static void whenSlept(int n, std::function<void()> action);
};
