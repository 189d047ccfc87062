// firaim recover: makes a file readable again after its writer was cut off.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/store/FaultFile.h>

namespace tool
{

namespace
{

struct Options
{
    std::string path;
};

int recover(Options const& options, Output&)
{
    recoverFile(options.path);
    return STATUS_DONE;
}

} // namespace

void addRecover(CommandLine& line, Request& request)
{
    Command command =
        line.add("recover", "Roll back what a crashed writer left unfinished", "  firaim recover faults.db");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    runWith(command, request, options, recover);
}

} // namespace tool
