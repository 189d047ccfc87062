#include <fdb/FaultDb.h>

#include <iostream>

int main()
{
    FaultDb* const db = FaultDb::getInstance();
    int const created = db->createDb("faults.db", false);
    if ((created != RESULT_OK && created != RESULT_FILE_EXISTS) || db->openDb("faults.db", false) != RESULT_OK)
    {
        return 1;
    }
    Fault fault;
    fault.FaultCode = FC_SENSOR_TIMEOUT;
    fault.Status = FAULT_ACTIVE;
    fault.Description = "no answer for 500 ms";
    if (db->insert(fault) != RESULT_OK || db->getFaultById(fault, fault.EntryId) != RESULT_OK)
    {
        return 1;
    }
    std::cout << fault << '\n';
    return db->closeDb();
}
