#include "FailingMemory.h"

#include <sqlite3.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <stdexcept>

namespace
{

FaultPlan sqlitePlan;
FaultPlan newPlan;
std::atomic<long long> liveCount{0};
sqlite3_mem_methods realMethods;

void* allocateForSqlite(int size)
{
    return sqlitePlan.mustFail() ? nullptr : realMethods.xMalloc(size);
}

void* reallocateForSqlite(void* block, int size)
{
    return sqlitePlan.mustFail() ? nullptr : realMethods.xRealloc(block, size);
}

void* allocate(std::size_t size) noexcept
{
    void* const block = newPlan.mustFail() ? nullptr : std::malloc(size != 0 ? size : 1);
    liveCount += block != nullptr ? 1 : 0;
    return block;
}

void* allocateOrThrow(std::size_t size)
{
    if (void* const block = allocate(size))
    {
        return block;
    }
    throw std::bad_alloc();
}

void release(void* block) noexcept
{
    liveCount -= block != nullptr ? 1 : 0;
    std::free(block);
}

} // namespace

// Replace every form that the compiler may choose, so that all allocations are counted. Over-aligned types do not
// occur.

void* operator new(std::size_t size)
{
    return allocateOrThrow(size);
}

void* operator new[](std::size_t size)
{
    return allocateOrThrow(size);
}

void* operator new(std::size_t size, std::nothrow_t const&) noexcept
{
    return allocate(size);
}

void* operator new[](std::size_t size, std::nothrow_t const&) noexcept
{
    return allocate(size);
}

void operator delete(void* block) noexcept
{
    release(block);
}

void operator delete[](void* block) noexcept
{
    release(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    release(block);
}

void operator delete[](void* block, std::size_t) noexcept
{
    release(block);
}

void operator delete(void* block, std::nothrow_t const&) noexcept
{
    release(block);
}

void operator delete[](void* block, std::nothrow_t const&) noexcept
{
    release(block);
}

void FailingMemory::install()
{
    if (realMethods.xMalloc != nullptr)
    {
        return;
    }
    bool const isRead = sqlite3_config(SQLITE_CONFIG_GETMALLOC, &realMethods) == SQLITE_OK;
    sqlite3_mem_methods methods = realMethods;
    methods.xMalloc = allocateForSqlite;
    methods.xRealloc = reallocateForSqlite;
    if (!isRead || sqlite3_config(SQLITE_CONFIG_MALLOC, &methods) != SQLITE_OK)
    {
        throw std::runtime_error("SQLite was used before its memory was replaced");
    }
}

FaultPlan& FailingMemory::plan(Kind kind)
{
    return kind == SQLITE_MALLOC ? sqlitePlan : newPlan;
}

long long FailingMemory::liveBlocks()
{
    return liveCount;
}
