#pragma once

#include "FaultPlan.h"

/// Allocations that fail: SQLite's own, and `operator new`, which this source file replaces for the whole process, the
/// library's calls included. Threads: one at a time while a plan is armed.
class FailingMemory
{
public:
    enum Kind
    {
        SQLITE_MALLOC,
        OPERATOR_NEW
    };

    /// Puts itself below SQLite. May be called again; the first call has to come before SQLite is used at all.
    static void install();

    /// Which allocations of that kind fail.
    static FaultPlan& plan(Kind kind);

    /// Blocks that `operator new` gave out and that were not returned.
    static long long liveBlocks();
};
