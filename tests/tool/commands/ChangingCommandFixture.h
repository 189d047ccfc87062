#pragma once

#include "ToolProcess.h"

#include <cstdlib>
#include <string>

/// A sample file that a command changes.
class ChangingCommandTest : public ToolTest
{
protected:
    ChangingCommandTest() { createSample(); }

    /// Runs the program with a standard output that cannot be written, and returns its exit status.
    int runWithFullOutput(std::string const& arguments)
    {
        int const status =
            std::system(("'" FIRAIM_TEST_TOOL "' " + arguments + " >/dev/full 2>'" + dir.file("err") + "'").c_str());
        return WEXITSTATUS(status);
    }

    std::string faults() { return value("SELECT group_concat(EntryId) FROM FdbFaultTbl"); }
};
