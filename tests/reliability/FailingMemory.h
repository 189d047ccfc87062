#pragma once

#include "FaultPlan.h"

/// Makes allocations fail: those of SQLite, and those by `operator new`, which FailingMemory.cpp replaces for the whole
/// process, including the library. Only one thread may run while a plan is armed.
class FailingMemory
{
public:
    enum Kind
    {
        SQLITE_MALLOC,
        OPERATOR_NEW
    };

    /// Replaces SQLite's allocator. May be called again; the first call must precede any use of SQLite.
    static void install();

    /// The plan that selects the failing allocations of this kind.
    static FaultPlan& plan(Kind kind);

    /// Number of blocks from `operator new` that were not released.
    static long long liveBlocks();
};
