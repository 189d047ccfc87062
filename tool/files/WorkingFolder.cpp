#include <tool/files/WorkingFolder.h>

#include <tool/files/FileName.h>
#include <tool/process/Problem.h>

#include <cerrno>
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
    giveName(file(name), m_target, false);
}

} // namespace tool
