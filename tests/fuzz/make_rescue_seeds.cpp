// Writes seed files for fuzz_rescue into the folder argv[1]: small damaged databases with the files beside them.

#include "RescueInput.h"

#include <TestSupport.h>
#include <reliability/DamagedSet.h>

#include <filesystem>

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        return 2;
    }
    std::filesystem::create_directories(argv[1]);
    for (DamagedFile const& file : smallFiles())
    {
        FileBytes const bytes = file.make();
        bool const hasLog = !bytes.log.empty();
        writeFile(std::string(argv[1]) + "/" + file.name,
                  rescueInput(bytes.database, hasLog ? RescueInput::LOG : RescueInput::JOURNAL,
                              hasLog ? bytes.log : bytes.journal));
    }
    return 0;
}
