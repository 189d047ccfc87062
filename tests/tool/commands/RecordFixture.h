#pragma once

#include "ToolProcess.h"

#include <string>

/// A new file that a command records into.
class RecordTest : public ToolTest
{
protected:
    RecordTest() { create(); }

    std::string statistic(std::string const& columns)
    {
        return value("SELECT " + columns + " FROM FdbFaultStatisticTbl WHERE FaultCode = 1025");
    }

    /// Creates a trigger that refuses the faults of a module.
    void refuseModule(std::string const& module, std::string const& reason)
    {
        RawDb(path).exec("CREATE TRIGGER refuse_" + module + " BEFORE INSERT ON FdbFaultTbl WHEN new.ModuleName = '" +
                         module + "' BEGIN SELECT RAISE(ABORT, '" + reason + "'); END");
    }
};
