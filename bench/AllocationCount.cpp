#include "AllocationCount.h"

#include <cstdlib>
#include <new>

#include <sqlite3.h>

namespace
{

unsigned long long newCount = 0;
unsigned long long sqliteCount = 0;
sqlite3_mem_methods realMethods;

void* sqliteMalloc(int size)
{
    ++sqliteCount;
    return realMethods.xMalloc(size);
}

void* sqliteRealloc(void* block, int size)
{
    ++sqliteCount;
    return realMethods.xRealloc(block, size);
}

} // namespace

void allocationCount::install()
{
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &realMethods);
    sqlite3_mem_methods counting = realMethods;
    counting.xMalloc = sqliteMalloc;
    counting.xRealloc = sqliteRealloc;
    sqlite3_config(SQLITE_CONFIG_MALLOC, &counting);
}

unsigned long long allocationCount::ofNew()
{
    return newCount;
}

unsigned long long allocationCount::ofSqlite()
{
    return sqliteCount;
}

void* operator new(std::size_t size)
{
    ++newCount;
    if (void* const block = std::malloc(size))
    {
        return block;
    }
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    std::free(block);
}
