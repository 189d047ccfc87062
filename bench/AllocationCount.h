#pragma once

/// Counts of allocations since the program started. To count them, this replaces the program's `operator new` and
/// SQLite's allocator.
namespace allocationCount
{

/// Starts to count SQLite's allocations. Call it before the first use of SQLite.
void install();

unsigned long long ofNew();
unsigned long long ofSqlite();

} // namespace allocationCount
