#include <tool/files/FileName.h>

#include <tool/process/Problem.h>

#include <db/internal/Folder.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include <fcntl.h>

namespace tool
{

namespace
{

int rename(std::string const& path, std::string const& target, bool isReplacing)
{
    if (!isReplacing)
    {
        int const result = renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE);
        // File systems of memory sticks lack RENAME_NOREPLACE. That the name is free was checked before.
        if (result == 0 || (errno != EINVAL && errno != ENOSYS))
        {
            return result;
        }
    }
    return std::rename(path.c_str(), target.c_str());
}

} // namespace

void giveName(std::string const& path, std::string const& target, bool isReplacing)
{
    if (rename(path, target, isReplacing) != 0)
    {
        throw Problem(STATUS_BAD_FILE, target + ": " + std::generic_category().message(errno));
    }
    // If this fails, the file is still as durable as any other new file.
    static_cast<void>(folder::synchroniseFolderOf(target));
}

} // namespace tool
