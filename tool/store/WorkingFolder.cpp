#include <tool/store/WorkingFolder.h>

#include <tool/process/Problem.h>

#include <db/internal/Folder.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool
{

namespace
{

[[noreturn]] void fail(std::string const& target, char const* action)
{
    throw Problem(STATUS_BAD_FILE, target + ": " + action + ": " + std::generic_category().message(errno));
}

bool synchronise(std::string const& path)
{
    int const descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
    {
        return false;
    }
    bool const isDone = fsync(descriptor) == 0;
    int const error = errno;
    static_cast<void>(close(descriptor)); // Nothing was written through it.
    errno = error;
    return isDone;
}

} // namespace

WorkingFolder::WorkingFolder(std::string const& target) : m_target(target), m_path(target + ".partial-XXXXXX")
{
    if (mkdtemp(m_path.data()) == nullptr)
    {
        fail(m_target, "cannot be created");
    }
}

WorkingFolder::~WorkingFolder()
{
    std::error_code ignored; // A remaining folder does no harm.
    std::filesystem::remove_all(m_path, ignored);
}

void WorkingFolder::moveToTarget(std::string const& name) const
{
    if (!synchronise(file(name)))
    {
        fail(m_target, "cannot be written");
    }
    struct stat status = {};
    if (lstat(m_target.c_str(), &status) == 0)
    {
        throw Problem(STATUS_BAD_FILE, m_target + ": exists already");
    }
    if (renameFile(file(name), m_target, false) != 0)
    {
        fail(m_target, "cannot be created");
    }
    // If this fails, the file is still as durable as any other new file.
    static_cast<void>(folder::synchroniseFolderOf(m_target));
}

int renameFile(std::string const& from, std::string const& to, bool isReplacing)
{
    if (!isReplacing)
    {
        int const result = renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
        // File systems of memory sticks lack RENAME_NOREPLACE.
        if (result == 0 || (errno != EINVAL && errno != ENOSYS))
        {
            return result;
        }
    }
    return rename(from.c_str(), to.c_str());
}

} // namespace tool
