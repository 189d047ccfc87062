// Writes into a database, and acknowledges each operation on standard output as soon as it has returned: a line with
// the code and the key.
//
//   writer script FILE SEED FAULTS   runs an endless script until it is killed; FAULTS is the number of faults in the
//                                    file, which is created first if that is 0
//   writer insert FILE WRITER COUNT  inserts COUNT faults, whose time stamps and texts name the writer and their number

#include <fdb/FaultDb.h>
#include <reliability/NumberedFault.h>
#include <reliability/OperationScript.h>

#include <iostream>
#include <string>

#include <unistd.h>

namespace
{

/// Writes unbuffered with one call, so that an acknowledgement is not lost when the process is killed.
bool acknowledge(int result, unsigned long long key)
{
    std::string const line = std::to_string(result) + " " + std::to_string(key) + "\n";
    return write(STDOUT_FILENO, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

int runScript(FaultDb& db, std::string const& path, unsigned int seed, unsigned long long faultCount)
{
    if (faultCount == 0)
    {
        acknowledge(db.createDb(path, true), 0);
    }
    if (!acknowledge(db.openDb(path, false), 0))
    {
        return 3;
    }
    OperationScript script(seed, faultCount);
    for (;;)
    {
        Operation operation = script.next();
        int const result = perform(db, operation);
        if (!acknowledge(result, operation.fault.EntryId))
        {
            return 4;
        }
    }
}

int insertFaults(FaultDb& db, std::string const& path, unsigned int writer, unsigned int count)
{
    if (db.openDb(path, false) != RESULT_OK)
    {
        return 3;
    }
    for (unsigned int i = 0; i < count; ++i)
    {
        Fault fault = numberedFault(writer, i);
        int const result = db.insert(fault);
        if (!acknowledge(result, fault.EntryId))
        {
            return 4;
        }
    }
    return db.closeDb();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5)
    {
        return 2;
    }
    std::cout.rdbuf(nullptr); // Standard output is reserved for the acknowledgements.
    FaultDb& db = *FaultDb::getInstance();
    auto const first = static_cast<unsigned int>(std::stoul(argv[3]));
    return std::string(argv[1]) == "script"
               ? runScript(db, argv[2], first, std::stoull(argv[4]))
               : insertFaults(db, argv[2], first, static_cast<unsigned int>(std::stoul(argv[4])));
}
