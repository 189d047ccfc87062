// Records faults into a file, each with the statistic of its code and in a commit of its own, so that scripts/wear can
// count the bytes and synchronisations.
//
//   record_faults FILE recorder|facade FAULTS

#include "HistoryBaselines.h"

#include <cstdlib>

int main(int argc, char** argv)
{
    require(argc == 4, "arguments: FILE recorder|facade FAULTS");
    std::string const path = argv[1];
    auto const faults = static_cast<unsigned int>(std::strtoul(argv[3], nullptr, 10));
    if (std::string(argv[2]) == "facade")
    {
        FacadeSide(path).record(faults);
        return 0;
    }
    OpenRecorder recorder(path);
    RecorderSide(recorder).record(faults);
    return 0;
}
