// firaim create: a new, empty fault database.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/files/Failures.h>
#include <tool/files/Remains.h>
#include <tool/process/Problem.h>
#include <tool/store/FaultFile.h>
#include <tool/store/Journal.h>

#include <db/internal/BlockSignals.h>
#include <fdb/FaultDb.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include <sys/stat.h>

namespace tool
{

namespace
{

struct Options
{
    std::string path;
    bool isForced = false;
    std::string journal = journalNames().front();
    std::string pageSize; ///< in bytes; empty: as SQLite does
};

/// Whether `path` exists, also as a dangling link or a file without permission to read.
bool pathExists(std::string const& path)
{
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0)
    {
        return true;
    }
    if (errno != ENOENT)
    {
        throw Problem(STATUS_BAD_FILE, path + ": " + std::generic_category().message(errno));
    }
    return false;
}

void requireReplaceable(Options const& options)
{
    if (!options.isForced)
    {
        throw Problem(STATUS_BAD_FILE, options.path + ": exists already; --force replaces it");
    }
    struct stat status = {};
    if (lstat(options.path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
    {
        throw Problem(STATUS_BAD_FILE, options.path + ": is no regular file, and is not replaced; choose another name");
    }
}

/// Writes the new file anew with pages of this size. SQLite can do that with a rollback journal only.
void changePageSize(std::string const& path, std::string const& size)
{
    usingSqlite(path,
                [&]
                {
                    sqlite::Connection const connection = openForChanging(path);
                    connection.run("PRAGMA page_size=" + size);
                    connection.run("VACUUM");
                });
}

int create(Options const& options, Output&)
{
    bool const isReplaced = pathExists(options.path);
    if (isReplaced)
    {
        requireReplaceable(options);
    }
    if (!options.isForced)
    {
        requireNoRemains(options.path, "let --force remove it");
    }
    // The file is created in several steps. A signal must not stop it in between: it gets all tables, or none if a step
    // fails.
    BlockSignals const whole;
    if (options.isForced)
    {
        removeRemains(options.path);
    }
    int const result = FaultDb::getInstance()->createDb(options.path, options.isForced);
    if (result == RESULT_OK)
    {
        if (!options.pageSize.empty())
        {
            changePageSize(options.path, options.pageSize);
        }
        changeJournal(options.path, journalNamed(options.journal));
        return STATUS_DONE;
    }
    if (!isReplaced && result != RESULT_FILE_EXISTS)
    {
        // There was no such file before, so only files of this call are removed.
        static_cast<void>(std::remove(options.path.c_str()));
        static_cast<void>(std::remove((options.path + "-journal").c_str()));
    }
    throw Problem(STATUS_BAD_FILE, options.path + ": cannot be created (" + std::to_string(result) +
                                       "); check that its folder exists and can be written to");
}

} // namespace

void addCreate(CommandLine& line, Request& request)
{
    Command command = line.add("create", "Create an empty fault database", "  firaim create faults.db");
    auto const options = std::make_shared<Options>();
    command.argument("FILE", options->path, "File to create");
    command.flag("--force", options->isForced,
                 "Replace an existing file, whose content is lost, and remove a journal or log beside it");
    command.text("--journal", options->journal, "Journal: rollback (default) or wal; wal is a write-ahead log", "KIND")
        .allow(journalNames());
    command
        .text("--page-size", options->pageSize, "Size of a page: 512, 1024, 2048, 4096 or 8192; usually 4096", "BYTES")
        .allow({"512", "1024", "2048", "4096", "8192"});
    runWith(command, request, options, create);
}

} // namespace tool
