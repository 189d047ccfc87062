// Records one fault into the file argv[1]. With argv[2] "close", closes the database before it exits; with "exit" it
// does not.

#include <fdb/FaultDb.h>

#include <string>

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        return 2;
    }
    FaultDb* const db = FaultDb::getInstance();
    db->setDbgLevel(1);
    if (db->createDb(argv[1], true) != RESULT_OK || db->openDb(argv[1], false) != RESULT_OK)
    {
        return 3;
    }
    Fault fault;
    fault.FaultCode = FC_CLOCK_JUMP;
    fault.Description = "clock ahead by 3600 s";
    if (db->insert(fault) != RESULT_OK)
    {
        return 4;
    }
    return std::string(argv[2]) == "close" ? db->closeDb() : 0;
}
