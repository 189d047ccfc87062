#pragma once

/// Counts of allocations since the program started; the program's own `operator new` and SQLite's memory are replaced
/// for that.
namespace allocationCount
{

/// Begins to count SQLite's. Before the first use of SQLite.
void install();

unsigned long long ofNew();
unsigned long long ofSqlite();

} // namespace allocationCount
