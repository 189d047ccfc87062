// Makes the damaged set: sound fault databases, and files to which everything happened that may happen to a file.
//
//   damaged_set FOLDER    writes the files, and their journals and logs, into the folder, which must exist
//   damaged_set --list    prints the name of each file and the damage

#include <reliability/DamagedSet.h>

#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::fputs("usage: damaged_set FOLDER|--list\n", stderr);
        return 2;
    }
    std::string const argument = argv[1];
    for (DamagedFile const& file : damagedSet())
    {
        if (argument == "--list")
        {
            std::printf("%s.db: %s\n", file.name.c_str(), file.damage.c_str());
        }
        else
        {
            writeWithSidecars(file.make(), argument + "/" + file.name + ".db");
        }
    }
    return 0;
}
