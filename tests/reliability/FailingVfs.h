#pragma once

#include "FaultPlan.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

/// A file system for SQLite that passes every call to the real one and can make the n-th call of one kind fail.
///
/// Once installed, it is the default of the process. It synchronises nothing, as injected failures need no real disk,
/// and it does not sleep: it only adds up the time that SQLite would sleep while waiting for a lock. Only one thread
/// may use it at a time.
class FailingVfs
{
public:
    enum Kind
    {
        OPEN,
        READ,
        SHORT_READ, ///< the system reads half of the bytes; the caller must read the rest
        WRITE,
        SHORT_WRITE, ///< the system writes half of the bytes; the caller must write the rest
        FULL_DISK,
        FULL_DISK_MIDWAY, ///< there is room for half of the bytes
        TRUNCATE,
        SYNC,
        LOCK_BUSY,
        LOCK_ERROR,
        CHECK_LOCK,
        UNLOCK,
        REMOVE,
        ACCESS,
        FILE_SIZE,
        MAP_SHARED,  ///< of the shared memory of a write-ahead log
        LOCK_SHARED, ///< of the shared memory of a write-ahead log
        KIND_COUNT
    };

    /// Makes this the default file system. Call it before SQLite opens a file, and again after each `sqlite3_shutdown`.
    static void install();

    /// Selects the kind of calls that `plan()` counts and makes fail.
    static void select(Kind kind);
    static FaultPlan& plan();

    static char const* name(Kind kind);
    /// The same name in the form that GoogleTest requires.
    static std::string testName(Kind kind);
    static std::string testNameOf(testing::TestParamInfo<Kind> const& info) { return testName(info.param); }

    /// The time that SQLite would have slept since the last call of this function, in milliseconds.
    static long long takeSleptMs();

    /// Calls `action` once, during the `n`-th sleep from now.
    static void whenSlept(int n, std::function<void()> action);
};
