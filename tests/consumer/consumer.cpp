#include <fdb/FaultDb.h>

#include <cstdio>
#include <iostream>
#include <sstream>

#ifdef HAS_OWN_FAULT_CODES
constexpr faultCode_t kCode = DEVICE_LID_OPEN;
constexpr char kName[] = "DEVICE_LID_OPEN";
#else
constexpr faultCode_t kCode = FC_CLOCK_JUMP;
constexpr char kName[] = "FC_CLOCK_JUMP";
#endif

int main()
{
    char const path[] = "consumer.db";
    FaultDb* const db = FaultDb::getInstance();
    if (db->createDb(path, true) != RESULT_OK || db->openDb(path, false) != RESULT_OK)
    {
        return 1;
    }
    std::ostringstream name;
    name << kCode;
    Fault fault;
    fault.FaultCode = kCode;
    fault.FaultCodeName = name.str();
    Fault read;
    if (db->insert(fault) != RESULT_OK || db->getFaultById(read, fault.EntryId) != RESULT_OK)
    {
        return 2;
    }
    std::cout << read << '\n';
    return read.FaultCode == kCode && read.FaultCodeName == kName ? db->closeDb() : 3;
}
