#include <history/FaultReader.h>
#include <history/FaultRecorder.h>

#include <cstdio>

int main()
{
    char const path[] = "history_consumer.db";
    static_cast<void>(std::remove(path)); // An earlier run may have left a file.
    firaim::FaultEvent event;
    event.code = 1025;
    event.module = "door";
    event.description = "does not shut";
    firaim::FaultRecorder recorder;
    if (recorder.open(path) != firaim::HISTORY_OK || recorder.raise(event).result != firaim::HISTORY_OK)
    {
        return 1;
    }
    firaim::FaultReader reader;
    if (reader.open(path) != firaim::HISTORY_OK)
    {
        return 2;
    }
    Fault fault;
    firaim::FaultCursor faults = reader.faults();
    if (faults.next(fault) != firaim::HISTORY_OK || faults.row().key() != 1)
    {
        return 3;
    }
    std::puts(fault.Description.c_str());
    return fault.ModuleName == event.module && fault.Description == event.description ? 0 : 4;
}
