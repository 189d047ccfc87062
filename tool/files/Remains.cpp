#include <tool/files/Remains.h>

#include <tool/process/Problem.h>
#include <tool/terminal/Output.h>

#include <db/internal/Folder.h>
#include <db/internal/ReadOnlyOpening.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <vector>

#include <sys/stat.h>

namespace tool
{

namespace
{

constexpr char kJournal[] = "-journal";
constexpr char kLog[] = "-wal";

struct Remain
{
    std::string path;
    off_t size;
    char const* content;
};

/// The journal and the log with content beside the target of `path`.
std::vector<Remain> findRemains(std::string const& path)
{
    std::string const file = folder::withoutLinks(path);
    std::vector<Remain> remains;
    struct stat status = {};
    if (stat((file + kJournal).c_str(), &status) == 0 && readOnlyOpening::holdsTransaction(file + kJournal))
    {
        remains.push_back({file + kJournal, status.st_size, "the journal of an unfinished transaction"});
    }
    if (stat((file + kLog).c_str(), &status) == 0 && status.st_size > 0)
    {
        remains.push_back({file + kLog, status.st_size, "a write-ahead log"});
    }
    return remains;
}

std::string nameOf(Remain const& remain)
{
    return remain.path + " (" + std::to_string(remain.size) + " bytes)";
}

} // namespace

void requireNoRemains(std::string const& path, std::string const& advice)
{
    std::vector<Remain> const remains = findRemains(path);
    if (!remains.empty())
    {
        throw Problem(STATUS_BAD_FILE, nameOf(remains.front()) + " is " + remains.front().content +
                                           " of another database of that name, and may hold faults. If you have the "
                                           "database, put it back and run 'firaim recover'; otherwise " +
                                           advice);
    }
}

void removeRemains(std::string const& path)
{
    std::vector<Remain> const remains = findRemains(path);
    for (Remain const& remain : remains)
    {
        if (std::remove(remain.path.c_str()) != 0)
        {
            throw Problem(STATUS_BAD_FILE,
                          remain.path + ": cannot be removed: " + std::generic_category().message(errno));
        }
        printMessage("removed " + nameOf(remain) + ", " + remain.content + " of another database of that name");
    }
    if (!remains.empty() && !folder::synchroniseFolderOf(remains.front().path))
    {
        throw Problem(STATUS_BAD_FILE,
                      path + ": its folder cannot be synchronised: " + std::generic_category().message(errno));
    }
}

void requireNoJournalName(std::string const& path, std::string const& copy)
{
    for (char const* const suffix : {kJournal, kLog})
    {
        if (copy == path + suffix)
        {
            throw Problem(STATUS_BAD_USAGE, copy + ": SQLite would take a copy of that name for a journal of the file; "
                                                   "choose another name");
        }
    }
}

} // namespace tool
