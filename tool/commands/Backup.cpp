// firaim backup: a consistent copy while others write.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/files/Remains.h>
#include <tool/store/FaultFile.h>
#include <tool/store/FileCopy.h>
#include <tool/terminal/Progress.h>

#include <sys/stat.h>

namespace tool
{

namespace
{

struct Options
{
    std::string path;
    std::string copy;
    bool isForced = false;
};

bool pathExists(std::string const& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
}

void requireFreeName(Options const& options)
{
    if (pathExists(options.copy) && !options.isForced)
    {
        throw Problem(STATUS_BAD_FILE, options.copy + ": exists already; --force replaces it");
    }
    struct stat from = {};
    struct stat to = {};
    if (stat(options.path.c_str(), &from) == 0 && stat(options.copy.c_str(), &to) == 0)
    {
        if (from.st_dev == to.st_dev && from.st_ino == to.st_ino)
        {
            throw Problem(STATUS_BAD_USAGE, "backup: the copy would replace the file itself; choose another name");
        }
        if (!S_ISREG(to.st_mode))
        {
            throw Problem(STATUS_BAD_FILE,
                          options.copy + ": is no regular file, and is not replaced; choose another name");
        }
    }
    requireNoJournalName(options.path, options.copy);
    if (!options.isForced)
    {
        requireNoRemains(options.copy, "choose another name for the copy, or let --force remove it");
    }
}

int backup(Options const& options, Output&)
{
    static_cast<void>(FaultFile(options.path)); // Makes sure that it is a fault database.
    requireFreeName(options);
    Progress progress("copying");
    copyFile(options.path, options.copy, options.isForced, [&](double share) { progress.show(share); });
    return STATUS_DONE;
}

} // namespace

void addBackup(CommandLine& line, Request& request)
{
    Command command =
        line.add("backup", "Make a consistent copy while others write", "  firaim backup faults.db copy.db");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    command.argument("COPY", options->copy, "File to create");
    command.flag("--force", options->isForced, "Replace an existing file, and remove a journal or log beside it");
    runWith(command, request, options, backup);
}

} // namespace tool
