// Replaces the allocation functions of the whole test program, to observe releases and to make allocations fail.

#include "AllocationSupport.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace
{

thread_local bool allocationsAreRefused = false;
thread_local ReleaseLog* currentLog = nullptr;

void* allocate(std::size_t size) noexcept
{
    return allocationsAreRefused ? nullptr : std::malloc(size);
}

} // namespace

ReleaseLog::ReleaseLog()
{
    currentLog = this;
}

ReleaseLog::~ReleaseLog()
{
    currentLog = nullptr;
}

void ReleaseLog::note(void const* block)
{
    if (m_count < m_blocks.size())
    {
        m_blocks[m_count++] = block;
    }
}

std::vector<void const*> ReleaseLog::of(std::vector<void const*> const& blocks) const
{
    currentLog = nullptr; // The code below releases blocks, too.
    std::vector<void const*> released;
    for (std::size_t i = 0; i < m_count; ++i)
    {
        if (std::find(blocks.begin(), blocks.end(), m_blocks[i]) != blocks.end())
        {
            released.push_back(m_blocks[i]);
        }
    }
    return released;
}

RefusedAllocations::RefusedAllocations()
{
    allocationsAreRefused = true;
}

RefusedAllocations::~RefusedAllocations()
{
    allocationsAreRefused = false;
}

void* operator new(std::size_t size)
{
    if (void* const block = allocate(size))
    {
        return block;
    }
    throw std::bad_alloc();
}

// The standard library pairs this form with the delete below, so replace it as well.
void* operator new(std::size_t size, std::nothrow_t const&) noexcept
{
    return allocate(size);
}

void operator delete(void* block) noexcept
{
    if (currentLog != nullptr)
    {
        currentLog->note(block);
    }
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    operator delete(block);
}
