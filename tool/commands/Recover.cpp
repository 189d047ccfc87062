// firaim recover: rolls back what a writer that was cut off left half done.

#include "../Command.h"
#include "../Recorder.h"

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
    // Opening is all that it takes.
    Recorder const recorder(options.path, TimeStyle());
    return STATUS_DONE;
}

} // namespace

void addRecover(CLI::App& app, Request& request)
{
    CLI::App* const command = addCommand(
        app, "recover", "Roll back what a writer that was cut off left half done, so that the file can be read",
        "  firaim recover faults.db");
    auto const options = std::make_shared<Options>();
    addFile(*command, options->path);
    runWith(*command, request, options, recover);
}

} // namespace tool
