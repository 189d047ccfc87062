// Prints how much heap a database takes: after opening it, and after recording and reading the first fault. The heap
// that the process uses before is not counted.
//
//   heap_use FILE

#include <fdb/FaultDb.h>

#include <cstdio>

#include <malloc.h>

namespace
{

std::size_t inUse()
{
    return mallinfo2().uordblks;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        return 2;
    }
    FaultDb& db = *FaultDb::getInstance();
    if (db.createDb(argv[1], true) != RESULT_OK)
    {
        return 1;
    }
    std::size_t const before = inUse();
    if (db.openDb(argv[1], false) != RESULT_OK)
    {
        return 1;
    }
    std::size_t const opened = inUse();
    Fault fault;
    fault.Description = "sensor 12 of channel 4 reports a value outside its range";
    if (db.insert(fault) != RESULT_OK || db.getFaultById(fault, fault.EntryId) != RESULT_OK)
    {
        return 1;
    }
    std::printf("heap in use: %zu bytes more after opening, %zu after recording and reading one fault\n",
                opened - before, inUse() - before);
    return db.closeDb();
}
