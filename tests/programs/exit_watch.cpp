// Prints whether the facade's object was deleted before the process ended.

#include <fdb/FaultDb.h>

#include <cstdio>
#include <cstdlib>
#include <new>

namespace
{

void* watched = nullptr;
bool isDeleted = false;

void printDeletion()
{
    std::puts(isDeleted ? "deleted" : "not deleted");
}

} // namespace

// Replaced to observe the deletion of the object.
void* operator new(std::size_t size)
{
    if (void* const block = std::malloc(size))
    {
        return block;
    }
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept
{
    isDeleted = isDeleted || (block != nullptr && block == watched);
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    operator delete(block);
}

int main()
{
    // Register this first, so that it is called after the library's own clean-up.
    if (std::atexit(printDeletion) != 0)
    {
        return 1;
    }
    watched = FaultDb::getInstance();
    return isDeleted ? 1 : 0;
}
