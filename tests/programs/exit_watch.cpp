// Says whether the facade's object has been deleted by the time that the process ends.

#include <fdb/FaultDb.h>

#include <cstdio>
#include <cstdlib>
#include <new>

namespace
{

void* watched = nullptr;
bool isDeleted = false;

void tell()
{
    std::puts(isDeleted ? "deleted" : "not deleted");
}

} // namespace

// Replaced, because there is no other way to see the object go.
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
    // Registered first, and so called after the library's own clean-up.
    if (std::atexit(tell) != 0)
    {
        return 1;
    }
    watched = FaultDb::getInstance();
    return isDeleted ? 1 : 0;
}
